#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs test programs on a binder device, inside the emulated machine, one after the other: a device
# has one context manager.
#
# usage: vm_tests.sh FOLDER DEVICE NAME SECONDS [NAME SECONDS]...
#
# Cases for the embedded driver are left out: the kernel is what is tested here.
#
# Prints a line for each; logs go to /results/NAME.log. Exit status 1 when one failed.
folder=$1
export TEST_BINDER_DEVICE="$2"
shift 2
failed=0
while [ $# -gt 0 ]; do
    name=$1 seconds=$2
    shift 2
    log=/results/$name.log
    start=$(cut -d. -f1 /proc/uptime)
    if timeout -s KILL "$seconds" "$folder/$name" --gtest_filter='-*/embedded' >"$log" 2>&1; then
        verdict=ok
    else
        verdict="FAILED (status $?)"
        failed=1
    fi
    took=$(($(cut -d. -f1 /proc/uptime) - start))
    counts=$(sed -n 's/^\[  \(PASSED\|SKIPPED\)[ ]*\] \([0-9]*\) tests\{0,1\}[,.].*/\2 \1/p' "$log" |
        tr 'A-Z\n' 'a-z ')
    echo "$name: $verdict, ${counts:-none passed }in $took s"
    [ "$verdict" = ok ] ||
        grep -E -B 12 '^\[  FAILED  \] [A-Za-z.]+ \(' "$log" | cut -c1-400 | tail -n 60
done
exit "$failed"
