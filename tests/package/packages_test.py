#!/usr/bin/env python3
"""Makes the Debian packages and looks into them: names, dependencies, files, notices."""
import argparse
import gzip
import pathlib
import shutil
import sys
import tempfile
import unittest

import support

OPTIONS = None


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        shutil.rmtree(OPTIONS.packages, ignore_errors=True)
        support.run([OPTIONS.cpack, "-G", "DEB", "--config", OPTIONS.build / "CPackConfig.cmake",
                     "-B", OPTIONS.packages])
        cls.files = {path.name.split("_")[0]: path for path in OPTIONS.packages.glob("*.deb")}

    def field(self, package, name):
        return support.run(["dpkg-deb", "--field", self.files[package], name]).strip()

    def contents(self, package):
        listing = support.run(["dpkg-deb", "--contents", self.files[package]])
        names = (line.split(maxsplit=5)[5].split(" -> ")[0] for line in listing.splitlines())
        return {name.lstrip(".") for name in names if not name.endswith("/")}

    @staticmethod
    def document(package, path, name):
        with tempfile.TemporaryDirectory() as folder:
            support.run(["dpkg-deb", "--extract", path, folder])
            return pathlib.Path(folder, "usr/share/doc", package, name).read_bytes()

    def ends_with(self, package, *endings):
        contents = self.contents(package)
        for ending in endings:
            self.assertTrue(any(name.endswith(ending) for name in contents), (ending, contents))

    def test_the_packages(self):
        self.assertEqual(set(self.files), {"libvncommon1", "libvncommon-dev", "vninfo"})
        for package in self.files:
            self.assertTrue(all(name.startswith("/usr/") for name in self.contents(package)))

    def test_the_library(self):
        version = self.field("libvncommon1", "Version")
        self.ends_with("libvncommon1", "/libvncommon.so.1", f"/libvncommon.so.{version}")
        library = next(name for name in self.contents("libvncommon1")
                       if name.endswith(f"/libvncommon.so.{version}"))
        self.assertIn(f"/usr/share/gdb/auto-load{library}-gdb.py", self.contents("libvncommon1"))
        self.assertNotIn(".h\n", "\n".join(self.contents("libvncommon1")) + "\n")
        depends = self.field("libvncommon1", "Depends")
        for library in ["libc6", "libicu", "libstdc++6"]:
            self.assertIn(library, depends)
        shlibs = support.run(["dpkg-deb", "--info", self.files["libvncommon1"], "shlibs"])
        self.assertEqual(shlibs.strip(), f"libvncommon 1 libvncommon1 (>= {version})")
        triggers = support.run(["dpkg-deb", "--info", self.files["libvncommon1"], "triggers"])
        self.assertEqual(triggers.strip(), "activate-noawait ldconfig")

    def test_the_development_files(self):
        version = self.field("libvncommon1", "Version")
        self.assertEqual(self.field("libvncommon-dev", "Depends"), f"libvncommon1 (= {version})")
        headers = sorted((OPTIONS.include / "vncommon").glob("*.h*"))
        self.assertTrue(headers)
        self.ends_with("libvncommon-dev", "/libvncommon.so", "/pkgconfig/vncommon.pc",
                       "/cmake/vncommon/vncommon-config.cmake", "/usr/share/java/vncommon.jar",
                       *(f"/usr/include/vncommon/{path.name}" for path in headers))

    def test_the_tool(self):
        self.ends_with("vninfo", "/usr/bin/vninfo", "/usr/share/man/man1/vninfo.1.gz")
        depends = self.field("vninfo", "Depends")
        for library in ["libc6", "libstdc++6", f"libvncommon1 (= {self.field('vninfo', 'Version')})"]:
            self.assertIn(library, depends)

    def test_no_line_of_a_description_is_too_long(self):
        for package in self.files:
            lines = self.field(package, "Description").splitlines()
            self.assertGreater(len(lines), 1)
            self.assertLessEqual(max(map(len, lines)), 80)

    def test_the_notices_of_what_is_linked_in(self):
        for package, path in self.files.items():
            text = self.document(package, path, "copyright").decode()
            for owner in ["Sun Microsystems, Inc. All rights reserved",
                          "Copyright (c) 1991 by AT&T", "Lucent Technologies\nAll Rights Reserved",
                          "Intel Corp", "Niels Lohmann"]:
                self.assertIn(owner, text)

    def test_the_changelog(self):
        for package, path in self.files.items():
            compressed = self.document(package, path, "changelog.gz")
            self.assertEqual(compressed[4:8], bytes(4), "the time of day")
            lines = gzip.decompress(compressed).decode().splitlines()
            self.assertEqual(lines[0], f"vncommon ({self.field(package, 'Version')}) unstable; "
                                       "urgency=medium")
            self.assertRegex(lines[-1], r"^ -- .+ <.+@.+>  \w{3}, \d\d \w{3} \d{4} [\d:]{8} \+0000$")
            self.assertIn(b"\n## ", self.document(package, path, "CHANGELOG.md"))


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--build", type=pathlib.Path, required=True)
    arguments.add_argument("--cpack", default="cpack")
    arguments.add_argument("--packages", type=pathlib.Path, required=True)
    arguments.add_argument("--include", type=pathlib.Path, required=True)
    support.main(arguments, sys.modules[__name__])
