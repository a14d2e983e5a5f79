// SPDX-License-Identifier: Apache-2.0
//
// Message fields, by reflection.
#include "MessageFields.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/unknown_field_set.h>

#include <map>

#include "../EventLine.h"

namespace hosttelemetry {

namespace pb = google::protobuf;

namespace {

Json::Value objectOf(const pb::Message& message) {
    Json::Value object(Json::objectValue);
    for (auto& [name, value] : fieldsOf(message))
        object[name] = std::move(value);
    return object;
}

/** Bytes are any; what a string has that is no UTF-8, the JSON writer replaces. */
Json::Value textOf(const pb::FieldDescriptor& field, const std::string& text) {
    return field.type() == pb::FieldDescriptor::TYPE_BYTES ? toHex(text) : text;
}

Json::Value singleValue(const pb::Message& message, const pb::FieldDescriptor* field) {
    const pb::Reflection& reflection = *message.GetReflection();
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_INT32:
            return reflection.GetInt32(message, field);
        case pb::FieldDescriptor::CPPTYPE_INT64:
            return Json::Int64{reflection.GetInt64(message, field)};
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            return reflection.GetUInt32(message, field);
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            return Json::UInt64{reflection.GetUInt64(message, field)};
        case pb::FieldDescriptor::CPPTYPE_DOUBLE:
            return reflection.GetDouble(message, field);
        case pb::FieldDescriptor::CPPTYPE_FLOAT:
            return reflection.GetFloat(message, field);
        case pb::FieldDescriptor::CPPTYPE_BOOL:
            return reflection.GetBool(message, field);
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            return reflection.GetEnum(message, field)->name();
        case pb::FieldDescriptor::CPPTYPE_STRING:
            return textOf(*field, reflection.GetString(message, field));
        case pb::FieldDescriptor::CPPTYPE_MESSAGE:
            return objectOf(reflection.GetMessage(message, field));
    }
    return {};
}

Json::Value repeatedValue(const pb::Message& message, const pb::FieldDescriptor* field, int i) {
    const pb::Reflection& reflection = *message.GetReflection();
    switch (field->cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_INT32:
            return reflection.GetRepeatedInt32(message, field, i);
        case pb::FieldDescriptor::CPPTYPE_INT64:
            return Json::Int64{reflection.GetRepeatedInt64(message, field, i)};
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            return reflection.GetRepeatedUInt32(message, field, i);
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            return Json::UInt64{reflection.GetRepeatedUInt64(message, field, i)};
        case pb::FieldDescriptor::CPPTYPE_DOUBLE:
            return reflection.GetRepeatedDouble(message, field, i);
        case pb::FieldDescriptor::CPPTYPE_FLOAT:
            return reflection.GetRepeatedFloat(message, field, i);
        case pb::FieldDescriptor::CPPTYPE_BOOL:
            return reflection.GetRepeatedBool(message, field, i);
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            return reflection.GetRepeatedEnum(message, field, i)->name();
        case pb::FieldDescriptor::CPPTYPE_STRING:
            return textOf(*field, reflection.GetRepeatedString(message, field, i));
        case pb::FieldDescriptor::CPPTYPE_MESSAGE:
            return objectOf(reflection.GetRepeatedMessage(message, field, i));
    }
    return {};
}

Json::Value valueOf(const pb::Message& message, const pb::FieldDescriptor* field) {
    if (!field->is_repeated()) return singleValue(message, field);
    Json::Value values(Json::arrayValue);
    const int size = message.GetReflection()->FieldSize(message, field);
    for (int i = 0; i < size; ++i)
        values.append(repeatedValue(message, field, i));
    return values;
}

/** Several of one number become an array. */
std::map<int, Json::Value> unknownFields(const pb::UnknownFieldSet& unknown) {
    std::map<int, Json::Value> arrays;
    for (int i = 0; i < unknown.field_count(); ++i) {
        const pb::UnknownField& field = unknown.field(i);
        Json::Value& values = arrays[field.number()];
        switch (field.type()) {
            case pb::UnknownField::TYPE_VARINT:
                values.append(Json::UInt64{field.varint()});
                break;
            case pb::UnknownField::TYPE_FIXED32:
                values.append(field.fixed32());
                break;
            case pb::UnknownField::TYPE_FIXED64:
                values.append(Json::UInt64{field.fixed64()});
                break;
            case pb::UnknownField::TYPE_LENGTH_DELIMITED:
                values.append(toHex(field.length_delimited()));
                break;
            case pb::UnknownField::TYPE_GROUP:
                break;
        }
    }
    return arrays;
}

}  // namespace

std::vector<std::pair<std::string, Json::Value>> fieldsOf(const pb::Message& message) {
    std::vector<const pb::FieldDescriptor*> present;
    message.GetReflection()->ListFields(message, &present);
    std::vector<std::pair<std::string, Json::Value>> fields;
    fields.reserve(present.size());
    for (const pb::FieldDescriptor* field : present)
        fields.emplace_back(field->name(), valueOf(message, field));
    for (auto& [number, values] :
         unknownFields(message.GetReflection()->GetUnknownFields(message))) {
        fields.emplace_back(std::to_string(number),
                            values.size() == 1 ? Json::Value(values[0]) : std::move(values));
    }
    return fields;
}

}  // namespace hosttelemetry
