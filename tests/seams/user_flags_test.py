#!/usr/bin/env python3
"""Builds the library with user flags that relax floating-point arithmetic. It must give the same
results as the library of this build and must not change the mode of the process that loads it. The
configure step rejects flags that it cannot undo."""
import argparse
import os
import pathlib
import shutil
import subprocess
import sys

FAST = ("-ffast-math -ffinite-math-only -funsafe-math-optimizations -fassociative-math "
        "-freciprocal-math -fno-signed-zeros")

# (name, C compiler, C++ compiler, compiler flags, flags of the configuration, linker flags)
BUILDS = [
    ("gcc-fast", "gcc", "g++", FAST + " -fsingle-precision-constant", "-O2", ""),
    ("gcc-Ofast", "gcc", "g++", "-march=native", "-Ofast", "-Ofast"),
    ("clang-Ofast", "clang", "clang++", FAST + " -fapprox-func", "-Ofast", "-ffast-math"),
]

REFUSED = [
    ("CMAKE_CXX_FLAGS_RELEASE", "-mpc64"),
    ("CMAKE_SHARED_LINKER_FLAGS", "-mdaz-ftz"),
]

# Halves the least normal number before and after the load. Compares bytes, because a processor that
# flushes to zero finds both halves equal to 0.
LOADS = """
import ctypes, struct, sys
def half(): return struct.pack("d", sys.float_info.min * float(sys.argv[2]))
before = half()
ctypes.CDLL(sys.argv[1])
sys.exit(0 if any(before) and before == half() else 1)
"""


def run(command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          **options)


def configure(options, folder, definitions):
    parts = ["TESTS", "BENCHMARKS", "EXAMPLES", "TOOLS"]
    return run([options.cmake, "-S", options.source, "-B", folder, "-G", options.generator,
                "-DCMAKE_BUILD_TYPE=Release", "-DVN_INSTALL=OFF",
                *[f"-DVN_BUILD_{part}=OFF" for part in parts],
                *[f"-D{name}={value}" for name, value in definitions.items()]])


def build(options, folder, c_compiler, cxx_compiler, flags, config_flags, linker_flags):
    """Returns the library that was built; on failure prints the output and returns None."""
    definitions = {"CMAKE_C_COMPILER": c_compiler, "CMAKE_CXX_COMPILER": cxx_compiler,
                   "CMAKE_SHARED_LINKER_FLAGS": linker_flags}
    for language in ("C", "CXX"):
        definitions[f"CMAKE_{language}_FLAGS"] = flags
        definitions[f"CMAKE_{language}_FLAGS_RELEASE"] = config_flags
    done = configure(options, folder, definitions)
    if done.returncode == 0:
        done = run([options.cmake, "--build", folder, "--target", "vncommon", "--parallel", "2"])
    if done.returncode != 0:
        print(done.stdout)
        return None
    return folder / "libvncommon.so.1"


def complaints(options, library, expected):
    if library is None:
        return ["the build failed"]
    found = []
    if run([sys.executable, "-c", LOADS, library, "0.5"]).returncode != 0:
        found.append("the load changes the floating-point mode")
    results = run([options.program], env={**os.environ, "LD_PRELOAD": str(library)}).stdout
    if results.count("\n") != expected.count("\n"):
        return found + ["the program failed: " + results]
    pairs = zip(results.splitlines(), expected.splitlines(), strict=True)
    return found + [f"{a} (expected: {b})" for a, b in pairs if a != b]


def check_builds(options):
    expected = run([options.program], check=True).stdout
    failures = 0
    for name, c_compiler, cxx_compiler, *flags in BUILDS:
        if not (shutil.which(c_compiler) and shutil.which(cxx_compiler)):
            print(f"{name}: not installed, left out")
            continue
        library = build(options, options.folder / name, c_compiler, cxx_compiler, *flags)
        found = complaints(options, library, expected)
        failures += len(found)
        print(f"{name}: {len(found)} differences")
        print("".join(f"  {complaint}\n" for complaint in found), end="")
    return failures


def check_refusals(options):
    failures = 0
    for variable, flag in REFUSED:
        folder = options.folder / "refused"
        shutil.rmtree(folder, ignore_errors=True)
        done = configure(options, folder, {variable: flag})
        sentence = (f"{variable} contains {flag}, which changes the floating-point mode of every "
                    "process that loads the library; remove it")
        refused = done.returncode != 0 and sentence in " ".join(done.stdout.split())
        failures += 0 if refused else 1
        print(f"{flag}: {'refused' if refused else done.stdout}")
    return failures


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cmake", required=True)
    parser.add_argument("--generator", required=True)
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--folder", type=pathlib.Path, required=True)
    parser.add_argument("--program", type=pathlib.Path, required=True)
    options = parser.parse_args()
    return 1 if check_builds(options) + check_refusals(options) else 0


if __name__ == "__main__":
    sys.exit(main())
