// SPDX-License-Identifier: Apache-2.0
#include "DriverFixture.h"

#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "TestDevice.h"

namespace binderhost::tests {
namespace {

constexpr const char* kDebugFiles = "/sys/kernel/debug";

/** What the module counts, of all devices together, under a hub's names. */
Stats kernelStats() {
    const std::string file = std::string(kDebugFiles) + "/binder/stats";
    if (access(file.c_str(), R_OK) != 0) {
        (void)mount("debugfs", kDebugFiles, "debugfs", 0, nullptr);
    }
    std::ifstream lines(file);
    if (!lines) throw std::runtime_error(file + " is wanted, to see what the kernel holds");
    struct Figure {
        const char* start;
        const char* name;
    };
    static constexpr Figure kFigures[] = {
            {"proc: active ", "processes"},    {"thread: active ", "threads"},
            {"node: active ", "nodes"},        {"ref: active ", "handles"},
            {"death: active ", "death_links"}, {"  ready threads ", "idle"},
            {"  buffers: ", "buffers"}};
    Stats out;
    for (const Figure& figure : kFigures)
        out[figure.name] = 0;
    for (std::string line; std::getline(lines, line);) {
        for (const Figure& figure : kFigures) {
            if (!line.starts_with(figure.start)) continue;
            out[figure.name] += std::stoull(line.substr(std::string(figure.start).size()));
        }
    }
    return out;
}

/** Or the driver does not tell. */
bool agrees(const Stats& stats, const std::string& name, uint64_t value) {
    const auto at = stats.find(name);
    return at == stats.end() || at->second == value;
}

}  // namespace

DriverFixture::DriverFixture() {
    if (onKernel()) {
        awaitStat("processes", 0);
    } else {
        mHub = std::make_unique<TestHub>();
    }
}

DriverFixture::~DriverFixture() {
    for (const char* name : {"processes", "threads", "idle", "nodes", "handles", "buffers",
                             "buffer_bytes", "death_links", "descriptors", "queued"}) {
        awaitStat(name, 0);
    }
}

std::string DriverFixture::path() const {
    return onKernel() ? testDevice() : mHub->path();
}

Stats DriverFixture::stats() const {
    return onKernel() ? kernelStats() : mHub->stats();
}

void DriverFixture::expectStat(const std::string& name, uint64_t value) const {
    const Stats now = stats();
    EXPECT_TRUE(agrees(now, name, value)) << name << " is " << now.at(name) << ", not " << value;
}

void DriverFixture::awaitStat(const std::string& name, uint64_t value) const {
    const Stats last = lookUntil([this] { return stats(); },
                                 [&](const Stats& now) { return agrees(now, name, value); });
    EXPECT_TRUE(agrees(last, name, value))
            << name << " stays " << last.at(name) << ", not " << value;
}

std::vector<DriverKind> driverKinds() {
    if (testDevice().empty()) return {DriverKind::Embedded};
    return {DriverKind::Embedded, DriverKind::Kernel};
}

std::string nameOfDriver(const ::testing::TestParamInfo<DriverKind>& info) {
    return info.param == DriverKind::Kernel ? "kernel" : "embedded";
}

}  // namespace binderhost::tests
