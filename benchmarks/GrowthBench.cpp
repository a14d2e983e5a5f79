// SPDX-License-Identifier: Apache-2.0
//
// How lookups at the service manager grow with the number of registered services. Everything real,
// on one processor: at each size a hub, a service manager, a process that owns the services and
// one that looks them up, over the embedded driver. The growth of decisions with processes and of
// notifications with listeners is seen in focus_bench and fanout_bench.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>

#include "LookupStack.h"
#include "RatioTable.h"

namespace {

/** Lookups of one iteration: the request to the client costs nothing of each. */
constexpr int kLookups = 100;

}  // namespace

int main(int argc, char** argv) {
    pinToOneProcessor();
    char folder[] = "/tmp/growth_bench.XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        perror("mkdtemp");
        return 1;
    }
    // The last is near what the service manager takes.
    const std::vector<int64_t> sizes = {10, 100, 1000, 4000};
    std::map<int64_t, std::unique_ptr<LookupStack>> stacks;
    for (const int64_t size : sizes)
        stacks[size] = std::make_unique<LookupStack>(folder, static_cast<int>(size));

    auto* lookup = benchmark::RegisterBenchmark("lookup", [&](benchmark::State& state) {
        const LookupStack& stack = *stacks[state.range(0)];
        for (auto iteration : state)
            state.SetIterationTime(stack.lookUp(kLookups));
    });
    lookup->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(20);
    for (const int64_t size : sizes)
        lookup->Arg(size);
    const int status = runPaired(argc, argv, /*pairs=*/{},
                                 {{.name = "lookup",
                                   .expected = Growth::Expected::Logarithmic,
                                   .sizes = sizes,
                                   .suffix = "/iterations:20/manual_time"}});
    stacks.clear();
    std::filesystem::remove_all(folder);
    return status;
}
