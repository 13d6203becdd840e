#!/usr/bin/env python3
"""Builds the mathematics once more with other compilers and optimisation levels, and compares the
checksums of the results with the committed ones. Skips compilers that are not installed."""
import argparse
import pathlib
import shutil
import subprocess
import sys
import tempfile

# (C compiler, C++ compiler, flags of the mathematics). -march=native includes fused multiply-add on
# most machines: no result may change.
BUILDS = [
    ("gcc", "g++", ["-O0"]),
    ("gcc", "g++", ["-O3", "-march=native"]),
    ("clang", "clang++", ["-O0"]),
    ("clang", "clang++", ["-O3", "-march=native"]),
]


def run(command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def launcher():
    ccache = shutil.which("ccache")
    return [ccache] if ccache else []


def checksums(c_compiler, cxx_compiler, level, options, folder):
    """Compiles everything with the given optimisation flags and runs the result."""
    objects = []
    for source in options.sources:
        target = folder / (source.stem + ".o")
        if source.suffix == ".c":
            command = [c_compiler, "-std=gnu11", *options.c_flag]
        else:
            command = [cxx_compiler, "-std=c++20", *options.cxx_flag]
        run([*launcher(), *command, *level, *options.flag, "-w", "-c", source, "-o", target])
        objects.append(target)
    program = folder / "maths_checksum"
    run([cxx_compiler, *objects, "-o", program, "-lm"])
    return run([program])


def differences(found, wanted):
    pairs = zip(found.splitlines(), wanted.splitlines(), strict=True)
    return [f"{a} (committed: {b})" for a, b in pairs if a != b]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--expected", type=pathlib.Path, required=True)
    parser.add_argument("--flag", action="append", default=[], help="for every source")
    parser.add_argument("--c-flag", action="append", default=[])
    parser.add_argument("--cxx-flag", action="append", default=[])
    parser.add_argument("sources", nargs="+", type=pathlib.Path)
    options = parser.parse_args()
    wanted = options.expected.read_text()
    failures = 0
    for c_compiler, cxx_compiler, level in BUILDS:
        title = f"{c_compiler} {' '.join(level)}"
        if not (shutil.which(c_compiler) and shutil.which(cxx_compiler)):
            print(f"{title}: not installed, left out")
            continue
        with tempfile.TemporaryDirectory() as folder:
            found = checksums(c_compiler, cxx_compiler, level, options,
                              pathlib.Path(folder))
        wrong = differences(found, wanted)
        failures += len(wrong)
        print(f"{title}: {len(wrong)} of {len(wanted.splitlines())} checksums differ")
        print("".join(f"  {line}\n" for line in wrong), end="")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
