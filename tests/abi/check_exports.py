#!/usr/bin/env python3
"""Compares the names that the shared library exports with the committed lists, in both
directions: one list per public header, one name per line, C++ members demangled. A name that came
after the first version is followed by "# since X.Y"; it has the symbol version VNCOMMON_X.Y, and
its header says so."""
import argparse
import pathlib
import re
import subprocess
import sys

FIRST_VERSION = "1.0"
NAMES_OF_FIRST_VERSION = 340   # it is out: a name that is added says since when it is there


def listed(folder):
    """The names, each with its list and its version."""
    names = {}
    for path in sorted(folder.glob("*.txt")):
        for line in path.read_text().splitlines():
            name, _, remark = line.partition("#")
            name = name.strip()
            if name:
                if name in names:
                    sys.exit(f"{name} is listed twice: {names[name][0]} and {path.name}")
                since = re.search(r"since (\d+\.\d+)", remark)
                names[name] = (path.name, since[1] if since else FIRST_VERSION)
    return names


def run(command, text=None):
    return subprocess.run(command, input=text, check=True, capture_output=True, text=True).stdout


def exported(nm, library):
    """Versions by name. Demangled by c++filt: llvm-nm demangles no name that has a version."""
    names = {}
    for line in run([nm, "-D", "--defined-only", library]).splitlines():
        kind, name = line[17:].split(" ", 1)
        if kind != "A":
            name, _, version = name.partition("@@VNCOMMON_")
            names[name] = version
    demangled = run(["c++filt"], "".join(name + "\n" for name in names)).splitlines()
    return dict(zip(demangled, names.values()))


def comment_above(header, name):
    """The comment that describes the function: the last one before its declaration."""
    text = header.read_text() if header.is_file() else ""
    declaration = re.search(rf"^.*\b{name}\(", text, re.MULTILINE)
    above = text[:declaration.start()] if declaration else ""
    return above[above.rfind("/*"):] if "/*" in above else ""


def wrong_versions(wanted, found, headers):
    first = sum(version == FIRST_VERSION for _, version in wanted.values())
    if first != NAMES_OF_FIRST_VERSION:
        yield (f"{first} names without \"# since\", {NAMES_OF_FIRST_VERSION} in version "
               f"{FIRST_VERSION}")
    for name, (file, version) in sorted(wanted.items()):
        if found.get(name, version) != version:
            yield f"{name} is exported as VNCOMMON_{found[name]}, listed for {version}"
        header = headers / file.replace(".txt", ".h")
        if version != FIRST_VERSION and f"Since {version}" not in comment_above(header, name):
            yield f"{header.name} does not say \"Since {version}\" above {name}"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--lists", type=pathlib.Path, required=True)
    parser.add_argument("--headers", type=pathlib.Path, required=True)
    parser.add_argument("library")
    options = parser.parse_args()
    wanted = listed(options.lists)
    found = exported(options.nm, options.library)
    wrong = [f"missing: {name} ({wanted[name][0]})"
             for name in sorted(wanted.keys() - found.keys())]
    wrong += [f"not listed: {name}" for name in sorted(found.keys() - wanted.keys())]
    wrong += wrong_versions(wanted, found, options.headers)
    print("\n".join(wrong))
    print(f"{len(found)} names exported, {len(wanted)} listed")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
