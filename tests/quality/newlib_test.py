#!/usr/bin/env python3
"""Tests which newlib tarball the configure step selects, and its message if none is suitable.
Arguments: the cmake program and the tarball of this build."""
import io
import pathlib
import re
import subprocess
import sys
import tarfile
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
CMAKE, TARBALL = sys.argv.pop(1), sys.argv.pop(1)
UNPACKED = re.compile("/newlib/lib[cm]/(stdlib|math|common)/[^/]*[.][ch]$")
CONTEXT = b"y = 10*y + c - '0';"
KNOWN = sorted(path.name for path in (TREE / "cmake/patches").iterdir())


class Choice(unittest.TestCase):
    def choose(self, *tarballs):
        """Returns the release that is selected from these tarballs, or the error."""
        with tempfile.NamedTemporaryFile("w", suffix=".cmake") as script:
            script.write(f'cmake_minimum_required(VERSION 3.25)\n'
                         f'include("{TREE}/cmake/NewlibRelease.cmake")\n'
                         f'vn_choose_newlib("{";".join(tarballs)}")\n'
                         f'message("chosen ${{VN_NEWLIB_RELEASE}} ${{VN_NEWLIB_CHOSEN}}")\n')
            script.flush()
            done = subprocess.run([CMAKE, "-P", script.name], text=True, check=False,
                                  capture_output=True)
        return " ".join(done.stderr.split())

    def test_the_newest_known_release_wins(self):
        wanted = "chosen 4.5.0.20241231 /a/newlib-4.5.0.20241231.tar.xz"
        tarballs = ["/a/newlib-3.3.0.tar.xz", "/a/newlib-4.5.0.20241231.tar.xz",
                    "/a/newlib-12.0.0.tar.gz"]
        self.assertEqual(self.choose(*tarballs), wanted)
        self.assertEqual(self.choose(*reversed(tarballs)), wanted)

    def test_an_older_one_serves_when_it_is_the_only_known_one(self):
        self.assertEqual(self.choose("/a/newlib-3.3.0.tar.bz2", "/a/newlib-4.0.0.tar.xz"),
                         "chosen 3.3.0 /a/newlib-3.3.0.tar.bz2")

    def test_unknown_releases_are_refused_with_the_known_ones(self):
        message = self.choose("/a/newlib-4.4.0.tar.xz", "/a/newlib-3.3.0.zip")
        self.assertIn("/a/newlib-4.4.0.tar.xz", message)
        self.assertIn(f"Known releases: {', '.join(KNOWN)}.", message)


class Configure(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vn-newlib-")
        self.addCleanup(temporary.cleanup)
        self.top = pathlib.Path(temporary.name)

    def configure(self, tarball):
        """Returns the error of a configure step with this tarball."""
        done = subprocess.run(
            [CMAKE, "-S", TREE, "-B", self.top / "build", f"-DVN_NEWLIB_TARBALL={tarball}",
             "-DVN_BUILD_TESTS=OFF", "-DVN_BUILD_BENCHMARKS=OFF", "-DVN_BUILD_EXAMPLES=OFF"],
            text=True, check=False, capture_output=True)
        self.assertNotEqual(done.returncode, 0)
        return " ".join(done.stderr.split())

    def test_a_tarball_that_is_absent(self):
        missing = self.top / "newlib-3.3.0.tar.xz"
        self.assertIn(f"VN_NEWLIB_TARBALL: {missing} does not exist", self.configure(missing))

    def test_text_that_the_corrections_were_not_written_for(self):
        """A tarball with a different line of context, which patch accepts by default."""
        wanted = self.top / pathlib.Path(TARBALL).name
        wanted = wanted.parent / (wanted.name.rsplit(".", 1)[0] + ".gz")
        with tarfile.open(TARBALL) as source, tarfile.open(wanted, "w:gz") as target:
            for member in source:
                if not member.isfile() or not UNPACKED.search(member.name):
                    continue
                text = source.extractfile(member).read()
                if member.name.endswith("/strtod.c"):
                    self.assertEqual(text.count(CONTEXT), 1)
                    text = text.replace(CONTEXT, CONTEXT + b" /* other */")
                    member.size = len(text)
                target.addfile(member, io.BytesIO(text))
        error = self.configure(wanted)
        self.assertIn("strtod-digits.patch does not apply", error)
        self.assertIn("FAILED", error)


if __name__ == "__main__":
    unittest.main()
