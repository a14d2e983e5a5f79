#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Proves the layering: device code names platform headers only, the host platform knows nothing of
# the daemon, and no build on the host sees the platform's own binder headers.
#
# usage: tools/check_layers.sh [BUILD]   BUILD: a build folder whose dependencies are checked too
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

failed=0
# forbid WHAT PATTERN PATH...: no include or AIDL import in PATH may match PATTERN.
forbid() {
    local what=$1 pattern=$2 found
    shift 2
    found=$(git ls-files -z -- "$@" |
        xargs -0r grep -nHE "^[[:space:]]*#[[:space:]]*include[[:space:]]*[<\"]($pattern)" || true)
    if [[ -n $found ]]; then
        printf 'layers: %s:\n%s\n' "$what" "$found" >&2
        failed=1
    fi
}

# Tests and fuzzers of device code run on the host only and may use all of it.
device=('services/*.h' 'services/*.cpp' 'libs/*.h' 'libs/*.cpp'
        ':!services/*/tests/*' ':!libs/*/tests/*' ':!services/*/fuzz/*')

forbid "device code includes a header of the host platform" \
    '(\.\./)*host/|driver/|binder/HostDriver|properties/' "${device[@]}"
forbid "device code includes the simulation" '(\.\./)*sim/' "${device[@]}"
forbid "the host platform includes device code" \
    '(\.\./)*(services|libs|sim)/|velmar/|osutils/|android/app/|android/hardware/display/' \
    'host/*.h' 'host/*.cpp' ':!host/process/*'
# The host's form of one of the device's libraries: that library it knows, and no other.
forbid "the host's process library includes other device code" \
    '(\.\./)*(services|libs|sim)/|velmar/|android/app/|android/hardware/display/' 'host/process/*'

if (($# > 0)); then
    # The device check alone is compiled against the platform's own binder headers.
    found=$(ninja -C "$1" -t deps |
        awk '/^[^ ]/ { object = $1 }
             /\/usr\/include\/android\/binder\// && object !~ /device_code/ { print object $1 }' |
        sort -u | head -n 20)
    if [[ -n $found ]]; then
        printf 'layers: a host build sees the binder headers of the platform:\n%s\n' "$found" >&2
        failed=1
    fi
fi
exit "$failed"
