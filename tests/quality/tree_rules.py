#!/usr/bin/env python3
"""Checks the text of all files: limited length, no marks for unfinished work, no path of the
machine that it was written on, no blanks at line ends."""
import re
import sys

import tree

LIBRARY_BOUND = 550  # lines
OTHER_BOUND = 1000   # tests may be longer: they are lists of cases
LONGER = {
    "tests/abi/vncommon.abi": "written by abidw",
}
DRAWN = ".svg"  # written by programs
BINARY = (".png", ".bin")
CORPUS = "fuzz/"  # the inputs may be any bytes
PATCH = ".patch"  # quotes upstream text
LEFT_TO_DO = re.compile("TO" "DO|FIX" "ME|HA" "CK:")


def complaints(path):
    text = (tree.SOURCE / path).read_bytes()
    lines = text.decode(errors="replace").split("\n")
    bound = LIBRARY_BOUND if path.startswith(tree.LIBRARY) else OTHER_BOUND
    if len(lines) > bound and path not in LONGER and not path.endswith(DRAWN):
        yield f"{path}: {len(lines)} lines; split it, or give the reason in LONGER"
    if text and not text.endswith(b"\n"):
        yield f"{path}: no newline at the end"
    for number, line in enumerate(lines, 1):
        if LEFT_TO_DO.search(line):
            yield f"{path}:{number}: finish it: {line.strip()}"
        if line != line.rstrip(" \t\r") and not path.endswith(PATCH):
            yield f"{path}:{number}: blanks at the end"
        if str(tree.SOURCE) + "/" in line:
            yield f"{path}:{number}: a path of this machine"


def main():
    paths = [path for path in tree.tracked_files()
             if not path.endswith(BINARY)
             and not (path.startswith(CORPUS) and not path.endswith((".cpp", ".h", ".py", ".txt")))]
    found = [complaint for path in paths for complaint in complaints(path)]
    print("\n".join(found + [f"{len(paths)} files"]))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
