#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs tests on a binder device, inside the emulated machine, one after the other: a device has one
# context manager.
#
# usage: vm_tests.sh BUILD DEVICE NAME SECONDS [NAME SECONDS]...
#
# scenario_X plays scenarios/X.scenario; other names are those of test programs. Cases for the
# embedded driver are left out: the kernel is what is tested here.
#
# A test is killed after twice its SECONDS: machines that do other work beside are slow.
# Prints a line for each; logs go to /results/NAME.log. Exit status 1 when one failed.
build=$1
export TEST_BINDER_DEVICE="$2"
shift 2
failed=0

run_test() {
    case $1 in
        scenario_*)
            BINDER_DRIVER=$TEST_BINDER_DEVICE \
                timeout -s KILL "$((2 * $2))" "$build/bin/headset" run "${1#scenario_}"
            ;;
        *) timeout -s KILL "$((2 * $2))" "$build/tests/$1" --gtest_filter='-*/embedded' ;;
    esac
}

while [ $# -gt 0 ]; do
    name=$1 seconds=$2
    shift 2
    log=/results/$name.log
    start=$(cut -d. -f1 /proc/uptime)
    if run_test "$name" "$seconds" >"$log" 2>&1; then
        verdict=ok
    else
        verdict="FAILED (status $?)"
        failed=1
    fi
    took=$(($(cut -d. -f1 /proc/uptime) - start))
    counts=$(sed -n 's/^\[  \(PASSED\|SKIPPED\)[ ]*\] \([0-9]*\) tests\{0,1\}[,.].*/\2 \1/p' "$log" |
        tr 'A-Z\n' 'a-z ')
    case $name in
        scenario_*) counts='' ;;
        *) counts="${counts:-none passed }" ;;
    esac
    echo "$name: $verdict, ${counts}in $took s"
    [ "$verdict" = ok ] && continue
    grep -E -A 8 ': Failure$' "$log" | cut -c1-400 | head -n 40
    grep -E -B 12 '^\[  FAILED  \] [A-Za-z.]+ \(|^FAILED  ' "$log" | cut -c1-400 | tail -n 60
done
exit "$failed"
