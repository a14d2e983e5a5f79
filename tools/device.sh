#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs what was built on a kernel with binder, in an emulated machine (tools/vm.sh).
#
# usage: tools/device.sh BUILD [--kvm] test [NAME...] | run | shell | bench [OPTION...]
#
# The kernel is Debian's, downloaded once into build/vm and never installed. There are also the
# last console logs and results. VM_DEADLINE: seconds that the machine may run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly kFolder=build/vm
readonly kDevice=/dev/binder

fail() {
    echo "vm: $1" >&2
    exit "${2:-1}"
}

# fetch_kernel: leaves an unpacked kernel package in build/vm/kernel.
fetch_kernel() {
    [[ ! -d $kFolder/kernel ]] || return 0
    local package download=$kFolder/download
    rm -rf "$download"
    mkdir -p "$download"
    package=$(apt-cache depends --important linux-image-amd64 2>/dev/null |
              awk '$1 == "Depends:" { print $2; exit }')
    [[ -n $package ]] ||
        fail "apt knows no linux-image-amd64: apt-get update, then again (or unpack a kernel \
package that has binder_linux.ko into $kFolder/kernel)"
    echo "vm: downloading $package into $kFolder (once; it is unpacked there, not installed)" >&2
    if ! (cd "$download" && apt-get download -q -o APT::Sandbox::User=root "$package") \
            >"$kFolder/download.log" 2>&1; then
        tail -n 5 "$kFolder/download.log" >&2
        fail "the kernel could not be downloaded (whole log: $kFolder/download.log)"
    fi
    dpkg-deb -x "$download"/*.deb "$download/tree"
    rm -rf "$download"/tree/usr
    mv "$download/tree" "$kFolder/kernel"
    rm -rf "$download"
}

# boot NAME DEADLINE PROGRAM... -- COMMAND: with the console's log and the results named.
boot() {
    local name=$1 deadline=${VM_DEADLINE:-$2} status=0 start=$SECONDS
    shift 2
    rm -rf "${kFolder:?}/$name"
    mkdir -p "$kFolder/$name"
    setpriv --pdeathsig TERM tools/vm.sh --kernel "$kFolder/kernel" --deadline "$deadline" "${machine[@]}" \
        --console "$kFolder/$name/console.log" --results "$kFolder/$name" "$@" || status=$?
    if ((status != 0)); then
        echo "vm: exit status $status after $((SECONDS - start)) s, see $kFolder/$name" >&2
    fi
    return "$status"
}

# device_tests [NAME...]: names and seconds of those listed that are not long, or of the named.
device_tests() {
    local name seconds mark
    while read -r name seconds mark; do
        [[ $name != '#' ]] || continue
        if (($# == 0)); then
            [[ $mark != long ]] || continue
        else
            [[ " $* " == *" $name "* ]] || continue
        fi
        echo "$name $seconds"
    done <tests/device.list
}

# boot_tests NAME 'TEST SECONDS'...: in a machine of their own.
boot_tests() {
    local each name=$1
    local programs=("$build/bin" tools/vm_tests.sh "$build"/tests/servicemanager_test_service
                    "$build"/tests/daemon_test_{listener,platform} scenarios)
    shift
    for each in "$@"; do
        [[ $each == scenario_* ]] || programs+=("$build/tests/${each% *}")
    done
    boot "$name" 2400 "${programs[@]}" -- \
        "cd $PWD && tools/vm_tests.sh $build $kDevice $*"
}

# boot_selinux: the runtime's tests where the kernel has security contexts to tell, and two
# processors.
boot_selinux() {
    local tests=()
    local machine=("${machine[@]}" --argument security=selinux --argument selinux=1 --processors 2)
    mapfile -t tests < <(device_tests binder_process_test)
    boot_tests test-selinux "${tests[@]}" | sed 's/^/with SELinux and two processors: /'
}

# boot_tests_shared ALL 'TEST SECONDS'...: in two machines side by side, with a fair share each;
# when ALL is 1, also what wants a machine of another kind.
boot_tests_shared() {
    local all=$1 each status=0 first=() second=() left=0
    shift
    for each in "$@"; do
        if ((left > 0)); then
            second+=("$each")
            left=$((left - ${each#* }))
        else
            first+=("$each")
            left=$((left + ${each#* }))
        fi
    done
    boot_tests test-first "${first[@]}" &
    local other=$!
    # An interrupt does not reach what runs beside.
    trap 'kill "$other" 2>/dev/null || true' EXIT
    ((${#second[@]} == 0)) || boot_tests test-second "${second[@]}" || status=$?
    ((!all)) || boot_selinux || status=$?
    wait "$other" || status=$?
    trap - EXIT
    return "$status"
}

run_tests() {
    local tests=()
    mapfile -t tests < <(device_tests "$@")
    ((${#tests[@]} && (${#tests[@]} == $# || $# == 0))) ||
        fail "no such test in tests/device.list: $*" 2
    boot_tests_shared "$(($# == 0))" "${tests[@]}"
}

run_session() {
    boot run 120 "$build/bin" scenarios -- \
        "cd $PWD && BINDER_DRIVER=$kDevice $build/bin/headset run a-day-on-the-headset"
}

open_shell() {
    [[ -t 0 ]] || fail "'shell' wants a terminal" 2
    machine+=(--interactive)
    boot shell 7200 "$build/bin" -- "export BINDER_DRIVER=$kDevice HOST_PROPERTIES=/tmp/properties
cat <<'WORDS'
A kernel with $kDevice. headset is a headset with a prompt, headset --shell opens a shell in one.
exit leaves.
WORDS
PATH=$build/bin:/bin exec sh -i"
}

run_benchmarks() {
    machine+=(--count-instructions)
    echo "In an emulated machine whose clock counts instructions: 1 us is 1000 of them."
    boot bench 300 "$build/bin/kernel_bench" -- \
        "BINDER_DRIVER=$kDevice $build/bin/kernel_bench --benchmark_min_time=0.01 \
--benchmark_repetitions=3 --benchmark_enable_random_interleaving=true $*"
}

(($# >= 2)) || fail "usage: tools/device.sh BUILD [--kvm] test|run|shell|bench" 2
build=$(realpath "$1")
shift
machine=()
if [[ $1 == --kvm ]]; then
    machine+=(--kvm)
    shift
fi
verb=${1:-}
shift || true
fetch_kernel
case $verb in
    test) run_tests "$@" ;;
    run) run_session ;;
    shell) open_shell ;;
    bench) run_benchmarks "$@" ;;
    *) fail "what is '$verb'? test, run, shell or bench" 2 ;;
esac
