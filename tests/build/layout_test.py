"""Checks that the tree is laid out as the README and CONTRIBUTING say.

usage: layout_test.py ROOT

A room of the tool includes only rooms that stand before it. A file has at most 450 lines, a folder
at most 25 files: what grows beyond has a seam to be found.
"""
import pathlib
import re
import sys

# Each room with what it must not include of those before it.
ROOMS = [
    ("tools/audio", []),
    ("tools/sthal/facts", []),
    ("tools/sthal/findings", []),
    ("tools/sthal/output", []),
    ("tools/sthal/phone", ["tools/sthal/findings", "tools/sthal/output"]),
    ("tools/sthal/script", []),
    ("tools/sthal/commands", []),
]
# What a whole part of the tree must not include.
PARTS = [
    ("audio", ["tools/", "tests/", "host/"]),
    ("host", ["tools/", "tests/", "audio/hal/aidl/soundtrigger/(?!zyl/zyl_wire.h)"]),
    ("tools", ["tests/"]),
    ("tools/audio", ["audio/hal/", "host/(?!common/|virtual_dsp/correlator/)"]),
]
CODE = {".h", ".cpp", ".py", ".html", ".sthal"}
MOST_LINES = 450
MOST_FILES = 25
INCLUDE = re.compile(r'^#include "([^"]+)"', re.MULTILINE)


def includes(folder):
    for file in sorted(folder.rglob("*")):
        if file.suffix in (".h", ".cpp"):
            for included in INCLUDE.findall(file.read_text(encoding="utf-8")):
                yield file, included


def wrong_includes(root):
    for place, (room, barred) in enumerate(ROOMS):
        barred = barred + [later for later, _ in ROOMS[place + 1:]]
        for file, included in includes(root / room):
            if any(included.startswith(other + "/") for other in barred):
                yield f"{file}: {included} belongs to a room that {room} does not know"
    for part, barred in PARTS:
        for file, included in includes(root / part):
            if any(re.match(pattern, included) for pattern in barred):
                yield f"{file}: {included} is not for {part}"


def too_large(root):
    for top in ("audio", "host", "tools", "tests", "examples", "benchmarks", "fuzz", "scenarios"):
        for folder in [root / top, *sorted((root / top).rglob("*/"))]:
            files = [file for file in folder.iterdir() if file.is_file()]
            if len(files) > MOST_FILES:
                yield f"{folder}: {len(files)} files; at most {MOST_FILES} are easy to find one in"
            for file in files:
                lines = file.read_bytes().count(b"\n") if file.suffix in CODE else 0
                if lines > MOST_LINES:
                    yield f"{file}: {lines} lines; find the seam, {MOST_LINES} are enough"


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    found = list(wrong_includes(root)) + list(too_large(root))
    assert sum(1 for _ in includes(root / "tools")) > 100, "the tool's includes are not found"
    print("\n".join(found))
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
