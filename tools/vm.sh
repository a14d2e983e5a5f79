#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Boots a kernel that has binder, in an emulated machine, and runs a command there.
#
#     tools/vm.sh --kernel TREE --deadline SECONDS [--console FILE] [--results FOLDER]
#                 [--interactive] [--count-instructions] [--processors N] [--kvm]
#                 [--argument WORD]... PROGRAM... -- COMMAND
#
# TREE is an unpacked kernel package. Each PROGRAM (a file, or a folder of them) is found in the
# guest at its path here, with the libraries it needs. There are /dev/binder, /dev/hwbinder and
# /dev/vndbinder, which everybody may open, busybox in /bin, and the kernel's debug files.
#
# COMMAND is a line for the guest's shell, which runs as root. Its output is this script's, and so
# is its exit status; 124 when the deadline has passed, 125 when the machine did not come up or
# ended by itself. What it leaves in /results is put into FOLDER, also when it fails, with the
# kernel's log. All that the machine printed is in FILE.
#
# --interactive: the command has this terminal, and nothing is written to FILE.
# --count-instructions: one processor whose clock counts instructions, one a nanosecond. The
# processor is emulated unless --kvm is given.
# --processors: 1 unless given; two emulated ones take more than twice the time of one for the same
# tests, since each waking of the other is a signal between threads of this machine.
# --argument: one more word for the kernel's command line.
set -euo pipefail
umask 022

fail() {
    echo "vm: $1" >&2
    exit 2
}

kernel='' deadline='' console='' results='' interactive=false counting=false kvm=false processors=1
arguments='console=ttyS0 quiet loglevel=1 panic=-1 mitigations=off'
programs=()
while (($# > 0)); do
    case $1 in
        --kernel) kernel=$2; shift 2 ;;
        --deadline) deadline=$2; shift 2 ;;
        --console) console=$2; shift 2 ;;
        --results) results=$2; shift 2 ;;
        --interactive) interactive=true; shift ;;
        --count-instructions) counting=true; shift ;;
        --processors) processors=$2; shift 2 ;;
        --kvm) kvm=true; shift ;;
        --argument) arguments+=" $2"; shift 2 ;;
        --) shift; break ;;
        --*) fail "unknown option '$1'" ;;
        *) programs+=("$1"); shift ;;
    esac
done
(($# == 1)) || fail "one command is wanted behind --"
command=$1
[[ -n $kernel && -n $deadline ]] || fail "--kernel and --deadline are wanted"

if $kvm && [[ ! -r /dev/kvm || ! -w /dev/kvm ]]; then
    [[ -e /dev/kvm ]] || fail "this machine has no /dev/kvm: leave out --kvm"
    fail "/dev/kvm may not be opened by $(id -un): leave out --kvm, or join its group"
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
mkdir -p "$root"/{bin,dev,proc,sys,tmp,etc,lib64,usr,results}
ln -s /bin "$root/usr/bin"
chmod 1777 "$root/tmp"
console=${console:-$work/console}

add_program() {
    local path
    path=$(realpath "$1")
    mkdir -p "$root$(dirname "$path")"
    if [[ $(head -c 4 "$path" | tr -d '\0' | tail -c 3) == ELF ]]; then
        strip -o "$root$path" "$path"
        needed_libraries "$path" >>"$work/libraries"
    else
        cp "$path" "$root$path"
    fi
}

needed_libraries() {
    ldd "$1" 2>/dev/null | awk '$2 == "=>" && $3 ~ /^\// { print $3 } $1 ~ /^\// { print $1 }'
}

write_init() {
    printf 'root:x:0:0:root:/:/bin/sh\nnobody:x:65534:65534:nobody:/:/bin/sh\n' >"$root/etc/passwd"
    {
        ! $interactive || stty size | awk '{ print "stty rows", $1, "columns", $2 }'
        printf '%s\n' "$command"
    } >"$root/command"
    cat >"$root/init" <<'INIT'
#!/bin/busybox sh
export PATH=/bin HOME=/tmp TERM=${TERM:-dumb}
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t debugfs debug /sys/kernel/debug
mount -t devtmpfs dev /dev
mkdir -p /dev/pts /dev/shm
mount -t devpts devpts /dev/pts
mount -t tmpfs tmpfs /dev/shm
chmod 1777 /dev/shm
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
status=$?
dmesg >/results/kernel.log
echo "$status" >/results/status
stty -F /dev/ttyS1 raw
tar -c -C /results . >/dev/ttyS1
echo "vm: exit $status"
poweroff -f
INIT
    chmod +x "$root/init"
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
    write_init
    # Not compressed: the emulated processor would take longer to unpack it than to read it.
    (cd "$root" && find . | cpio -o -H newc --quiet) >"$work/image"
    rm -rf "$root"
}

# The machine ends with the deadline, and with this script however that ends.
boot() {
    local options=(-m 3072 -nodefaults -nographic -no-reboot
                   -chardev "stdio,id=terminal,signal=off" -serial chardev:terminal
                   -serial "file:$work/results.tar")
    if $kvm; then options+=(-accel kvm -cpu host); else options+=(-accel tcg -cpu max); fi
    options+=(-smp "$processors")
    ! $counting || options+=(-icount "shift=0,sleep=off")
    ! $interactive || arguments+=" vm.interactive"
    setpriv --pdeathsig TERM timeout --foreground --kill-after 5 "$deadline" \
        setpriv --pdeathsig KILL qemu-system-x86_64 "${options[@]}" \
        -kernel "$(echo "$kernel"/boot/vmlinuz-*)" -initrd "$work/image" -append "$arguments"
}

# The command's part of what the machine prints.
command_output() {
    sed -u -n '/vm: up$/,/^vm: exit [0-9]*$/ { /vm: up$/d; /^vm: exit [0-9]*$/d; p }'
}

take_results() {
    [[ -n $results && -s $work/results.tar ]] || return 0
    mkdir -p "$results"
    tar -x --no-same-owner -C "$results" -f "$work/results.tar" 2>/dev/null ||
        echo "vm: the results are incomplete" >&2
}

# The terminal is raw while the machine has it, and would stay so if that were killed.
boot_on_terminal() {
    local terminal status=0
    terminal=$(stty -g)
    boot || status=$?
    stty "$terminal"
    return "$status"
}

build_image
status=0
if $interactive; then
    boot_on_terminal || status=$?
else
    boot </dev/null 2>&1 | sed -u 's|\r$||' | tee "$console" | command_output || status=$?
fi
take_results
result=$(tar -x -O -f "$work/results.tar" ./status 2>/dev/null) || true
[[ -z $result ]] || exit "$result"
came_up=true
$interactive || grep -q 'vm: up' "$console" || came_up=false
if ((status == 124 || status == 137)); then
    message="ended after $deadline s"
    $came_up || message+=" in which the machine did not come up"
    status=124
else
    $interactive || tail -n 20 "$console" >&2
    message="the machine ended with status $status before the command did"
    status=125
fi
echo "vm: $message" >&2
$came_up || ! $kvm || echo "vm: /dev/kvm does not seem to work here: leave out --kvm" >&2
exit "$status"
