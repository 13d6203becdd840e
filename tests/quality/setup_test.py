#!/usr/bin/env python3
"""Tests scripts/setup on simulated machines: the package tools are stand-ins that answer from a
list and record their calls."""
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SETUP = pathlib.Path(__file__).resolve().parents[2] / "scripts/setup"
LIBRARY = ["g++", "cmake", "ninja-build", "patch", "libicu-dev", "libintelrdfpmath-dev",
           "newlib-source", "nlohmann-json3-dev"]

# Like dpkg-query: the status is 1 if any of the packages is unknown.
QUERY = """#!/bin/bash
status=0
for package in "${@:3}"; do
    grep -xF -e "ii $package" -e "rc $package" "$MACHINE/packages" || status=1
done
exit $status
"""
NOTE = '#!/bin/bash\necho "${0##*/} $*" >> "$MACHINE/calls"\n'


class Machine(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vn-setup-")
        self.addCleanup(temporary.cleanup)
        self.top = pathlib.Path(temporary.name)
        self.tools = self.top / "bin"
        self.tools.mkdir()
        for tool in ["bash", "dirname", "env", "grep", "sed"]:
            (self.tools / tool).symlink_to(shutil.which(tool))
        self.tool("dpkg-query", QUERY)
        self.tool("apt-get", NOTE)
        self.tool("id", "#!/bin/bash\necho 0\n")
        self.packages([])

    def tool(self, name, text):
        (self.tools / name).write_text(text)
        (self.tools / name).chmod(0o755)

    def packages(self, installed, removed=()):
        lines = [f"ii {name}" for name in installed] + [f"rc {name}" for name in removed]
        (self.top / "packages").write_text("".join(line + "\n" for line in lines))

    def setup(self, *arguments):
        return subprocess.run([SETUP, *arguments], env={"PATH": str(self.tools),
                              "MACHINE": str(self.top)}, text=True, capture_output=True,
                              cwd=self.top, check=False)

    def calls(self):
        path = self.top / "calls"
        return path.read_text().splitlines() if path.exists() else []

    def test_a_fresh_machine_gets_everything(self):
        done = self.setup("--minimal")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        update, install = self.calls()
        self.assertTrue(update.endswith(" update"), update)
        self.assertTrue(install.endswith(" ".join(LIBRARY)), install)

    def test_a_fresh_machine_is_told_what_is_missing(self):
        done = self.setup("--minimal", "--check")
        self.assertEqual((done.returncode, done.stdout),
                         (1, f"setup: missing: {' '.join(LIBRARY)}\n"))
        self.assertEqual(self.calls(), [])

    def test_only_what_is_missing_is_installed(self):
        self.packages(LIBRARY[1:-1], removed=LIBRARY[-1:])
        self.assertEqual(self.setup("--minimal").returncode, 0)
        self.assertTrue(self.calls()[1].endswith(f" {LIBRARY[0]} {LIBRARY[-1]}"), self.calls())

    def test_a_second_run_is_silent(self):
        self.packages(LIBRARY)
        for arguments in [["--minimal"], ["--minimal", "--check"]]:
            done = self.setup(*arguments)
            self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        self.assertEqual(self.calls(), [])

    def test_more_than_the_library_without_minimal(self):
        done = self.setup("--check")
        self.assertIn(" ".join(LIBRARY) + " libgtest-dev", done.stdout)

    def test_users_go_through_sudo_or_are_told(self):
        self.tool("id", "#!/bin/bash\necho 1000\n")
        done = self.setup("--minimal")
        self.assertEqual(done.returncode, 1)
        self.assertIn("install them as root, or install sudo", done.stderr)
        self.tool("sudo", NOTE)
        self.assertEqual(self.setup("--minimal").returncode, 0)
        self.assertTrue(all(call.startswith("sudo apt-get ") for call in self.calls()))
        self.assertEqual(len(self.calls()), 2)

    def test_failures_say_what_to_do(self):
        for step, advice in [("update", "check the network"), ("install", "run scripts/setup again")]:
            self.tool("apt-get", f'#!/bin/bash\n[[ " $* " != *" {step} "* ]]\n')
            done = self.setup("--minimal")
            self.assertEqual(done.returncode, 1)
            self.assertIn(advice, done.stderr)

    def test_an_architecture_without_packages_is_removed_again(self):
        self.tool("dpkg", '#!/bin/bash\necho "dpkg $*" >> "$MACHINE/calls"\n')
        for step in ["update", "install"]:
            self.tool("apt-get", f'#!/bin/bash\n[[ " $* " != *" {step} "* ]]\n')
            self.assertEqual(self.setup("--cross", "s390x").returncode, 1)
            self.assertEqual(self.calls()[-1], "dpkg --remove-architecture s390x")
        self.tool("apt-get", NOTE)
        self.assertEqual(self.setup("--cross", "s390x").returncode, 0)
        self.assertIn("libgmock-dev:s390x", self.calls()[-1])

    def test_an_unknown_argument(self):
        done = self.setup("--everything")
        self.assertEqual(done.returncode, 2)
        self.assertIn("scripts/setup --help", done.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
