#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Boots a kernel that has binder, in an emulated machine, and runs a command there.
#
#     tools/vm.sh --kernel TREE --deadline SECONDS [--console FILE] [--interactive]
#                 [--count-instructions] PROGRAM... -- COMMAND
#
# TREE is an unpacked kernel package. Each PROGRAM (a file, or a folder of them) is found in the
# guest at its path here, with the libraries it needs; /dev/binder, /dev/hwbinder and
# /dev/vndbinder are there. COMMAND is a line for the guest's shell. Its output is this script's,
# and so is its exit status; 124 when the deadline has passed, 125 when the machine did not come up.
set -euo pipefail

fail() {
    echo "vm: $1" >&2
    exit 2
}

kernel='' deadline='' console='' interactive=false counting=false
programs=()
while (($# > 0)); do
    case $1 in
        --kernel) kernel=$2; shift 2 ;;
        --deadline) deadline=$2; shift 2 ;;
        --console) console=$2; shift 2 ;;
        --interactive) interactive=true; shift ;;
        --count-instructions) counting=true; shift ;;
        --) shift; break ;;
        --*) fail "unknown option '$1'" ;;
        *) programs+=("$1"); shift ;;
    esac
done
(($# == 1)) || fail "one command is wanted behind --"
command=$1
[[ -n $kernel && -n $deadline ]] || fail "--kernel and --deadline are wanted"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
mkdir -p "$root"/{bin,dev,proc,sys,tmp,etc,lib64}
chmod 1777 "$root/tmp"
console=${console:-$work/console}

add_program() {
    local path
    path=$(realpath "$1")
    mkdir -p "$root$(dirname "$path")"
    if [[ $(head -c 4 "$path" | tail -c 3) == ELF ]]; then
        strip -o "$root$path" "$path"
        needed_libraries "$path" >>"$work/libraries"
    else
        cp "$path" "$root$path"
    fi
}

needed_libraries() {
    ldd "$1" 2>/dev/null | awk '$2 == "=>" && $3 ~ /^\// { print $3 } $1 ~ /^\// { print $1 }'
}

build_image() {
    cp "$(command -v busybox)" "$root/bin/busybox"
    : >"$work/libraries"
    local each
    for each in "${programs[@]}"; do
        if [[ -d $each ]]; then
            find "$each" -type f | while read -r file; do add_program "$file"; done
        else
            add_program "$each"
        fi
    done
    sort -u "$work/libraries" | while read -r library; do
        mkdir -p "$root$(dirname "$library")"
        cp -L "$library" "$root$library"
    done
    find "$kernel/lib/modules" -name binder_linux.ko -exec cp {} "$root/binder_linux.ko" \;
    [[ -f $root/binder_linux.ko ]] || fail "no binder_linux.ko below $kernel"
    printf 'root:x:0:0:root:/:/bin/sh\nnobody:x:65534:65534:nobody:/:/bin/sh\n' >"$root/etc/passwd"
    printf '%s\n' "$command" >"$root/command"
    cat >"$root/init" <<'INIT'
#!/bin/busybox sh
export PATH=/bin HOME=/tmp TERM=${TERM:-dumb}
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
mkdir -p /dev/pts /dev/shm
mount -t devpts devpts /dev/pts
mount -t tmpfs tmpfs /dev/shm
ip link set lo up 2>/dev/null
insmod /binder_linux.ko devices=binder,hwbinder,vndbinder || echo "vm: no binder module" >&2
chmod 666 /dev/binder /dev/hwbinder /dev/vndbinder
ulimit -n 65536
echo 'vm: up'
if grep -q vm.interactive /proc/cmdline; then
    setsid cttyhack sh /command
else
    sh /command </dev/null
fi
echo "vm: exit $?"
poweroff -f
INIT
    chmod +x "$root/init"
    (cd "$root" && find . | cpio -o -H newc --quiet | gzip -1) >"$work/image.gz"
}

boot() {
    local options=(-accel tcg -cpu max -m 3072 -smp 2 -nodefaults -nographic -no-reboot -serial stdio)
    local arguments="console=ttyS0 quiet panic=-1 mitigations=off"
    ! $counting || options+=(-icount shift=0,sleep=off -smp 1)
    ! $interactive || arguments+=" vm.interactive"
    timeout --foreground "$deadline" qemu-system-x86_64 "${options[@]}" \
        -kernel "$(echo "$kernel"/boot/vmlinuz-*)" -initrd "$work/image.gz" -append "$arguments"
}

build_image
if $interactive; then
    boot
    exit
fi
status=0
boot </dev/null 2>&1 | tr -d '\r' | tee "$console" | awk '
    /^vm: exit [0-9]+$/ { up = 0 } up { print; fflush() } /vm: up$/ { up = 1 }' || status=$?
if ! grep -q 'vm: up$' "$console"; then
    tail -n 20 "$console" >&2
    echo "vm: the machine did not come up" >&2
    exit 125
fi
result=$(sed -n 's/^vm: exit \([0-9]*\)$/\1/p' "$console" | tail -n 1)
[[ -n $result ]] || { echo "vm: ended after $deadline s (status $status)" >&2; exit 124; }
exit "$result"
