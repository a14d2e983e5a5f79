// SPDX-License-Identifier: Apache-2.0
// Requests that are wrong in one known way: each gets the status that is due and leaves no trace.
#include <binder/IBinder.h>
#include <gmock/gmock.h>

#include <array>
#include <limits>

#include "DaemonFixture.h"
#include "Requests.h"

namespace daemontest {
namespace {

using android::IBinder;
using sim::kGame;
using sim::kShell;

constexpr int kIllegalArgument = -3;
constexpr int kNullPointer = -4;
constexpr int kMost = std::numeric_limits<int32_t>::max();
constexpr int kLeast = std::numeric_limits<int32_t>::min();

class BadInputTest : public DaemonFixture {};

TEST_F(BadInputTest, aRequestCutAtAnyWordGetsTheStatusOfThePartThatIsMissing) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        int cuts = 0;
        for (const Request& request : everyRequest()) {
            const size_t size = request.bytes.size();
            for (size_t length = 0; length < size; length += 4, ++cuts) {
                EXPECT_EQ(caller->call(request.code, request.bytes.cut(length)),
                          failed(request.bytes.statusWhenCut(length)))
                        << request.name << " cut at " << length << " of " << size;
            }
        }
        EXPECT_GE(cuts, 11 * 20);
    });
}

TEST_F(BadInputTest, anObjectThatReachesOverTheEndIsRefusedByTheDriver) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        for (const Request& request : everyRequest()) {
            if (request.bytes.payload().offsets.empty()) continue;
            Payload cut = request.bytes.payload();
            cut.bytes.resize(cut.offsets[0] + sizeof(flat_binder_object) - 4);
            EXPECT_EQ(caller->call(request.code, cut), failed(android::FAILED_TRANSACTION))
                    << request.name;
        }
    });
}

/** The rest of the request is right, or missing, or nonsense: it is not looked at. */
TEST_F(BadInputTest, aWrongInterfaceIsRefusedBeforeAnythingIsRead) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        const FocusRequest others[] = {
                FocusRequest(u""),
                FocusRequest(u"velmar.internal.IVrFocusServic"),
                FocusRequest(u"velmar.internal.IVrFocusServicE"),
                FocusRequest(u"velmar.internal.IVrFocusService2"),
                FocusRequest(u"velmar.internal.IVrFocusListener"),
                FocusRequest(FocusRequest::kDescriptor, FocusRequest::kHeader + 1),
                FocusRequest(FocusRequest::kDescriptor, 0),
        };
        for (const Request& request : everyRequest()) {
            const size_t token = FocusRequest().size();
            for (const FocusRequest& other : others) {
                Payload whole = other.payload();
                const Payload& right = request.bytes.payload();
                whole.bytes += right.bytes.substr(token);
                for (const auto offset : right.offsets)
                    whole.offsets.push_back(offset - token + other.size());
                EXPECT_EQ(caller->call(request.code, whole), failed(android::BAD_TYPE))
                        << request.name;
                EXPECT_EQ(caller->call(request.code, other), failed(android::BAD_TYPE))
                        << request.name;
            }
        }
    });
}

TEST_F(BadInputTest, codesOfNoMethodAreUnknown) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        for (const uint32_t code :
             {0u, 12u, 13u, 100u, IBinder::LAST_CALL_TRANSACTION + 0u,
              IBinder::LAST_CALL_TRANSACTION + 1u, 0x7fffffffu, 0xffffffffu}) {
            EXPECT_EQ(caller->call(code), failed(android::UNKNOWN_TRANSACTION)) << code;
            EXPECT_EQ(caller->call(code, Payload()), failed(android::UNKNOWN_TRANSACTION)) << code;
        }
    });
}

TEST_F(BadInputTest, callsThatEveryBinderKnowsTakeAnyRequest) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        for (const Payload& request : {Payload(), FocusRequest().payload(), Payload("nonsense")}) {
            EXPECT_EQ(caller->call(IBinder::PING_TRANSACTION, request), Answer());
            EXPECT_EQ(caller->call(IBinder::SYSPROPS_TRANSACTION, request), Answer());
            const Answer name = caller->call(IBinder::INTERFACE_TRANSACTION, request);
            EXPECT_EQ(name.exception, int(FocusRequest::kDescriptor.size()));
            for (const uint32_t code :
                 {IBinder::DUMP_TRANSACTION, IBinder::SHELL_COMMAND_TRANSACTION}) {
                EXPECT_EQ(caller->call(code, request), failed(android::BAD_TYPE))
                        << "no descriptor came";
            }
        }
    });
}

TEST_F(BadInputTest, aCountOfMoreThanThereIsTakesNoMemory) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        const struct {
            int32_t count;
            int32_t status;
            int32_t exception;
        } kRows[] = {{kMost, android::BAD_VALUE, 0},      {kLeast, android::BAD_VALUE, 0},
                     {0x40000000, android::BAD_VALUE, 0}, {-2, android::BAD_VALUE, 0},
                     {4, android::BAD_VALUE, 0},          {/*absent=*/-1, 0, kNullPointer}};
        for (const auto& [count, status, exception] : kRows) {
            const FocusRequest request =
                    FocusRequest().int32(/*type=*/0).int32(count).int32(1).int32(2).int32(3);
            const Answer answer = caller->call(kGetClientFocusStatus, request);
            EXPECT_EQ(answer.status, status) << count;
            EXPECT_EQ(answer.exception, exception) << count;
        }
    });
}

TEST_F(BadInputTest, aListenerThatIsNoneIsNotRegistered) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        const struct {
            const char* what;
            FocusRequest listener;
            int32_t status;
            int32_t exception;
        } kRows[] = {
                {"a null binder", FocusRequest().nullBinder(), 0, kNullPointer},
                {"numbers", FocusRequest().int32Vector({0, 0, 0, 0, 0, 0}), android::BAD_TYPE, 0},
                {"a descriptor", FocusRequest().descriptor(STDIN_FILENO), android::BAD_TYPE, 0},
        };
        for (const auto& [what, listener, status, exception] : kRows) {
            for (const auto& [code, request] :
                 {std::pair(kRegisterVrTopActivityListener, listener),
                  {kRegisterVrFocusListener, FocusRequest(listener).int32(0)},
                  {kRegisterVrFocusListener, FocusRequest(listener).int32(1)},
                  {kRegisterVrFocusListener, FocusRequest(listener).int32(2)}}) {
                const Answer answer = caller->call(code, request);
                EXPECT_EQ(answer.status, status) << what;
                EXPECT_EQ(answer.exception, exception) << what;
            }
        }
    });
}

TEST_F(BadInputTest, focusTypesThatDoNotExistAreIllegalAndRegisterNothing) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        for (const int32_t type : {2, -1, 255, 256, kMost, kLeast}) {
            for (const auto& [code, request] :
                 {std::pair(kGetClientFocusStatus, FocusRequest().int32(type).int32Vector({1})),
                  {kRegisterVrFocusListener, FocusRequest().node(0x1000).int32(type)},
                  {kUnregisterVrFocusListener, FocusRequest().int32(type)}}) {
                EXPECT_TRUE(isRefused(caller->call(code, request), kIllegalArgument))
                        << code << " " << type;
            }
        }
    });
}

TEST_F(BadInputTest, pidsOfNobodyAreLeftOutHoweverManyAndOften) {
    const int shell = mHeadset->app(kShell).pid();
    expectNoTrace([&] {
        const auto caller = makeCaller();
        const auto ask = [&](const std::vector<int32_t>& pids) {
            return caller->call(kGetClientFocusStatus,
                                FocusRequest().int32(/*type=*/0).int32Vector(pids));
        };
        const Answer one = ask({shell});
        ASSERT_EQ(one.status, 0);
        EXPECT_EQ(ask({0, -1, kLeast, -kMost, kMost, shell, -shell, shell}), one);
        EXPECT_EQ(ask({0, -1, kLeast, kMost}), ask({}));
        // As many as a call can carry.
        EXPECT_EQ(ask(std::vector<int32_t>(kMostPids, shell)), one);
    });
}

TEST_F(BadInputTest, aRequestLargerThanTheDaemonsBufferFails) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        for (const size_t more : {size_t{8192}, kMostPids, 4 * kMostPids}) {
            const FocusRequest request =
                    FocusRequest()
                            .int32(/*type=*/0)
                            .int32Vector(std::vector<int32_t>(kMostPids + more, -1));
            EXPECT_EQ(caller->call(kGetClientFocusStatus, request),
                      failed(android::FAILED_TRANSACTION));
            EXPECT_TRUE(caller->isAnswered());
        }
    });
}

/** Names of half a million letters together, two bytes each. */
TEST_F(BadInputTest, anAnswerLargerThanTheCallersBufferFails) {
    run([this] {
        const auto caller = makeCaller();
        std::vector<std::unique_ptr<sim::DrivenProcess>> apps;
        for (char letter = 'a'; letter <= 'f'; ++letter) {
            apps.push_back(startDriven(PROGRAMS "/sim_app", std::string(100'000, letter)));
            Json::Value report = operation("setAppState");
            report["pid"] = apps.back()->pid();
            report["state"] = sim::Headset::kVisible;
            ASSERT_EQ(apps.back()->request(report, patience())["exception"], 0);
        }
        const Holdings held = settledHoldings();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(caller->call(kGetForegroundApps), failed(android::FAILED_TRANSACTION));
            EXPECT_TRUE(caller->isAnswered());
        }
        expectHoldings(held);
        apps.resize(1);
        const Answer fits = caller->call(kGetForegroundApps);
        EXPECT_EQ(fits.status, 0);
        EXPECT_GT(fits.result.size(), 200'000u);
    });
}

/** They are told what they do not understand; the daemon goes on. */
TEST_F(BadInputTest, bindersThatAreNoListenersHarmNobody) {
    const auto caller = makeCaller();
    // One's own reference, without which it cannot be handed on.
    caller->raw().write(binderhost::tests::Commands()
                                .count(BC_INCREFS, /*handle=*/0)
                                .count(BC_ACQUIRE, /*handle=*/0));
    for (const uint32_t stranger : {/*the service manager=*/0u, caller->handle()}) {
        const FocusRequest strange = FocusRequest().handle(stranger);
        EXPECT_TRUE(isRefused(caller->call(kRegisterVrTopActivityListener, strange), 0));
        EXPECT_TRUE(isRefused(
                caller->call(kRegisterVrFocusListener, FocusRequest(strange).int32(1)), 0));
        run([this] {
            mHeadset->reportXrSession(kGame, sim::Headset::kStopping);
            mHeadset->reportWindowAgain();
            mHeadset->reportXrSession(kGame, sim::Headset::kVisible);
        });
        EXPECT_TRUE(caller->isAnswered());
        EXPECT_EQ(caller->call(kUnregisterVrTopActivityListener).exception, 0);
        EXPECT_EQ(caller->call(kUnregisterVrFocusListener, FocusRequest().int32(1)).exception, 0);
    }
    EXPECT_EQ(caller->servicePid(), daemonPid());
}

}  // namespace
}  // namespace daemontest
