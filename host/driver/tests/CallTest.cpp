// SPDX-License-Identifier: Apache-2.0
//
// Two-way calls and their answers.
#include "HubFixture.h"
#include "RawClient.h"

namespace binderhost::tests {
namespace {

class CallTest : public HubFixture {};

TEST_F(CallTest, aCallReachesTheContextManagerAndItsReplyComesBack) {
    RawClient server(path()), client(path());
    server.publish();
    client.write(Commands().call(0, 42, "hello"));
    const Return call = server.expect(BR_TRANSACTION);
    EXPECT_EQ(call.data().code, 42u);
    EXPECT_EQ(call.text(), "hello");
    EXPECT_EQ(call.data().sender_pid, getpid());
    EXPECT_EQ(call.data().sender_euid, geteuid());
    server.write(Commands().freeBuffer(call).reply("world"));
    const Return reply = client.expectReply();
    EXPECT_EQ(reply.text(), "world");
}

}  // namespace
}  // namespace binderhost::tests
