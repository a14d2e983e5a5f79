# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034
# The Debian packages that this project is built, tested and checked with. Sourced by ./dev.

# Everything that ./dev run and ./dev test need.
BUILD_PACKAGES=(
    g++ cmake ninja-build pkg-config ccache
    # The platform's libraries and its interface compiler.
    android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev aidl
    # The platform's own binder headers: device code is compiled against them as well.
    android-platform-frameworks-native-headers
    libjsoncpp-dev libprotobuf-dev protobuf-compiler
    # The prompt of the simulated headset: line editing, under a BSD licence.
    libedit-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    git procps python3 util-linux
)

# What the sanitizer builds and ./dev lint need on top.
CHECK_PACKAGES=(
    clang clang-format clang-tidy libclang-rt-14-dev libc++-14-dev libc++abi-14-dev shellcheck
)

# What ./dev vm needs on top.
VM_PACKAGES=(qemu-system-x86 busybox-static cpio)

# What ./dev bench sets beside the embedded driver. Without them those rows are left out.
PEER_PACKAGES=(libsystemd-dev dbus-daemon dbus-broker)

# missing_packages NAME...: prints those that are not installed.
missing_packages() {
    local package
    for package in "$@"; do
        if [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            echo "$package"
        fi
    done
}

# install_packages NAME...: installs what is missing, and says so. Touches no network when nothing
# is missing.
install_packages() {
    local missing sudo=()
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]})) || return 0
    if ! command -v apt-get >/dev/null; then
        echo "dev: these packages are missing, and this machine has no apt-get: ${missing[*]}" >&2
        return 1
    fi
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            echo "dev: as root, install these packages first: ${missing[*]}" >&2
            return 1
        fi
        sudo=(sudo)
    fi
    echo "dev: installing ${#missing[@]} Debian packages: ${missing[*]}"
    local log
    log=$(mktemp)
    if ! { "${sudo[@]}" apt-get update -q &&
           "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
               apt-get install -q -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 30 "$log" >&2
        echo "dev: the packages could not be installed (whole log: $log)" >&2
        return 1
    fi
    rm -f "$log"
}
