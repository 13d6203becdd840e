#!/usr/bin/env python3
"""Tests the service files of the event server: logrotate rotates a running server's log with the
unit's own reload command, and systemd has no complaint about the unit."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAMS = None
DEPLOY = pathlib.Path(__file__).resolve().parents[2] / "examples/deploy"
PATIENCE = 600  # seconds

# A stand-in for systemctl. $RELOAD is the service's reload command; empty means that the service is
# stopped. systemctl(1): reload then fails, and try-reload-or-restart does nothing.
SYSTEMCTL = """#!/bin/sh
[ "$2" = event_server.service ] || exit 5
case "$1:$RELOAD" in
    try-reload-or-restart:) exit 0 ;;
    reload:?*|try-reload-or-restart:?*) exec $RELOAD ;;
    *) echo "event_server.service is not active, cannot $1." >&2; exit 1 ;;
esac
"""


def setting(unit, name):
    return re.search(rf"^{name}=(.*)$", unit, re.MULTILINE).group(1)


def wait_until(condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("waited in vain")
        time.sleep(0.01)


class Deployed(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vn-deploy-")
        self.addCleanup(temporary.cleanup)
        self.top = pathlib.Path(temporary.name)
        self.logs = self.top / "logs"
        self.logs.mkdir(mode=0o755)
        self.unit = (DEPLOY / "event_server.service").read_text()

    def place(self, name, *replacements):
        """Returns the file's text with the paths of this test."""
        text = (DEPLOY / name).read_text()
        for old, new in replacements:
            self.assertEqual(text.count(old), 1, f"{old} in {name}")
            text = text.replace(old, str(new))
        path = self.top / name
        path.write_text(text)
        path.chmod(0o644)
        return path

    def start(self):
        settings = self.place("event_server.conf", ("/var/log/event_server/", f"{self.logs}/"),
                              ("port = 7007", "port = 0"))
        self.assertEqual(setting(self.unit, "ExecStart").split()[1], "/etc/event_server.conf")
        server = subprocess.Popen([PROGRAMS / "event_server", settings], stdout=subprocess.PIPE,
                                  text=True)
        self.addCleanup(server.stdout.close)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        self.assertRegex(server.stdout.readline(), r"^port \d+$")
        return server

    def rotate(self, reload):
        rotation = self.place("event_server.logrotate", ("/var/log/event_server/", f"{self.logs}/"))
        systemctl = self.top / "bin/systemctl"
        systemctl.parent.mkdir()
        systemctl.write_text(SYSTEMCTL)
        systemctl.chmod(0o755)
        return subprocess.run(["logrotate", "--force", "--state", self.top / "state", rotation],
                              env={**os.environ, "RELOAD": reload,
                                   "PATH": f"{systemctl.parent}:{os.environ['PATH']}"},
                              capture_output=True, text=True, check=False, timeout=PATIENCE)

    @unittest.skipUnless(shutil.which("logrotate"), "logrotate is not installed")
    def test_rotation(self):
        server = self.start()
        log = self.logs / "event_server.log"
        wait_until(lambda: log.exists() and log.stat().st_size > 0)
        before = log.stat().st_ino
        reload = setting(self.unit, "ExecReload").replace("$MAINPID", str(server.pid))
        done = self.rotate(reload)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        wait_until(log.exists)
        self.assertNotEqual(log.stat().st_ino, before)
        renamed = self.logs / "event_server.log.1"
        self.assertEqual(renamed.stat().st_ino, before)
        server.terminate()
        self.assertEqual(server.wait(PATIENCE), 0)
        self.assertIn(" - Ended\n", log.read_text())
        self.assertNotIn(" - Ended\n", renamed.read_text())

    @unittest.skipUnless(shutil.which("logrotate"), "logrotate is not installed")
    def test_rotation_while_the_service_is_stopped(self):
        log = self.logs / "event_server.log"
        log.write_text("a last line\n")
        done = self.rotate("")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertFalse(log.exists())
        self.assertEqual((self.logs / "event_server.log.1").read_text(), "a last line\n")

    def test_the_rotation_never_copies(self):
        lines = (DEPLOY / "event_server.logrotate").read_text().splitlines()
        words = {line.split()[0] for line in lines if line.strip() and line[0] != "#"}
        self.assertFalse(words & {"copytruncate", "copy", "create"})

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_the_unit(self):
        unit = self.place("event_server.service",
                          ("/usr/local/bin/event_server", PROGRAMS / "event_server"))
        done = subprocess.run(["systemd-analyze", "verify", "--man=no", "--recursive-errors=no",
                               unit], capture_output=True, text=True, check=False, timeout=PATIENCE)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(setting(self.unit, "Type"), "notify")

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_the_sandbox(self):
        unit = self.place("event_server.service")
        done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", unit],
                              capture_output=True, text=True, check=False, timeout=PATIENCE)
        self.assertRegex(done.stdout, r"Overall exposure level for .*: [\d.]+ (OK|SAFE|PERFECT)\b",
                         done.stderr)


if __name__ == "__main__":
    PROGRAMS = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main(verbosity=2)
