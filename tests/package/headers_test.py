#!/usr/bin/env python3
"""Checks that every public header compiles alone and without a warning, with every installed
compiler: the C headers as C11 and C++17, the C++ header as C++17 and C++20. Also checks that
vncommon.h includes all C headers, and that every exported name has its own description."""
import argparse
import concurrent.futures
import os
import re
import subprocess
import sys
import unittest

import support

OPTIONS = None
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror",
            "-fsyntax-only"]
CPP_WARNINGS = ["-Wold-style-cast", "-Wzero-as-null-pointer-constant"]
CLANG_WARNINGS = ["-Wdocumentation"]   # only clang has it


def complaints(compiler, language, standard, header):
    """Includes the header twice, to test its include guard."""
    warnings = (WARNINGS + (CPP_WARNINGS if language == "c++" else []) +
                (CLANG_WARNINGS if "clang" in os.path.realpath(compiler) else []))
    command = [compiler, "-x", language, standard, f"-I{OPTIONS.include}", *warnings, "-"]
    done = subprocess.run(command, input=f"#include <vncommon/{header}>\n" * 2, text=True,
                          capture_output=True, check=False)
    return f"{compiler} {standard} {header}:\n{done.stderr}" if done.returncode != 0 else ""


def undescribed(text):
    """The exported declarations without a comment for Doxygen directly above them."""
    lines = text.split("\n")
    for number, line in enumerate(lines):
        if re.match(r"((extern|VN_NODISCARD) )?VN_API\b", line):
            comment = "\n".join(lines[:number]).rpartition("/*")[2]
            if not comment.startswith("* ") or not comment.endswith("*/") or "@{" in comment:
                yield line


class Headers(unittest.TestCase):
    def setUp(self):
        folder = OPTIONS.include / "vncommon"
        self.headers = sorted(path.name for path in folder.glob("*.h"))
        self.cpp_headers = sorted(path.name for path in folder.glob("*.hpp"))

    def test_each_compiles_alone(self):
        compilers = support.present(OPTIONS.compilers)
        cxx_compilers = support.present(OPTIONS.cxx_compilers)
        languages = [("c", "-std=c11", compilers, self.headers),
                     ("c++", "-std=c++17", cxx_compilers, self.headers + self.cpp_headers),
                     ("c++", "-std=c++20", cxx_compilers, self.cpp_headers)]
        jobs = [(compiler, language, standard, header)
                for language, standard, compilers, headers in languages
                for compiler in compilers for header in headers]
        self.assertGreaterEqual(len(jobs), 2 * (len(self.headers) + len(self.cpp_headers)))
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            found = [text for text in pool.map(lambda job: complaints(*job), jobs) if text]
        self.assertEqual(found, [], "\n".join(found))
        print(f"{len(self.headers)} headers, {len(jobs)} compilations", file=sys.stderr)

    def test_a_wrong_header_is_noticed(self):
        compiler = support.present(OPTIONS.compilers)[0]
        self.assertIn("no_such.h", complaints(compiler, "c", "-std=c11", "no_such.h"))

    def test_every_export_is_described(self):
        found = [f"{name}: {line}" for name in self.headers
                 for line in undescribed((OPTIONS.include / "vncommon" / name).read_text())]
        self.assertEqual(found, [], "\n".join(found))

    def test_an_export_without_description_is_noticed(self):
        described = "/** One. */\nVN_API void one(void);\n"
        self.assertEqual(list(undescribed(described)), [])
        for text in ["VN_API int two(void);", "\nVN_API int two(void);",
                     "/* Two. */\nVN_API int two(void);",
                     "/** @name Two\n * @{ */\nVN_API int two(void);"]:
            self.assertEqual(list(undescribed(described + text)), ["VN_API int two(void);"])

    def test_the_common_header_includes_all(self):
        text = (OPTIONS.include / "vncommon/vncommon.h").read_text()
        included = re.findall(r"#include <vncommon/(\w+\.h)>", text)
        self.assertEqual(sorted(included), sorted(set(self.headers) - {"vncommon.h", "api.h"}))


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    support.add_compilers(arguments)
    support.main(arguments, sys.modules[__name__])
