// SPDX-License-Identifier: Apache-2.0
// Requests of random bytes and objects, always the same ones: an answer each, and no trace.
#include <gmock/gmock.h>

#include <random>

#include "DaemonFixture.h"
#include "Requests.h"

namespace daemontest {
namespace {

constexpr int kRounds = 1500;

class RandomInputTest : public DaemonFixture {
protected:
    size_t below(size_t bound) { return mRandom() % bound; }
    /** Numbers as programs get them wrong, and any that are no pids. The pid 1 is alive. */
    int32_t word() {
        static constexpr int32_t kOdd[] = {0, 1, -1, -2, INT32_MAX, INT32_MIN, 0x73682a85};
        return below(2) == 0 ? kOdd[below(std::size(kOdd))]
                             : static_cast<int32_t>(mRandom() | 1 << 30);
    }
    void appendWords(size_t most, Payload* payload) {
        for (size_t left = below(most); left > 0; --left) {
            const int32_t value = word();
            payload->bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
        }
    }
    /** Of a binder of the sender, of another, of a descriptor. */
    void appendObject(Payload* payload) {
        switch (below(3)) {
            case 0:
                payload->node(0x1000 + below(3) * 16, 0x1000);
                break;
            case 1:
                payload->handle(static_cast<uint32_t>(below(3)));
                break;
            default:
                payload->descriptor(below(2) == 0 ? STDIN_FILENO : 1 << 20);
        }
    }

    /** Makes each request, sends it, and wants an answer that is no success. */
    template <typename Make>
    void expectAllRefused(const Make& make) {
        expectNoTrace([&] {
            const auto caller = makeCaller();
            for (int round = 0; round < kRounds; ++round) {
                const auto [code, payload] = make();
                const Answer answer = caller->call(code, payload);
                ASSERT_NE(answer.status, android::DEAD_OBJECT) << round << ", code " << code;
                EXPECT_TRUE(answer.status != 0 || answer.exception != 0)
                        << round << ", code " << code;
            }
        });
    }

    void SetUp() override {
        DaemonFixture::SetUp();
        // From now on the daemon knows it.
        const FocusRequest first = FocusRequest().int32(0).int32Vector({1});
        EXPECT_EQ(makeCaller()->call(kGetClientFocusStatus, first).status, 0);
    }

    std::mt19937 mRandom{20'250};
};

using Made = std::pair<uint32_t, Payload>;

TEST_F(RandomInputTest, wordsAndObjectsWithoutAnInterfaceNameAreRefused) {
    expectAllRefused([this] {
        Payload payload;
        appendWords(12, &payload);
        for (size_t objects = below(4); objects > 0; --objects) {
            appendObject(&payload);
            appendWords(4, &payload);
        }
        return Made(static_cast<uint32_t>(below(14)), std::move(payload));
    });
}

TEST_F(RandomInputTest, offsetsThatNameNoObjectAreRefused) {
    expectAllRefused([this] {
        const auto requests = everyRequest();
        const Request& request = requests[below(requests.size())];
        Payload payload = request.bytes.payload();
        appendWords(6, &payload);
        const size_t size = payload.bytes.size();
        // Into the name of the interface, where no object can be, or beyond the end.
        payload.offsets = {below(3) == 0 ? size + below(64) : below(FocusRequest().size() - 24)};
        return Made(request.code, std::move(payload));
    });
}

/** Without objects nothing can be registered; grants are left out, since any display will do. */
TEST_F(RandomInputTest, wordsBehindTheInterfaceNameAreAnsweredAndRegisterNothing) {
    expectNoTrace([this] {
        const auto caller = makeCaller();
        int succeeded = 0;
        for (int round = 0; round < kRounds; ++round) {
            Payload payload = FocusRequest().payload();
            appendWords(12, &payload);
            const auto code = static_cast<uint32_t>(below(2) == 0 ? 1 : below(10));
            if (code == kUnregisterVrFocusListener) continue;
            const Answer answer = caller->call(code, payload);
            ASSERT_NE(answer.status, android::DEAD_OBJECT) << round << ", code " << code;
            if (answer.status == 0 && answer.exception == 0) ++succeeded;
        }
        EXPECT_GT(succeeded, 0) << "some of it must have got past the checks";
    });
}

/** One word of a right request is another one. */
TEST_F(RandomInputTest, requestsWithOneWrongWordAreAnswered) {
    expectNoTrace([this] {
        for (int round = 0; round < kRounds / 10; ++round) {
            // Whatever it registers goes with it.
            const auto caller = makeCaller();
            for (const Request& request : everyRequest()) {
                if (request.code >= kGrantTrackingServiceAccess) continue;
                if (request.code == kUnregisterVrFocusListener) continue;
                if (request.code == kRegisterVrFocusListener) continue;
                Payload payload = request.bytes.payload();
                const int32_t value = word();
                payload.bytes.replace(below(payload.bytes.size() / 4) * 4, sizeof(value),
                                      reinterpret_cast<const char*>(&value), sizeof(value));
                const Answer answer = caller->call(request.code, payload);
                ASSERT_NE(answer.status, android::DEAD_OBJECT) << round << request.name;
            }
        }
    });
}

}  // namespace
}  // namespace daemontest
