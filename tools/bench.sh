#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs the benchmarks of an optimised build, then prints all rows that have a goal once more.
# Repetitions of a benchmark and of its anchor are interleaved, so that a slow minute of the machine
# slows both.
#
# usage: tools/bench.sh BUILD [--native] [GOOGLE-BENCHMARK-OPTION...]
#
# --native: not the calls over a kernel's binder device, which need an emulated machine.
set -euo pipefail
build=${1:?usage: tools/bench.sh BUILD [OPTION...]}
shift
native=false
if [[ ${1:-} == --native ]]; then
    native=true
    shift
fi
options=(--benchmark_repetitions=9 --benchmark_enable_random_interleaving=true
         --benchmark_min_time=0.05)
programs=(
    driver_bench
    fanout_bench
    focus_bench
    growth_bench
    peer_bench
    start_bench
)
printed=$(mktemp)
trap 'rm -f "$printed"' EXIT
for program in "${programs[@]}"; do
    printf '\n== %s\n' "$program"
    "$build/bin/$program" "${options[@]}" "$@" | tee -a "$printed"
done
if ! $native; then
    printf '\n== kernel_bench\n'
    tools/device.sh "$build" bench "$@" | tee -a "$printed"
fi
printf '\n== goals\n'
grep -m1 '^work ' "$printed" || true
grep -E ' (stretch|met|missed)$' "$printed" || printf 'no row with a goal was run\n'
