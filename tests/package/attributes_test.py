#!/usr/bin/env python3
"""Checks the attributes of the public headers: every installed compiler must warn about typical
mistakes, and about no correct call. The C++ header must reject types that it cannot store."""
import argparse
import pathlib
import re
import subprocess
import sys
import unittest

import support

OPTIONS = None
FOLDER = support.CONSUMER.parent / "attributes"
STRICT = ["-D_GNU_SOURCE", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow"]


def compile_only(compiler, language, *options, source, optimise="-O2"):
    """Compiles a file; returns its warnings as (line, warning), and the whole output."""
    command = [compiler, "-x", *language, optimise, f"-I{OPTIONS.include}", *options, "-S", "-o",
               "/dev/null", source]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    found = re.findall(rf"{source.name}:(\d+):\d+: warning: .*\[-W([\w-]+)", done.stderr)
    return {(int(line), name) for line, name in found}, done


def variants():
    for compilers, languages in [(OPTIONS.compilers, [("c", "-std=c11"), ("c", "-std=c2x")]),
                                 (OPTIONS.cxx_compilers,
                                  [("c++", "-std=c++17"), ("c++", "-std=c++20")])]:
        for compiler in support.present(compilers):
            for language in languages:
                yield compiler, language


def cpp_variants():
    return [(compiler, language) for compiler, language in variants() if language[0] == "c++"]


class Attributes(unittest.TestCase):
    def reported(self, source, compiler, language):
        """Every marked line of the source gives the warning that its mark names."""
        lines = (FOLDER / source).read_text().splitlines()
        expected = {(number, mark[1]) for number, line in enumerate(lines, 1)
                    if (mark := re.search(r"; +/\* ([a-z-]+) \*/$", line))}
        self.assertGreater(len(expected), 10)
        found, done = compile_only(compiler, language, "-Wall", source=FOLDER / source)
        self.assertEqual(done.returncode, 0, done.stderr)
        missed = [lines[number - 1].strip() for number, name in sorted(expected)
                  if (number, name) not in found]
        self.assertEqual(missed, [])
        return len(expected), done.stderr

    def test_mistakes_are_reported(self):
        for compiler, language in variants():
            with self.subTest(compiler=compiler, language=language):
                count, output = self.reported("mistakes.c", compiler, language)
                self.assertGreater(count, 80)
                self.assertNotIn("[-Wreturn-type]", output)   # vn_outOfMemory never returns

    def test_mistakes_with_the_cpp_header_are_reported(self):
        for compiler, language in cpp_variants():
            with self.subTest(compiler=compiler, language=language):
                self.reported("mistakes.cpp", compiler, language)

    def not_reported(self, source, compiler, language, *options):
        for optimise in ["-O0", "-O2"]:
            with self.subTest(compiler=compiler, language=language, optimise=optimise):
                _, done = compile_only(compiler, language, *STRICT, *options, source=source,
                                       optimise=optimise)
                self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_correct_calls_are_not(self):
        for compiler, language in variants():
            self.not_reported(FOLDER / "correct.c", compiler, language)

    def test_the_cpp_header_is_used_without_a_warning(self):
        """Compiles the manual's example, and the header's own tests, which use all of it."""
        tests = FOLDER.parents[1]
        for compiler, language in cpp_variants():
            self.not_reported(OPTIONS.example, compiler, language, "-fno-exceptions")
        for compiler in support.present(OPTIONS.cxx_compilers):
            _, done = compile_only(compiler, ("c++", "-std=c++20"), *STRICT, f"-I{tests}",
                                   "-fsyntax-only", source=tests / "cpp" / "cpp_header_test.cpp")
            self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_what_the_cpp_header_refuses(self):
        uses = (FOLDER / "refused.txt").read_text().splitlines()[1:]
        uses.insert(0, "vn::vector<int> accepted;")
        for compiler in support.present(OPTIONS.cxx_compilers):
            for use in uses:
                program = f"#include <vncommon/vncommon.hpp>\nvoid f() {{ {use} }}\n"
                done = subprocess.run([compiler, "-x", "c++", "-std=c++17",
                                       f"-I{OPTIONS.include}", "-fsyntax-only", "-"], input=program, text=True,
                                      capture_output=True, check=False)
                self.assertEqual(done.returncode == 0, "accepted" in use, f"{compiler}: {use}")

    def test_the_attributes_vanish_elsewhere(self):
        """The headers as seen by a compiler that is neither gcc nor clang."""
        for compiler in support.present(OPTIONS.compilers):
            done = subprocess.run(
                [compiler, "-std=c11", "-E", "-U__GNUC__",
                 f"-I{OPTIONS.include}", "-"], text=True, check=True,
                input="#include <vncommon/api.h>\n"
                      "VN_NODISCARD VN_API int f(const char*, ...) VN_PRINTF(1, 2) VN_NORETURN "
                      "VN_MALLOC VN_PURE VN_CONST VN_NONNULL VN_RETURNS_NONNULL;\n",
                capture_output=True)
            last = done.stdout.strip().splitlines()[-1]
            self.assertEqual(" ".join(last.split()).replace(" ;", ";"), "int f(const char*, ...);")


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    support.add_compilers(arguments)
    arguments.add_argument("--example", type=pathlib.Path, required=True)
    support.main(arguments, sys.modules[__name__])
