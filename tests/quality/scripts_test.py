#!/usr/bin/env python3
"""Every script explains itself, and refuses an argument that it does not know with one line."""
import pathlib
import subprocess
import tempfile
import unittest

SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / "scripts"


def scripts():
    return sorted(path for path in SCRIPTS.iterdir() if path.is_file() and path.suffix != ".sh")


def run(*command):
    with tempfile.TemporaryDirectory(prefix="vn-scripts-") as elsewhere:
        return subprocess.run(command, cwd=elsewhere, text=True, capture_output=True, check=False,
                              stdin=subprocess.DEVNULL, timeout=600)


class Scripts(unittest.TestCase):
    def test_help(self):
        for script in scripts():
            with self.subTest(script.name):
                done = run(script, "--help")
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertRegex(done.stdout, rf"\A[Uu]sage: scripts/{script.name}\b")
                self.assertGreater(len(done.stdout.splitlines()), 2)

    def test_an_unknown_argument(self):
        for script in scripts():
            with self.subTest(script.name):
                done = run(script, "--no-such-option")
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                message = done.stderr.splitlines()[-1]
                self.assertIn(f"{script.name}: ", message)
                self.assertIn("--no-such-option", message)

    def test_a_failed_configuration_names_its_log(self):
        with tempfile.TemporaryDirectory(prefix="vn-scripts-") as folder:
            top = pathlib.Path(folder)
            (top / "scripts").mkdir()
            (top / "scripts/lib.sh").write_text((SCRIPTS / "lib.sh").read_text())
            (top / "CMakeLists.txt").write_text("message(FATAL_ERROR wrong)\n")
            script = top / "scripts/make"
            script.write_text("#!/usr/bin/env bash\n. \"$(dirname \"$0\")/lib.sh\"\n"
                              "configure build/all\n")
            done = run("bash", script)
            self.assertEqual((done.returncode, done.stdout), (1, "== configure build/all\n"))
            self.assertIn("make: configure failed; see build/all.log", done.stderr)
            self.assertIn("wrong", (top / "build/all.log").read_text())


if __name__ == "__main__":
    unittest.main(verbosity=2)
