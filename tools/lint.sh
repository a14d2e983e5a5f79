#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Everything that is checked without running the code.
#
# usage: tools/lint.sh BUILD   BUILD: a configured and built folder (its generated headers are used)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:?usage: tools/lint.sh BUILD}

step() { printf 'lint: %s\n' "$1"; }

step "format"
git ls-files -z '*.cpp' '*.h' | xargs -0r clang-format --dry-run --Werror

step "shell scripts"
shellcheck -x dev .ci/run tools/*.sh

step "links in documents"
tools/check_links.sh

step "layers"
tools/check_layers.sh "$build"

step "lock annotations"
tools/check_annotations.sh "$build"

step "clang-tidy"
# Each source as the host compiles it; the device check compiles some once more.
commands=$(mktemp -d)
trap 'rm -rf "$commands"' EXIT
python3 - "$build" >"$commands/compile_commands.json" <<'PYTHON'
import json, sys
with open(sys.argv[1] + "/compile_commands.json", encoding="utf-8") as file:
    commands = [each for each in json.load(file) if "device_code" not in each["command"]]
json.dump(commands, sys.stdout)
PYTHON
mapfile -t files < <(git ls-files 'services/*.cpp' 'libs/*.cpp' 'host/*.cpp' 'sim/*.cpp' |
                     grep -vE '/(tests|fuzz)/')
printf '%s\n' "${files[@]}" |
    xargs -P "$(nproc)" -n 4 clang-tidy --quiet --warnings-as-errors='*' -p "$commands" 2>/dev/null
