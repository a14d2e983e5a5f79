// SPDX-License-Identifier: Apache-2.0
//
// Event schemas, by the full protocol buffer runtime's reflection.
#include "EventSchemas.h"

#include <errno.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/stubs/logging.h>

#include <fstream>

#include "MessageFields.h"

namespace hosttelemetry {

namespace pb = google::protobuf;

namespace {

/** Keeps the first reason why a description is refused, and the runtime from printing it. */
class FirstError : public pb::DescriptorPool::ErrorCollector {
public:
    void AddError(const std::string& file, const std::string& element, const pb::Message*,
                  ErrorLocation, const std::string& message) override {
        if (text.empty()) text = file + ": " + element + ": " + message;
    }

    std::string text;
};

}  // namespace

/** One event's message type, and what keeps it alive. */
class EventSchemas::Schema {
public:
    /** False with the reason in `problem`. */
    [[nodiscard]] bool build(std::istream& file, std::string* problem) {
        pb::FileDescriptorSet set;
        if (!set.ParseFromIstream(&file) || set.file_size() == 0) {
            *problem = "no descriptor set";
            return false;
        }
        const pb::FileDescriptor* last = nullptr;
        for (const pb::FileDescriptorProto& description : set.file()) {
            FirstError error;
            last = mPool.BuildFileCollectingErrors(description, &error);
            if (last == nullptr) {
                *problem = error.text;
                return false;
            }
        }
        if (last->message_type_count() == 0) {
            *problem = "describes no message";
            return false;
        }
        mType = last->message_type(0);
        mPrototype = mFactory.GetPrototype(mType);
        return true;
    }

    [[nodiscard]] std::optional<DecodedEvent> decode(const std::string& bytes) const {
        // The runtime complains on stderr of text that is no UTF-8, which is the event's business.
        const pb::LogSilencer silence;
        const std::unique_ptr<pb::Message> message(mPrototype->New());
        if (!message->ParsePartialFromString(bytes)) return std::nullopt;
        return DecodedEvent{.type = mType->name(), .fields = fieldsOf(*message)};
    }

private:
    pb::DescriptorPool mPool;
    pb::DynamicMessageFactory mFactory{&mPool};
    const pb::Descriptor* mType = nullptr;
    const pb::Message* mPrototype = nullptr;
};

EventSchemas::EventSchemas(std::string folder) : mFolder(std::move(folder)) {}

EventSchemas::~EventSchemas() = default;

std::optional<DecodedEvent> EventSchemas::decode(const Event& event) {
    const Schema* schema = find(event.id);
    if (schema == nullptr) return std::nullopt;
    return schema->decode(event.bytes);
}

std::vector<std::string> EventSchemas::takeProblems() {
    return std::exchange(mProblems, {});
}

const EventSchemas::Schema* EventSchemas::find(int32_t id) {
    const auto [place, isNew] = mSchemas.try_emplace(id);
    if (!isNew) return place->second.get();
    const std::string path = mFolder + "/" + std::to_string(id) + ".desc";
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open()) return nullptr;
    auto schema = std::make_unique<Schema>();
    std::string problem;
    if (!schema->build(file, &problem)) {
        mProblems.push_back(path + ": " + problem);
        return nullptr;
    }
    place->second = std::move(schema);
    return place->second.get();
}

}  // namespace hosttelemetry
