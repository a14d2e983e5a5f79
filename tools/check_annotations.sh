#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Compiles every source that is no test with Clang's thread-safety analysis as errors, syntax only.
# The standard library's mutexes carry the annotations in libc++ alone, so that one is used here, as
# on the device.
#
# usage: tools/check_annotations.sh BUILD   BUILD: a configured and built folder
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:?usage: tools/check_annotations.sh BUILD}

# Defines and include folders are those of the build; GCC's own flags are not wanted.
python3 - "$build/compile_commands.json" "$PWD" <<'P' | xargs -P "$(nproc)" -d '\n' -I{} bash -c '{}'
import json, shlex, sys
commands, root = sys.argv[1:]
seen = set()
for entry in json.load(open(commands)):
    file = entry["file"]
    relative = file[len(root) + 1:]
    if not file.startswith(root + "/") or relative in seen or "device_code" in entry["command"]:
        continue
    if relative.split("/")[0] not in ("services", "libs", "host", "sim") or "/tests/" in relative:
        continue
    seen.add(relative)
    words = shlex.split(entry["command"])
    keep = []
    for i, word in enumerate(words):
        if word.startswith(("-I", "-D", "-std=")):
            keep.append(word)
        elif word == "-isystem":
            keep += [word, words[i + 1]]
    print(shlex.join(["clang++", "-stdlib=libc++", "-D_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS",
                      "-fsyntax-only", "-Wthread-safety", "-Werror", *keep, file]))
P
