#!/usr/bin/env python3
"""Checks that no function is longer than 60 lines, except those in LONGER."""
import json
import subprocess
import sys

import tree

BOUND = 60
LONGER = {}  # "path:function": "reason"


def functions():
    command = ["ctags", "--output-format=json", "--fields=+ne", "--languages=C,C++",
               "--kinds-C=f", "--kinds-C++=f", "-L", "-", "-f", "-"]
    tags = subprocess.run(command, cwd=tree.SOURCE, check=True, stdout=subprocess.PIPE, text=True,
                          input="\n".join(tree.code_files())).stdout
    for tag in map(json.loads, tags.splitlines()):
        if "end" in tag:
            yield f"{tag['path']}:{tag['name']}", tag["line"], tag["end"] - tag["line"] + 1


def main():
    count = longest = failures = 0
    for name, line, length in functions():
        count += 1
        longest = max(longest, length)
        if length > BOUND and name not in LONGER:
            failures += 1
            print(f"{name} (line {line}): {length} lines; split it, or give the reason in LONGER")
    if count == 0:
        sys.exit("function_lengths: ctags found no function")
    print(f"{count} functions, the longest of {longest} lines")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
