#!/usr/bin/env python3
"""Builds the library as part of another project, by add_subdirectory and by FetchContent. Compares
that project's variables, cache, properties, commands and files with those without the library."""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tarfile
import tempfile
import unittest

import support

OPTIONS = None
PARENT = pathlib.Path(__file__).parent / "parent"

# Names that the library may add to the parent: its own, and those in which CMake's modules store
# the packages that they have searched for.
OURS = re.compile(r"(VN_|vncommon_|IntelDecimal_|ICU_|FETCHCONTENT_|"
                  r"FIND_PACKAGE_MESSAGE_DETAILS_|CMAKE_HAVE_LIBC_PTHREAD(-ADVANCED)?$)")
# Names that differ because of the test, of FetchContent, or of the number of folders.
OF_THE_TEST = re.compile(r"(PARENT_|(names?|text|value|CMAKE_NUMBER_OF_MAKEFILES)$|"
                         r"FETCHCONTENT_|FetchContent|_FetchContent|__?cmake_)")


def recorded(path):
    """Reads the file that the parent's record() wrote: {"kind name": value}."""
    return dict(entry.split("=", 1) for entry in path.read_text().split("\n-\n") if entry)


def cache(build):
    lines = (build / "CMakeCache.txt").read_text().splitlines()
    entries = (re.fullmatch(r"([^#/:][^:=]*):(\w+)=(.*)", line) for line in lines)
    return {entry[1]: entry[3] for entry in entries if entry}


def tracked_archive(source, path):
    """Packs the files of the tree like a release: an archive with one folder."""
    names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                           cwd=source, check=True, capture_output=True, text=True).stdout
    with tarfile.open(path, "w") as archive:
        for name in sorted(set(names.split("\0")) - {""}):
            if (source / name).is_file():
                archive.add(source / name, f"vncommon/{name}")


class Subproject(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="vn-parent-")
        cls.addClassCleanup(cls.temporary.cleanup)
        cls.top = pathlib.Path(cls.temporary.name)
        cls.alone = cls.configure("alone", "none", "")
        support.run([OPTIONS.cmake, "--build", cls.alone])

    @classmethod
    def configure(cls, name, way, library, *more):
        build = cls.top / name
        launchers = [f"-DCMAKE_{language}_COMPILER_LAUNCHER={OPTIONS.launcher}"
                     for language in ("C", "CXX")] if OPTIONS.launcher else []
        support.run([OPTIONS.cmake, "-S", PARENT, "-B", build, "-G", "Ninja", *launchers,
                     f"-DPARENT_WAY={way}", f"-DPARENT_LIBRARY={library}",
                     f"-DCMAKE_INSTALL_PREFIX={cls.top}/prefix", *more])
        return build

    def check_records(self, build):
        before, after = (recorded(build / f"{when}.txt") for when in ("before", "after"))
        self.assertGreater(len(before), 100)
        for name, value in before.items():
            if not OF_THE_TEST.match(name.split()[1]):
                self.assertEqual(after[name], value, name)
        added = {name for name in after.keys() - before.keys()
                 if not OURS.match(name.split()[1]) and not OF_THE_TEST.match(name.split()[1])}
        self.assertEqual(added, set())

    def check_cache(self, build):
        before, after = cache(self.alone), cache(build)
        for name, value in before.items():
            if not OF_THE_TEST.match(name):
                self.assertEqual(after[name].replace(str(build), str(self.alone)), value, name)
        self.assertEqual({name for name in after.keys() - before.keys() if not OURS.match(name)},
                         set())
        self.assertEqual(after["CMAKE_BUILD_TYPE"], "")

    def commands(self, build, target):
        return support.run(["ninja", "-C", build, "-t", "commands", target]).replace(
            str(build), "BUILD")

    def check_commands(self, build):
        self.assertEqual(self.commands(build, "bystander"), self.commands(self.alone, "bystander"))
        flags = next(line for line in self.commands(build, "user").splitlines()
                     if " -c " in line and "unity" in line and "user.dir" in line)
        settings = re.findall(r" (-[DWfmOIgs]\S*|-isystem \S+)", flags)
        self.assertEqual(settings[0], "-DPARENT=1")
        self.assertEqual(len(settings), 2, flags)
        self.assertTrue(settings[1].endswith("/include"), flags)

    def check_files(self, build, *folders):
        """The library adds files to the parent's build only in its own folders."""
        def files(top):
            return {str(path.relative_to(top)) for path in top.rglob("*") if path.is_file()
                    and "CMakeFiles/" not in str(path)}
        outside = {name for name in files(build) - files(self.alone)
                   if not name.startswith(tuple(f"{folder}/" for folder in folders))}
        self.assertLessEqual(outside, {"user", "user_cpp", "user_static"})

    def check_untouched(self, build, *folders):
        self.check_records(build)
        self.check_cache(build)
        self.check_commands(build)
        self.check_files(build, *folders)
        self.assertIn("Total Tests: 0", support.run(["ctest", "-N", "--test-dir", build]))

    def test_add_subdirectory(self):
        build = self.configure("subdirectory", "add_subdirectory", OPTIONS.source)
        support.run(["nice", OPTIONS.cmake, "--build", build])
        self.check_untouched(build, "parts")
        for program in ["user", "user_cpp"]:
            self.assertEqual(support.run([build / program]), ".5\n")
        support.run([OPTIONS.cmake, "--install", build])
        self.assertFalse((self.top / "prefix").exists())

    def test_fetch_content_from_a_folder(self):
        build = self.configure("folder", "source_dir", OPTIONS.source)
        self.check_untouched(build, "_deps")

    def test_fetch_content_from_an_archive(self):
        archive = self.top / "vncommon.tar"
        tracked_archive(OPTIONS.source, archive)
        build = self.configure("archive", "url", archive)
        self.check_untouched(build, "_deps")

    def test_the_static_library(self):
        build = self.configure("static", "add_subdirectory", OPTIONS.source,
                               "-DVN_BUILD_STATIC=ON")
        support.run(["nice", OPTIONS.cmake, "--build", build, "--target", "user_static"])
        self.check_cache(build)
        self.check_files(build, "parts")
        self.assertEqual(support.run([build / "user_static"]), ".5\n")

    def test_packages_stay_the_parents_own(self):
        build = self.configure("packages", "add_subdirectory", OPTIONS.source, "-DVN_INSTALL=ON")
        self.assertFalse((build / "CPackConfig.cmake").exists())


if __name__ == "__main__":
    os.environ.pop("CMAKE_BUILD_TYPE", None)
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--source", type=pathlib.Path, required=True)
    arguments.add_argument("--cmake", default="cmake")
    arguments.add_argument("--launcher", default="", help="ccache, to compile what is the same once")
    support.main(arguments, sys.modules[__name__])
