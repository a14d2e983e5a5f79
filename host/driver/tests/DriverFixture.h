// SPDX-License-Identifier: Apache-2.0
//
// DriverFixture: the same test on the embedded driver and on the kernel's.
//
//      class CallTest : public DriverFixture { ... };
//      TEST_P(CallTest, ...) { ... }
//      ON_EACH_DRIVER(CallTest);
//
// Embedded, each test has a hub of its own. The kernel's runs when TEST_BINDER_DEVICE names a
// device, which the test has for itself; its figures stand in debugfs, so the test is root's.
//
// Only here is known which driver it is: a figure that the kernel does not tell is not looked at.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "PeerClient.h"
#include "TestHub.h"

namespace binderhost::tests {

enum class DriverKind { Embedded, Kernel };

class DriverFixture : public ::testing::TestWithParam<DriverKind> {
protected:
    DriverFixture();
    /** Nothing may be left of the test's processes. */
    ~DriverFixture() override;

    [[nodiscard]] bool onKernel() const { return GetParam() == DriverKind::Kernel; }
    [[nodiscard]] std::string path() const;
    /** The hub of this test; of the embedded driver only. */
    [[nodiscard]] TestHub& hub() { return *mHub; }

    /** processes, threads, idle, nodes, handles, buffers, death_links; more of a hub. */
    [[nodiscard]] Stats stats() const;
    void expectStat(const std::string& name, uint64_t value) const;
    void awaitStat(const std::string& name, uint64_t value) const;

private:
    std::unique_ptr<TestHub> mHub;
};

/** With a context manager and a client of its. */
class PairFixture : public DriverFixture {
protected:
    void SetUp() override { mServer.publish(); }
    void expectWorking() {
        mClient.write(Commands().call(0, 1, "still here?"));
        EXPECT_EQ(mServer.serve("yes").text(), "still here?");
        const Return reply = mClient.expectReply();
        EXPECT_EQ(reply.text(), "yes");
        mClient.write(Commands().freeBuffer(reply));
    }

    PeerClient mServer{path()};
    PeerClient mClient{path()};
};

/** Those that this run can use. */
[[nodiscard]] std::vector<DriverKind> driverKinds();
[[nodiscard]] std::string nameOfDriver(const ::testing::TestParamInfo<DriverKind>& info);

}  // namespace binderhost::tests

#define ON_EACH_DRIVER(suite)                                                                  \
    INSTANTIATE_TEST_SUITE_P(, suite, ::testing::ValuesIn(::binderhost::tests::driverKinds()), \
                             ::binderhost::tests::nameOfDriver)
