#!/usr/bin/env python3
"""Installs the Debian packages on this machine, builds the README's programs against them, runs the
programs and removes the packages. Exits with 77 if skipped."""
import argparse
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

import support

OPTIONS = None
SKIPPED = 77
PACKAGES = ["libvncommon1", "libvncommon-dev", "libvncommon-java", "vninfo"]
LOCK_PATIENCE = 600  # seconds; another package manager may be at work


def dpkg(*arguments):
    end = time.monotonic() + LOCK_PATIENCE
    while True:
        done = subprocess.run(["dpkg", *arguments], text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False)
        if done.returncode == 0:
            return done.stdout
        if "lock" not in done.stdout or time.monotonic() > end:
            raise AssertionError(f"dpkg {arguments} ended with {done.returncode}:\n{done.stdout}")
        time.sleep(1)


def known(package):
    return subprocess.run(["dpkg", "-s", package], capture_output=True, check=False).returncode == 0


def reason_to_stand_back():
    if os.environ.get("VN_KEEP_SYSTEM"):
        return "VN_KEEP_SYSTEM is set"
    if os.geteuid() != 0:
        return "installing packages takes root"
    present = [package for package in PACKAGES if known(package)]
    return f"installed already: {', '.join(present)}" if present else None


class InstalledPackages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.addClassCleanup(cls.purge)
        dpkg("--install", *sorted(OPTIONS.packages.glob("*.deb")))
        cls.temporary = tempfile.TemporaryDirectory(prefix="vn-packages-")
        cls.addClassCleanup(cls.temporary.cleanup)
        cls.work = pathlib.Path(cls.temporary.name)
        cls.readme = support.Readme(OPTIONS.readme)
        cls.readme.write(cls.work)
        cls.environment = {name: value for name, value in os.environ.items()
                           if name not in ("LD_LIBRARY_PATH", "PKG_CONFIG_PATH", "CPATH")}

    @classmethod
    def purge(cls):
        dpkg("--purge", *(package for package in reversed(PACKAGES) if known(package)))
        left = [path for path in ["/usr/include/vncommon", "/usr/bin/vninfo"]
                if os.path.exists(path)]
        if left:
            raise AssertionError(f"left behind: {left}")

    def test_the_readme_command(self):
        support.run(["sh", "-ec", self.readme.command], cwd=self.work, env=self.environment)
        support.check_hello(self, self.work / "a.out", env=self.environment)

    def test_without_pkg_config(self):
        support.run(["c++", "-std=c++17", "-o", "cpp17", "hello.cpp", "-lvncommon"], cwd=self.work,
                    env=self.environment)
        support.check_hello_cpp(self, self.work / "cpp17", env=self.environment)

    def test_through_cmake(self):
        build = support.build_with_cmake(OPTIONS.cmake, self.work)
        support.check_hello(self, build / "hello", env=self.environment)

    def test_the_tool(self):
        self.assertRegex(support.run(["vninfo", "--version"], env=self.environment),
                         r"^vninfo \d+\.\d+\.\d+\n$")


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--packages", type=pathlib.Path, required=True)
    arguments.add_argument("--cmake", default="cmake")
    arguments.add_argument("--readme", type=pathlib.Path, required=True)
    REASON = reason_to_stand_back()
    if REASON:
        print(f"nothing was installed: {REASON}")
        sys.exit(SKIPPED)
    support.main(arguments, sys.modules[__name__])
