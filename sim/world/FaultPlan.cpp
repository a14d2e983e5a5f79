// SPDX-License-Identifier: Apache-2.0
// A fault of a simulated service: checks, and as a message.
#include "world/FaultPlan.h"

#include <algorithm>
#include <array>

#include "world/Notice.h"
#include "world/ServiceMethods.h"

namespace sim {
namespace {

using Kind = FaultPlan::Kind;

struct KindRow {
    Kind kind;
    const char* name;
};
constexpr std::array kKinds{
        KindRow{Kind::None, "none"},
        KindRow{Kind::Error, "error"},
        KindRow{Kind::Truncated, "truncated"},
        KindRow{Kind::Random, "random"},
        KindRow{Kind::Dies, "dies"},
        KindRow{Kind::Descriptor, "descriptor"},
        KindRow{Kind::DropNotices, "dropNotices"},
        KindRow{Kind::DoubleNotices, "doubleNotices"},
        KindRow{Kind::ReorderNotices, "reorderNotices"},
};

std::string namesOf(const std::vector<ServiceMethod>& methods) {
    std::string text;
    for (const ServiceMethod& method : methods)
        text += std::string(text.empty() ? "" : ", ") + method.name;
    return text;
}

std::string problemWithMethod(const FaultPlan& plan, const std::string& service) {
    const std::vector<ServiceMethod>& methods = methodsOf(service);
    const bool needsReply = plan.kind == Kind::Truncated || plan.kind == Kind::Random;
    const auto hasReply = [](const ServiceMethod& method) { return !method.isOneWay; };
    const auto registers = [](const ServiceMethod& method) { return method.isRegistration; };
    if (plan.method == FaultPlan::kRegistration) {
        if (std::any_of(methods.begin(), methods.end(), registers)) return "";
        return "nobody registers anything with '" + service + "'";
    }
    if (plan.method == FaultPlan::kAllMethods) {
        if (!needsReply || std::any_of(methods.begin(), methods.end(), hasReply)) return "";
        return "the calls of '" + service + "' are one-way: they have no reply";
    }
    const ServiceMethod* method = findMethod(service, plan.method);
    if (method == nullptr) {
        return "'" + service + "' has no method '" + plan.method + "', only " + namesOf(methods);
    }
    if (needsReply && method->isOneWay) return plan.method + " is one-way: it has no reply";
    return "";
}

}  // namespace

bool FaultPlan::isOfNotices() const {
    return kind == Kind::DropNotices || kind == Kind::DoubleNotices || kind == Kind::ReorderNotices;
}

std::string FaultPlan::problemWith(const std::string& service) const {
    if (methodsOf(service).empty()) return "no service '" + service + "'";
    if (times < 0) return "a fault happens a number of times, not " + std::to_string(times);
    switch (kind) {
        case Kind::None:
            return "";
        case Kind::Error:
            if ((exception == 0) == (transport == 0)) {
                return "an error is either an exception or an error of the transport";
            }
            if (exception > 0 || exception < kLowestException || transport > 0) {
                return "no such status: " + std::to_string(exception + transport);
            }
            return problemWithMethod(*this, service);
        case Kind::Truncated:
        case Kind::Random:
        case Kind::Dies:
            return problemWithMethod(*this, service);
        case Kind::Descriptor:
            return descriptor.empty() ? "a descriptor has a text" : "";
        case Kind::DropNotices:
        case Kind::DoubleNotices:
        case Kind::ReorderNotices:
            break;
    }
    const bool sendsSome = Notice::isSender(service);
    if (!sendsSome) return "'" + service + "' sends no notices";
    if (kind == Kind::ReorderNotices && times < 2) return "two notices at least have an order";
    return "";
}

Json::Value FaultPlan::toJson() const {
    Json::Value value(Json::objectValue);
    const auto row = std::find_if(kKinds.begin(), kKinds.end(),
                                  [&](const KindRow& entry) { return entry.kind == kind; });
    value["fault"] = row->name;
    value["method"] = method;
    value["exception"] = exception;
    value["transport"] = transport;
    value["times"] = times;
    value["seed"] = seed;
    value["descriptor"] = descriptor;
    return value;
}

std::optional<FaultPlan> FaultPlan::fromJson(const Json::Value& value) {
    const auto name = stringMember(value, "fault");
    const auto method = stringMember(value, "method");
    const auto exception = intMember(value, "exception");
    const auto transport = intMember(value, "transport");
    const auto times = intMember(value, "times");
    const auto descriptor = stringMember(value, "descriptor");
    if (!name || !method || !exception || !transport || !times || !descriptor) return {};
    if (!value["seed"].isUInt()) return {};
    const auto row = std::find_if(kKinds.begin(), kKinds.end(),
                                  [&](const KindRow& entry) { return entry.name == *name; });
    if (row == kKinds.end()) return {};
    return FaultPlan{row->kind,  *method, *exception,
                     *transport, *times,  static_cast<uint32_t>(value["seed"].asUInt()),
                     *descriptor};
}

}  // namespace sim
