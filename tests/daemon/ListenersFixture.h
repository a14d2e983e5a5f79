// SPDX-License-Identifier: Apache-2.0
//
// A booted headset among apps with listeners, and what both sides say of them.
#pragma once

#include <json/reader.h>

#include <memory>
#include <string>
#include <vector>

#include "DaemonFixture.h"

namespace daemontest {

class ListenersFixture : public DaemonFixture {
protected:
    using DrivenProcess = sim::DrivenProcess;
    static constexpr int kIllegalArgument = -3;

    /** An app with listeners, under the test's uid; gone with the object. */
    std::unique_ptr<DrivenProcess> startListener() {
        return startDriven(LISTENER_PROGRAM, "com.velmar.test");
    }

    /** A stand-in of the test for one of the platform's services. */
    std::unique_ptr<DrivenProcess> replaceService(const std::string& name) {
        mHeadset->killService(name);
        return startDriven(PLATFORM_PROGRAM, name);
    }

    Json::Value ask(DrivenProcess& listener, const char* op, int type = 0) {
        Json::Value request = operation(op);
        request["type"] = type;
        return listener.request(request, patience());
    }
    void expectTaken(DrivenProcess& listener, const char* op, int type = 0) {
        const Json::Value answer = ask(listener, op, type);
        EXPECT_EQ(answer["exception"], 0) << op << type;
        EXPECT_EQ(answer["result"], true) << op << type;
    }
    void registerAll(DrivenProcess& listener) {
        expectTaken(listener, "registerFocus", 0);
        expectTaken(listener, "registerFocus", 1);
        expectTaken(listener, "registerTop");
    }

    /** Notices of each kind: the focus of type 0, of type 1, of a wrong type, the top activity. */
    struct Counts {
        int head, input, wrong, top;
        bool operator==(const Counts&) const = default;
    };
    Counts heard(DrivenProcess& listener) {
        const Json::Value value = ask(listener, "heard");
        return {value["focus"][0].asInt(), value["focus"][1].asInt(), value["focus"][2].asInt(),
                value["tops"].asInt()};
    }
    void awaitHeard(DrivenProcess& listener, const Counts& due) {
        mHeadset->awaitTrue("the listener has heard", [&] { return heard(listener) == due; });
    }
    /** Waits until the last notice of the top activity was this, with the immersive app of now. */
    void awaitTop(DrivenProcess& listener, const std::string& activity) {
        Json::Value top;
        std::string immersive;
        const auto told = [&] {
            top = ask(listener, "heard")["top"];
            immersive = mHeadset->answersFor(sim::kShell).immersive;
            return top["activity"] == activity && top["package"] == immersive;
        };
        EXPECT_EQ(errorOf([&] { mHeadset->awaitTrue("it is told", told); }), "")
                << top.toStyledString() << immersive;
        EXPECT_EQ(top["pid"].asInt(), immersive.empty() ? 0 : mHeadset->app(immersive).pid());
        EXPECT_EQ(top["uid"].asInt(), immersive.empty() ? 0 : mHeadset->uidOf(immersive));
        EXPECT_EQ(top["isTop"].asBool(), activity == immersive);
    }

    /** The pids on record, by focus type, as the dump has them. */
    std::vector<std::vector<int>> registered() {
        Json::Value dump;
        std::string errors;
        const std::string text = makeCaller()->dump({u"json"});
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &dump, &errors))
                << errors << text;
        std::vector<std::vector<int>> pids(2);
        for (const Json::Value& entry : dump["types"]) {
            for (const Json::Value& pid : entry["listeners"])
                pids.at(entry["type"].asUInt()).push_back(pid.asInt());
            EXPECT_EQ(entry["size"].asUInt(), entry["listeners"].size());
        }
        return pids;
    }
};

}  // namespace daemontest
