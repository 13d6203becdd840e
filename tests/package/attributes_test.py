#!/usr/bin/env python3
"""The public headers let every compiler at hand report typical mistakes, and no correct call."""
import argparse
import re
import subprocess
import sys
import unittest

import support

OPTIONS = None
FOLDER = support.CONSUMER.parent / "attributes"
STRICT = ["-D_GNU_SOURCE", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow"]


def compile_only(compiler, language, *options, source, optimise="-O2"):
    """The warnings of one compilation as (line, warning), and all of its output."""
    command = [compiler, "-x", *language, optimise, f"-I{OPTIONS.include}", *options, "-S", "-o",
               "/dev/null", FOLDER / source]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    found = re.findall(rf"{source}:(\d+):\d+: warning: .*\[-W([\w-]+)", done.stderr)
    return {(int(line), name) for line, name in found}, done


def variants():
    for compilers, languages in [(OPTIONS.compilers, [("c", "-std=c11"), ("c", "-std=c2x")]),
                                 (OPTIONS.cxx_compilers,
                                  [("c++", "-std=c++17"), ("c++", "-std=c++20")])]:
        for compiler in support.present(compilers):
            for language in languages:
                yield compiler, language


class Attributes(unittest.TestCase):
    def test_mistakes_are_reported(self):
        lines = (FOLDER / "mistakes.c").read_text().splitlines()
        expected = {(number, mark[1]) for number, line in enumerate(lines, 1)
                    if (mark := re.search(r"; +/\* ([a-z-]+) \*/$", line))}
        self.assertGreater(len(expected), 80)
        for compiler, language in variants():
            with self.subTest(compiler=compiler, language=language):
                found, done = compile_only(compiler, language, "-Wall", source="mistakes.c")
                self.assertEqual(done.returncode, 0, done.stderr)
                missed = [lines[number - 1].strip() for number, name in sorted(expected)
                          if (number, name) not in found]
                self.assertEqual(missed, [])
                self.assertNotIn("[-Wreturn-type]", done.stderr)   # vn_outOfMemory never returns

    def test_correct_calls_are_not(self):
        for compiler, language in variants():
            for optimise in ["-O0", "-O2"]:
                with self.subTest(compiler=compiler, language=language, optimise=optimise):
                    _, done = compile_only(compiler, language, *STRICT, source="correct.c",
                                           optimise=optimise)
                    self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_the_attributes_vanish_elsewhere(self):
        """As a compiler sees the headers that is neither gcc nor clang."""
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
    support.main(arguments, sys.modules[__name__])
