#!/usr/bin/env python3
"""Installs to a temporary prefix, moves the tree and builds programs against the moved tree, in C11
and C++17, through CMake and through pkg-config. The programs are the README's, and one that names
every exported function."""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import support

OPTIONS = None


def every_name(folder):
    """Returns a program that takes the address of every name exported to C."""
    names = [line.split("#")[0].strip() for path in sorted(folder.glob("*.txt"))
             for line in path.read_text().splitlines()]
    names = [name for name in names if re.fullmatch(r"\w+", name)]
    uses = "\n".join(f"    sum += (uintptr_t)&{name};" for name in names)
    return len(names), ("#include <vncommon/vncommon.h>\n"
                        f"int main(void) {{\n    uintptr_t sum = 0;\n{uses}\n"
                        "    return sum == 0;\n}\n")


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="vn-install-")
        top = pathlib.Path(cls.temporary.name)
        support.run([OPTIONS.cmake, "--install", OPTIONS.build, "--prefix", top / "first"])
        cls.prefix = (top / "first").rename(top / "moved")
        cls.work = top / "work"
        cls.work.mkdir()
        cls.readme = support.Readme(OPTIONS.readme)
        cls.readme.write(cls.work)
        cls.library = next(cls.prefix.rglob("libvncommon.so")).parent
        cls.environment = {**os.environ, "LD_LIBRARY_PATH": str(cls.library),
                           "PKG_CONFIG_PATH": str(cls.library / "pkgconfig")}

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def without_debug_information(self, path):
        content = path.read_bytes()
        if content.startswith(b"\x7fELF"):
            stripped = self.work / "stripped"
            support.run(["strip", "--strip-debug", "-o", stripped, path])
            content = stripped.read_bytes()
        return content

    def shell(self, command):
        return support.run(["sh", "-ec", command], cwd=self.work, env=self.environment)

    def test_everything_is_there(self):
        installed = {str(path.relative_to(self.prefix)) for path in self.prefix.rglob("*")}
        library = self.library.relative_to(self.prefix)
        source = OPTIONS.readme.parent / "include/vncommon"
        for name in [f"{library}/libvncommon.so.1", f"{library}/pkgconfig/vncommon.pc",
                     f"{library}/cmake/vncommon/vncommon-config.cmake",
                     f"{library}/cmake/vncommon/vncommon-config-version.cmake",
                     *(f"include/vncommon/{path.name}" for path in source.glob("*.h*"))]:
            self.assertIn(name, installed)

    def test_the_printers_are_where_gdb_looks(self):
        path = (self.prefix.parent / "first" / self.library.relative_to(self.prefix)
                / (self.library / "libvncommon.so").resolve().name)
        self.assertTrue((self.prefix / f"share/gdb/auto-load{path}-gdb.py").is_file(),
                        list((self.prefix / "share/gdb").rglob("*.py")))

    def test_no_file_names_the_build_or_the_prefix(self):
        for path in self.prefix.rglob("*"):
            if path.is_file():
                content = self.without_debug_information(path)
                for place in [OPTIONS.build, self.prefix.parent / "first"]:
                    self.assertFalse(str(place).encode() in content, f"{path} names {place}")

    def test_through_cmake(self):
        build = support.build_with_cmake(OPTIONS.cmake, self.work,
                                         f"-DCMAKE_PREFIX_PATH={self.prefix}")
        support.check_hello(self, build / "hello")
        support.check_hello_cpp(self, build / "hello_cpp")
        jar = self.prefix / "share/java/vncommon.jar"
        if jar.exists():
            cache = support.run([OPTIONS.cmake, build])
            self.assertIn(f"jar={jar}\n", cache)

    def test_the_readme_commands(self):
        self.shell(self.readme.command)
        support.check_hello(self, self.work / "a.out", env=self.environment)
        self.shell(self.readme.cpp_command)
        support.check_hello_cpp(self, self.work / "a.out", env=self.environment)

    def test_through_pkg_config(self):
        strict = "-Wall -Wextra -Wpedantic -Werror"
        self.shell(f"cc -std=c11 {strict} -o c11 hello.c $(pkg-config --cflags --libs vncommon)")
        self.shell(f"c++ -std=c++17 {strict} -o cpp17 hello.cpp "
                   "$(pkg-config --cflags --libs vncommon)")
        support.check_hello(self, self.work / "c11", env=self.environment)
        support.check_hello_cpp(self, self.work / "cpp17", env=self.environment)
        version = self.shell("pkg-config --modversion vncommon").strip()
        self.assertTrue((self.library / f"libvncommon.so.{version}").exists())

    def test_every_exported_name_is_declared_and_links(self):
        count, program = every_name(OPTIONS.exports)
        self.assertGreater(count, 250)
        for source, compiler in [("names.c", "cc -std=c11"), ("names.cpp", "c++ -std=c++17")]:
            (self.work / source).write_text(program)
            self.shell(f"{compiler} -o names {source} $(pkg-config --cflags --libs vncommon)")
            self.shell("./names")

    def test_the_tool_finds_its_library(self):
        tool = self.prefix / "bin/vninfo"
        if not tool.exists():
            self.skipTest("vninfo was not built")
        clean = {key: value for key, value in os.environ.items() if key != "LD_LIBRARY_PATH"}
        self.assertIn("Processors", support.run([tool], env=clean))

    def test_the_manual_page_tells_every_option_of_the_tool(self):
        tool = self.prefix / "bin/vninfo"
        if not tool.exists():
            self.skipTest("vninfo was not built")
        path = self.prefix / "share/man/man1/vninfo.1"
        page = path.read_text().replace("\\-", "-")
        version = support.run([tool, "--version"], env=self.environment).split()[1]
        self.assertIn(f'"libvncommon {version}"', page)
        usage = support.run([tool, "--help"], env=self.environment)
        options = set(re.findall(r"--[a-z-]+", usage))
        self.assertGreaterEqual(len(options), 5)
        told = set(re.findall(r"^\.(?:B|BI|BR) (--[a-z-]+)", page, re.MULTILINE))
        self.assertEqual(told, options)
        if shutil.which("man"):
            checked = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", path],
                                     stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                                     check=True)
            self.assertEqual(checked.stderr, "")

    def test_the_jar(self):
        jar = self.prefix / "share/java/vncommon.jar"
        if not jar.exists() or shutil.which("javap") is None:
            self.skipTest("no JDK")
        class_name = "com.vantrel.util.CommonNativeMethods"
        listing = subprocess.run(["javap", "-cp", jar, class_name], check=True, text=True,
                                 capture_output=True).stdout
        self.assertIn("native double getMicroTime();", listing)


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--build", type=pathlib.Path, required=True)
    arguments.add_argument("--cmake", default="cmake")
    arguments.add_argument("--readme", type=pathlib.Path, required=True)
    arguments.add_argument("--exports", type=pathlib.Path, required=True)
    support.main(arguments, sys.modules[__name__])
