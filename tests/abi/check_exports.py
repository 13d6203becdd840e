#!/usr/bin/env python3
"""Compares the names that the shared library exports with the committed lists, in both
directions: one list per public header, one name per line, C++ members demangled."""
import argparse
import pathlib
import subprocess
import sys


def listed(folder):
    names = {}
    for path in sorted(folder.glob("*.txt")):
        for line in path.read_text().splitlines():
            name = line.split("#")[0].strip()
            if name:
                if name in names:
                    sys.exit(f"{name} is listed twice: {names[name]} and {path.name}")
                names[name] = path.name
    return names


def exported(nm, library):
    output = subprocess.run([nm, "-D", "-C", "--defined-only", library], check=True,
                            capture_output=True, text=True).stdout
    names = set()
    for line in output.splitlines():
        kind, name = line[17:].split(" ", 1)
        if kind != "A":
            names.add(name.split("@")[0])
    return names


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--lists", type=pathlib.Path, required=True)
    parser.add_argument("library")
    options = parser.parse_args()
    wanted = listed(options.lists)
    found = exported(options.nm, options.library)
    missing = [f"missing: {name} ({wanted[name]})" for name in sorted(wanted.keys() - found)]
    extra = [f"not listed: {name}" for name in sorted(found - wanted.keys())]
    print("\n".join(missing + extra))
    print(f"{len(found)} names exported, {len(wanted)} listed")
    return 1 if missing or extra else 0


if __name__ == "__main__":
    sys.exit(main())
