#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Proves that documents lead somewhere: every link of a tracked *.md file that is no URL names a
# tracked file, or a folder that holds some, and every anchor a heading of the file it points into.
# Prints FILE:LINE of each that does not. Code, fenced or in backquotes, holds no links.
#
# usage: tools/check_links.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

python3 - <<'PYTHON'
import os, re, subprocess, sys, urllib.parse

listed = subprocess.run(["git", "ls-files", "-z"], check=True, capture_output=True).stdout
tracked = set(listed.decode().split("\0")) - {""}
folders = {""}
for path in tracked:
    while path := os.path.dirname(path):
        folders.add(path)

FENCE = re.compile(r"^ {0,3}(`{3,}|~{3,})")
INLINE = re.compile(r"\]\(\s*(<[^>]*>|[^\s()]*(?:\([^\s()]*\)[^\s()]*)*)(?:\s+[^)]*)?\)")
DEFINITION = re.compile(r"^ {0,3}\[[^\]]+\]:\s*(<[^>]*>|\S+)")
HEADING = re.compile(r"^ {0,3}#{1,6}\s+(.*?)\s*#*\s*$")

def prose(path):
    """The lines outside code, with their numbers; code in backquotes is blanked."""
    fence = ""
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            line = line.rstrip("\n")
            mark = FENCE.match(line)
            if fence:
                if mark and mark[1].startswith(fence) and line.strip() == mark[1]:
                    fence = ""
            elif mark:
                fence = mark[1]
            else:
                yield number, line

def without_code(line):
    return re.sub(r"(`+)(?!`).*?(?<!`)\1(?!`)", "", line)

def anchors(path):
    """The names that a heading gets where such documents are shown."""
    found, seen = set(), {}
    for _, line in prose(path):
        if not (heading := HEADING.match(line)):
            continue
        text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading[1])
        slug = re.sub(r"[^\w\- ]", "", text.lower()).replace(" ", "-")
        count = seen.get(slug, 0)
        seen[slug] = count + 1
        found.add(f"{slug}-{count}" if count else slug)
    return found

def mistake(source, target):
    """What is wrong with a link, or nothing."""
    if re.match(r"[a-zA-Z][a-zA-Z0-9+.-]*:", target):
        return ""
    path, _, anchor = urllib.parse.unquote(target).partition("#")
    if path.startswith("/"):
        return "not a relative path"
    place = os.path.normpath(os.path.join(os.path.dirname(source), path)) if path else source
    if place == ".":
        place = ""
    if place not in tracked and place not in folders:
        return "no tracked file"
    if anchor and (not place.endswith(".md") or anchor not in anchors(place)):
        return "no such heading"
    return ""

links, failed = 0, False
for source in sorted(path for path in tracked if path.endswith(".md")):
    if not os.path.exists(source):
        continue
    for number, line in prose(source):
        line = without_code(line)
        targets = INLINE.findall(line) + DEFINITION.findall(line)
        for target in (each.strip("<>") for each in targets):
            links += 1
            if problem := mistake(source, target):
                print(f"{source}:{number}: {target}: {problem}", file=sys.stderr)
                failed = True
if not links:
    print("links: found none, which cannot be", file=sys.stderr)
    failed = True
sys.exit(failed)
PYTHON
