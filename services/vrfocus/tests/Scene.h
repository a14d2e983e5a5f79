// SPDX-License-Identifier: Apache-2.0
//
// Scene: a focus service with listeners, and everything that can happen to it as an act: something
// to be made ready first and then run on any thread, which says what came of it.
//
//      first, second    two processes, each with a focus listener of type 0 and a top activity
//                       listener
//
// An act that comes through a call keeps the service for itself, as a binder call does; a notice of
// the tracker and a death notice find it by themselves.
#pragma once

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "FakeListeners.h"
#include "ServiceWorld.h"

namespace NQS::OS {

class Scene : public ServiceWorld {
public:
    using Act = std::function<std::string()>;
    using FocusListener = android::sp<FakeFocusListener>;
    using TopListener = android::sp<FakeTopActivityListener>;

    // Of no real processes: above what the kernel gives out.
    static constexpr int kFirst = 5'000'001;
    static constexpr int kSecond = 5'000'002;
    static constexpr int kNew = 5'000'003;
    /** Of the act that others come across. */
    static constexpr int kOther = 5'000'004;

    Scene() {
        processes.set(kFirst, uid, "com.game");
        for (const Act& act : {add(kFirst, first), add(kSecond, second), addTop(kFirst, firstTop),
                               addTop(kSecond, secondTop)}) {
            EXPECT_EQ(act(), "0 true");
        }
    }

    FocusListener listener(const std::string& name) { return new FakeFocusListener(name, log); }
    TopListener topListener(const std::string& name) {
        return new FakeTopActivityListener(name, log);
    }

    Act notice() {
        return [this] {
            tracker->windowFocusCallback();
            return "noticed";
        };
    }
    Act appState() {
        return call(uid, kFirst,
                    [](auto& target, bool*) { return target.setAppState(kFirst, /*state=*/0); });
    }
    Act add(int pid, const FocusListener& added) { return add(uid, pid, added); }
    Act add(int callingUid, int pid, const FocusListener& added) {
        return call(callingUid, pid, [added](auto& target, bool* result) {
            return target.registerVrFocusListener(added, /*focusType=*/0, result);
        });
    }
    Act addTop(int pid, const TopListener& added) {
        return call(uid, pid, [added](auto& target, bool* result) {
            return target.registerVrTopActivityListener(added, result);
        });
    }
    Act remove(int pid) {
        return call(uid, pid, [](auto& target, bool* result) {
            return target.unregisterVrFocusListener(/*focusType=*/0, result);
        });
    }
    Act removeTop(int pid) {
        return call(uid, pid, [](auto& target, bool* result) {
            return target.unregisterVrTopActivityListener(result);
        });
    }
    /** Keeps no reference to the listener that dies. */
    template <typename Listener>
    Act death(const android::sp<Listener>& listener) {
        const android::wp<android::IBinder> who(listener.get());
        return [recipients = listener->takeRecipients(), who] {
            for (const auto& recipient : recipients)
                recipient->binderDied(who);
            return "died";
        };
    }
    /** Everything that asks the policy and the tracker but changes no listener. */
    Act queries() {
        return call(uid, kFirst, [](auto& target, bool*) {
            android::String16 top;
            ImmersiveApp app;
            std::vector<ClientStatus> statuses;
            target.grantTrackingServiceAccess(/*displayId=*/0);
            target.getImmersiveApp(&app);
            target.getClientFocusStatus(/*focusType=*/0, {kFirst}, &statuses);
            return target.getTopActivity(&top);
        });
    }
    /** Into a pipe that takes all of it, unless fillPipe() comes first. */
    Act dump(const std::string& argument) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        reader.reset(ends[0]);
        writer.reset(ends[1]);
        return [this, target = service, argument] {
            const CallAs caller(uid, kFirst);
            android::Vector<android::String16> args;
            args.push_back(android::String16(argument.c_str()));
            EXPECT_EQ(target->dump(writer.get(), args), android::OK);
            writer.reset();
            return "dumped";
        };
    }
    /** Until it takes no byte more: the next write to it sleeps. */
    void fillPipe() {
        fcntl(writer.get(), F_SETFL, O_NONBLOCK);
        const std::string block(4096, 'x');
        while (write(writer.get(), block.data(), block.size()) > 0) {
        }
        fcntl(writer.get(), F_SETFL, 0);
    }
    /** To the end. */
    std::string readPipe() {
        std::string read;
        android::base::ReadFdToString(reader, &read);
        return read;
    }

    /** Whom a notice reaches now, as "NAME" and "NAME top", apart from the other act's. */
    std::vector<std::string> told() {
        log->take();
        tracker->activityStateCallback();
        std::vector<std::string> names;
        for (const std::string& line : log->take()) {
            const std::string name = line.substr(0, line.find(' '));
            if (name == line || name == "other") continue;
            names.push_back(name + (line.find(" top ") == std::string::npos ? "" : " top"));
        }
        return names;
    }

    const int uid = user(kReadFocus, kGrantAccess, kDumpPermission);
    const FocusListener first = listener("first");
    const FocusListener second = listener("second");
    const TopListener firstTop = topListener("first");
    const TopListener secondTop = topListener("second");
    android::base::unique_fd reader, writer;

private:
    Act call(int callingUid, int pid,
             std::function<android::binder::Status(VrFocusService&, bool*)> method) {
        return [target = service, callingUid, pid, method = std::move(method)] {
            const CallAs caller(callingUid, pid);
            bool result = false;
            const int exception = method(*target, &result).exceptionCode();
            return std::to_string(exception) + (result ? " true" : " false");
        };
    }
};

}  // namespace NQS::OS
