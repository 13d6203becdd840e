#!/usr/bin/env python3
"""Builds with -g and checks that the debug information is in separate packages (-dbgsym), where
debuggers find it by the build ID of the shipped file."""
import argparse
import os
import pathlib
import re
import shutil
import sys
import unittest

import support

OPTIONS = None


def build_id(file):
    return re.search(r"Build ID: (\w+)", support.run(["readelf", "-n", file]))[1]


class DebugPackages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        packages = OPTIONS.folder / "packages"
        shutil.rmtree(packages, ignore_errors=True)
        support.run([OPTIONS.cmake, "-S", OPTIONS.source, "-B", OPTIONS.folder, "-G", "Ninja",
                     "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_INSTALL_PREFIX=/usr",
                     "-DCMAKE_C_FLAGS=-g", "-DCMAKE_CXX_FLAGS=-g", "-DVN_BUILD_TESTS=OFF",
                     "-DVN_BUILD_BENCHMARKS=OFF", "-DVN_BUILD_EXAMPLES=OFF"])
        support.run([OPTIONS.cmake, "--build", OPTIONS.folder])
        support.run([OPTIONS.cmake.with_name("cpack"), "--config",
                     OPTIONS.folder / "CPackConfig.cmake", "-B", packages],
                    env={**os.environ, "SOURCE_DATE_EPOCH": "1700000000"})
        cls.unpacked = {}
        for path in packages.glob("*.*deb"):
            name = path.name.split("_")[0]
            cls.unpacked[name] = packages / "unpacked" / name
            cls.unpacked[name].mkdir(parents=True)
            support.run(["dpkg-deb", "--extract", path, cls.unpacked[name]])

    def shipped(self, package, pattern):
        files = [path for path in self.unpacked[package].rglob(pattern)
                 if path.is_file() and not path.is_symlink() and path.suffix != ".py"]
        self.assertEqual(len(files), 1, pattern)
        return files[0]

    def debug_file(self, package, file):
        identity = build_id(file)
        path = f"usr/lib/debug/.build-id/{identity[:2]}/{identity[2:]}.debug"
        return self.unpacked[f"{package}-dbgsym"] / path

    def test_only_programs_have_debug_packages(self):
        self.assertEqual({name for name in self.unpacked if name.endswith("-dbgsym")},
                         {"libvncommon1-dbgsym", "vninfo-dbgsym"})

    def test_the_shipped_files_have_no_debug_information(self):
        for package, pattern in [("libvncommon1", "libvncommon.so.1.*"), ("vninfo", "vninfo")]:
            sections = support.run(["readelf", "-SW", self.shipped(package, pattern)])
            self.assertNotIn(".debug_info", sections)

    def test_the_debug_files_are_found_by_build_id(self):
        for package, pattern, function in [("libvncommon1", "libvncommon.so.1.*", "vn_HashMap_add"),
                                           ("vninfo", "vninfo", "main")]:
            debug = self.debug_file(package, self.shipped(package, pattern))
            self.assertIn(".debug_info", support.run(["readelf", "-SW", debug]))
            line = support.run(["gdb", "-nx", "--batch", "-ex", f"info line {function}", debug])
            self.assertRegex(line, r'Line \d+ of "[^"]+\.cpp"')


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--source", type=pathlib.Path, required=True)
    arguments.add_argument("--folder", type=pathlib.Path, required=True)
    arguments.add_argument("--cmake", type=pathlib.Path, required=True)
    support.main(arguments, sys.modules[__name__])
