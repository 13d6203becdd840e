#!/usr/bin/env python3
"""Tests vninfo with control-group trees, environments and configuration files of the test."""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

VNINFO = None
MIB = 1 << 20
PHYSICAL = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGESIZE")


def machine_processors():
    lines = pathlib.Path("/proc/cpuinfo").read_text().splitlines()
    return sum(line.startswith("processor") for line in lines)


class Base(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vninfo-")
        self.addCleanup(temporary.cleanup)
        self.top = pathlib.Path(temporary.name)
        self.root = self.top / "cgroup"
        self.home = self.top / "home"
        self.home.mkdir()
        self.write("self", "")
        self.environment = {"VN_CGROUPS_ROOT": str(self.root), "HOME": str(self.home),
                            "VN_CGROUPS_SELF": str(self.top / "self"), "LANG": "C.UTF-8"}
        for name in ["ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"]:
            if name in os.environ:
                self.environment[name] = os.environ[name]

    def write(self, name, text):
        path = self.top / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        return path

    def start(self, *arguments, **variables):
        environment = {**self.environment, **variables}
        environment = {name: value for name, value in environment.items() if value is not None}
        return subprocess.run([VNINFO, *arguments], env=environment, cwd=self.top,
                              capture_output=True, check=False)

    def text(self, *arguments, **variables):
        done = self.start(*arguments, **variables)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return done.stdout.decode()

    def facts(self, *arguments, **variables):
        return json.loads(self.text("--json", *arguments, **variables))


def source(resource, name):
    return next(one for one in resource["sources"] if one["name"] == name)


def winners(resource):
    return [one["name"] for one in resource["sources"] if one["wins"]]


class Limits(Base):
    def unified(self, cpu="max 100000", memory="max"):
        self.write("self", "0::/app.slice\n")
        self.write("cgroup/app.slice/cpu.max", cpu + "\n")
        self.write("cgroup/app.slice/memory.max", memory + "\n")

    def version1(self, quota="-1", period="100000", memory=str((1 << 63) - 4096)):
        self.write("self", "4:cpu,cpuacct:/docker/x\n5:memory:/docker/x\n")
        self.write("cgroup/cpu/docker/x/cpu.cfs_quota_us", quota + "\n")
        self.write("cgroup/cpu/docker/x/cpu.cfs_period_us", period + "\n")
        self.write("cgroup/memory/docker/x/memory.limit_in_bytes", memory + "\n")

    def test_no_control_groups(self):
        facts = self.facts()
        self.assertEqual(facts["processors"]["usable"], machine_processors())
        self.assertEqual(facts["processors"]["count"], machine_processors())
        self.assertEqual(winners(facts["processors"]), ["cpuinfo"])
        self.assertEqual(facts["memory"]["usable_bytes"], PHYSICAL)
        self.assertEqual(winners(facts["memory"]), ["physical"])
        for resource in facts["processors"], facts["memory"]:
            for name in "control-groups-v1", "control-groups-v2":
                self.assertEqual(source(resource, name),
                                 {"name": name, "value": None, "reason": "no such group",
                                  "wins": False, "readings": []})
        self.assertIn("control-groups-v2  no such group", self.text())
        self.assertEqual(winners(self.facts(VN_CGROUPS_SELF="/no/such/file")["memory"]),
                         ["physical"])

    def test_version_2(self):
        self.unified(cpu="25000 100000", memory=str(64 * MIB))
        facts = self.facts()
        self.assertEqual(facts["processors"]["usable"], 0.25)
        self.assertEqual(facts["processors"]["count"], 1)
        self.assertEqual(winners(facts["processors"]), ["control-groups-v2"])
        self.assertEqual(source(facts["processors"], "control-groups-v2")["readings"],
                         [{"file": f"{self.root}/app.slice/cpu.max", "text": "25000 100000"}])
        self.assertEqual(facts["memory"]["usable_bytes"], 64 * MIB)
        self.assertEqual(winners(facts["memory"]), ["control-groups-v2"])
        self.assertEqual(source(facts["memory"], "control-groups-v2")["readings"],
                         [{"file": f"{self.root}/app.slice/memory.max", "text": str(64 * MIB)}])

    def test_version_1(self):
        self.version1(quota="50000", memory=str(32 * MIB))
        facts = self.facts()
        self.assertEqual(facts["processors"]["usable"], 0.5)
        self.assertEqual(winners(facts["processors"]), ["control-groups-v1"])
        self.assertEqual(source(facts["processors"], "control-groups-v1")["readings"],
                         [{"file": f"{self.root}/cpu/docker/x/cpu.cfs_quota_us", "text": "50000"},
                          {"file": f"{self.root}/cpu/docker/x/cpu.cfs_period_us",
                           "text": "100000"}])
        self.assertEqual(facts["memory"]["usable_bytes"], 32 * MIB)
        self.assertEqual(winners(facts["memory"]), ["control-groups-v1"])

    def test_groups_without_a_limit(self):
        self.version1()
        facts = self.facts()
        self.assertEqual(winners(facts["processors"]), ["cpuinfo"])
        self.assertEqual(winners(facts["memory"]), ["physical"])
        self.assertIsNone(source(facts["memory"], "control-groups-v1")["value"])
        self.assertIn("control-groups-v1  no limit", self.text())

    def reasons(self, resource):
        return {one["name"]: one["reason"] for one in self.facts()[resource]["sources"]}

    def test_the_reason_for_a_missing_limit(self):
        self.unified(cpu="much 100000", memory="some")
        self.version1(quota="50000", period="long")
        self.write("self", "4:cpu:/docker/x\n5:memory:/docker/x\n0::/app.slice\n")
        self.assertEqual(self.reasons("processors"),
                         {"override": "not set", "cpuinfo": None,
                          "control-groups-v1": "not a number", "control-groups-v2": "not a number"})
        self.assertEqual(self.reasons("memory"),
                         {"physical": None, "control-groups-v1": "no limit",
                          "control-groups-v2": "not a number"})
        self.assertIn("control-groups-v2  not a number", self.text())
        self.write("cgroup/app.slice/cpu.max", "50000\n")
        self.assertEqual(self.reasons("processors")["control-groups-v2"], "not a number")
        self.write("cgroup/app.slice/cpu.max", "")
        self.assertEqual(self.reasons("processors")["control-groups-v2"], "no limit")
        self.write("cgroup/app.slice/cpu.max", "\n")
        self.assertEqual(self.reasons("processors")["control-groups-v2"], "not a number")
        self.version1(quota="-1", period="long")
        self.assertEqual(self.reasons("processors")["control-groups-v1"], "no limit")
        os.unlink(self.root / "cpu/docker/x/cpu.cfs_quota_us")
        self.assertEqual(self.reasons("processors")["control-groups-v1"], "no limit")
        self.write("self", "4:cpu:/gone\n")
        shutil.rmtree(self.root)
        self.assertEqual(self.reasons("processors")["control-groups-v1"], "no such group")

    def test_the_smaller_limit_wins(self):
        self.unified(cpu="30000 100000", memory=str(8 * MIB))
        self.version1(quota="20000", memory=str(16 * MIB))
        self.write("self", "4:cpu:/docker/x\n5:memory:/docker/x\n0::/app.slice\n")
        facts = self.facts()
        self.assertEqual(winners(facts["processors"]), ["control-groups-v1"])
        self.assertEqual(source(facts["processors"], "control-groups-v2")["value"], 0.3)
        self.assertEqual(winners(facts["memory"]), ["control-groups-v2"])
        self.assertEqual(source(facts["memory"], "control-groups-v1")["value"], 16 * MIB)

    def test_override(self):
        facts = self.facts(VN_ASSUME_CPUS="7 or so")
        self.assertEqual([one["name"] for one in facts["processors"]["sources"]],
                         ["override", "control-groups-v1", "control-groups-v2"])
        self.assertEqual(source(facts["processors"], "override"),
                         {"name": "override", "value": 7, "reason": None, "wins": True,
                          "readings": [{"variable": "VN_ASSUME_CPUS", "text": "7 or so"}]})
        self.assertEqual(facts["processors"]["usable"], 7)

    def test_a_limit_below_the_override(self):
        self.unified(cpu="250000 100000")
        facts = self.facts(VN_ASSUME_CPUS="7")
        self.assertEqual(winners(facts["processors"]), ["control-groups-v2"])
        self.assertEqual((facts["processors"]["usable"], facts["processors"]["count"]), (2.5, 3))

    def test_an_override_that_says_nothing(self):
        facts = self.facts(VN_ASSUME_CPUS="none")
        self.assertEqual(winners(facts["processors"]), ["cpuinfo"])
        self.assertIn("override           not a positive number", self.text(VN_ASSUME_CPUS="0"))
        self.assertIn("override           not set", self.text())

    def test_text_for_people(self):
        self.unified(cpu="150000 100000", memory=str(64 * MIB))
        text = self.text(VN_ASSUME_CPUS="4")
        for line in ["Processors      1.5 usable, counted as 2\n",
                     "    override           4\n        VN_ASSUME_CPUS: 4\n",
                     "  * control-groups-v2  1.5\n"
                     f"        {self.root}/app.slice/cpu.max: 150000 100000\n",
                     "Memory          64.0 MiB usable\n",
                     f"    physical           {PHYSICAL / MIB:.1f} MiB\n",
                     "  * control-groups-v2  64.0 MiB\n",
                     "Code page       UTF-8\n    from LANG\n", "Log level       INFO\n"]:
            self.assertIn(line, text)


class NotConsidered(Base):
    """Limits of the process that the library does not consider."""

    @staticmethod
    def parents(resource, version):
        return next(one for one in resource["not_considered"]
                    if one["name"] == f"parent-groups-{version}")

    def test_affinity(self):
        mine = os.sched_getaffinity(0)
        online = os.sysconf("SC_NPROCESSORS_ONLN")
        self.addCleanup(os.sched_setaffinity, 0, mine)
        os.sched_setaffinity(0, {min(mine)})
        facts = self.facts(VN_ASSUME_CPUS="4")["processors"]
        self.assertEqual((facts["usable"], facts["online"]), (4, online))
        self.assertEqual(facts["not_considered"][0],
                         {"name": "affinity", "value": 1, "reason": None, "tighter": True,
                          "readings": []})
        text = self.text(VN_ASSUME_CPUS="4")
        self.assertIn(f"  ! affinity           1 of {online} processors "
                      "(not considered by the library)\n", text)
        self.assertIn("\nOne marked ! is tighter", text)
        facts = self.facts(VN_ASSUME_CPUS="1")["processors"]
        self.assertFalse(facts["not_considered"][0]["tighter"])
        self.assertNotIn(" ! ", self.text(VN_ASSUME_CPUS="1"))

    def test_parents_of_version_2(self):
        self.write("self", "0::/a/b/c\n")
        self.write("cgroup/a/b/c/cpu.max", "50000 100000\n")
        self.write("cgroup/a/b/c/memory.max", f"{64 * MIB}\n")
        self.write("cgroup/a/b/cpu.max", "30000 100000\n")
        self.write("cgroup/a/b/memory.max", "max\n")
        self.write("cgroup/a/cpu.max", "20000 100000\n")
        self.write("cgroup/a/memory.max", f"{128 * MIB}\n")
        facts = self.facts()
        self.assertEqual((facts["processors"]["usable"], facts["memory"]["usable_bytes"]),
                         (0.5, 64 * MIB))
        self.assertEqual(self.parents(facts["processors"], "v2"),
                         {"name": "parent-groups-v2", "value": 0.2, "reason": None, "tighter": True,
                          "readings": [{"file": f"{self.root}/a/cpu.max",
                                        "text": "20000 100000"}]})
        self.assertEqual(self.parents(facts["memory"], "v2"),
                         {"name": "parent-groups-v2", "value": 128 * MIB, "reason": None,
                          "tighter": False,
                          "readings": [{"file": f"{self.root}/a/memory.max",
                                        "text": str(128 * MIB)}]})
        self.assertIn(f"  ! parent-groups-v2   0.2 of {facts['processors']['online']} processors "
                      "(not considered by the library)\n"
                      f"        {self.root}/a/cpu.max: 20000 100000\n", self.text())

    def test_parents_of_version_1(self):
        self.write("self", "4:cpu:/docker/x\n5:memory:/docker/x\n")
        (self.root / "cpu/docker/x").mkdir(parents=True)
        (self.root / "memory/docker/x").mkdir(parents=True)
        self.write("cgroup/cpu/docker/cpu.cfs_quota_us", "25000\n")
        self.write("cgroup/cpu/docker/cpu.cfs_period_us", "100000\n")
        self.write("cgroup/memory/memory.limit_in_bytes", f"{32 * MIB}\n")
        facts = self.facts()
        self.assertEqual(self.parents(facts["processors"], "v1")["value"], 0.25)
        self.assertEqual(self.parents(facts["memory"], "v1")["value"], 32 * MIB)
        self.assertEqual(facts["memory"]["usable_bytes"], PHYSICAL)
        self.assertIn("  ! parent-groups-v1   32.0 MiB (not considered by the library)\n",
                      self.text())

    def test_groups_without_parents(self):
        for line in ["", "0::/\n", "0::/../x\n"]:
            self.write("self", line)
            self.write("cgroup/memory.max", f"{MIB}\n")
            found = self.parents(self.facts()["memory"], "v2")
            self.assertEqual((found["value"], found["reason"]), (None, "no such group"), line)
        self.write("self", "0::/a\n")
        self.write("cgroup/a/memory.max", "max\n")
        self.write("cgroup/memory.max", "max\n")
        self.assertEqual(self.parents(self.facts()["memory"], "v2")["reason"], "no limit")


class Surroundings(Base):
    def test_machine(self):
        facts = self.facts()
        self.assertTrue(facts["cpu"] and facts["platform"])
        self.assertGreater(facts["process"]["virtual_bytes"], facts["process"]["resident_bytes"])
        self.assertGreater(facts["process"]["resident_bytes"], 0)
        self.assertEqual(facts["control_groups"],
                         {"root": str(self.root), "self": str(self.top / "self")})
        facts = self.facts(VN_CGROUPS_ROOT=None, VN_CGROUPS_SELF=None)
        self.assertEqual(facts["control_groups"],
                         {"root": "/sys/fs/cgroup", "self": "/proc/self/cgroup"})

    def test_no_path_has_doubled_slashes(self):
        self.write("self", "0::/a\n")
        self.write("cgroup/a/cpu.max", "max 100000\n")
        self.write("home/.vantrel.conf", "first\n")
        places = {"VN_CGROUPS_ROOT": f"{self.root}//", "VN_CGROUPS_SELF": f"{self.top}//self",
                  "HOME": f"{self.home}//"}
        for arguments in [[], ["--json"]]:
            text = self.text(*arguments, **places)
            self.assertIn("cgroup/a/cpu.max", text)
            self.assertNotIn("//", text)

    def test_code_page(self):
        self.assertEqual(self.facts()["code_page"], {"name": "UTF-8", "variable": "LANG"})
        self.assertEqual(self.facts(LC_CTYPE="de_DE.ISO-8859-1")["code_page"],
                         {"name": "ISO-8859-1", "variable": "LC_CTYPE"})
        self.assertEqual(self.facts(LC_ALL="C", LC_CTYPE="de_DE.ISO-8859-1")["code_page"],
                         {"name": None, "variable": "LC_ALL"})
        self.assertEqual(self.facts(LANG=None)["code_page"], {"name": None, "variable": None})

    def test_configuration(self):
        nothing = {"file": None, "loaded": False, "categories": 0, "entries": 0,
                   "tried": [".vantrel.conf", f"{self.home}/.vantrel.conf"]}
        self.assertEqual(self.facts()["configuration"], nothing)
        at_home = self.write("home/.vantrel.conf", "first\n[a]\nsecond\nthird\n[b]\n")
        found = {**nothing, "file": str(at_home), "loaded": True, "categories": 3, "entries": 3}
        self.assertEqual(self.facts()["configuration"], found)
        self.write(".vantrel.conf", "[here]\n")
        found.update(file=".vantrel.conf", categories=2, entries=0)
        self.assertEqual(self.facts()["configuration"], found)
        self.write("given", "one\ntwo\n")
        found.update(file="given", categories=1, entries=2, tried=["given", *nothing["tried"]])
        self.assertEqual(self.facts("--config", "given")["configuration"], found)

    def test_configuration_of_another_home(self):
        other = self.write("other/.vantrel.conf", "one\n")
        found = self.facts(HOME=None, VANTREL_HOME=str(other.parent))["configuration"]
        self.assertEqual((found["file"], found["tried"][1]), (str(other), str(other)))
        self.assertIsNone(self.facts(VANTREL_HOME=str(other.parent))["configuration"]["file"])

    def test_a_configuration_that_cannot_be_read(self):
        (self.top / "folder").mkdir()
        found = self.facts("--config", "folder")["configuration"]
        self.assertEqual((found["file"], found["loaded"]), (None, True))
        self.assertIn("reading failed", self.text("--config", "folder"))

    def test_level_variables(self):
        levels = {"trace": "TRACE", "D": "DEBUG", "info": "INFO", "W": "WARN", "error": "ERROR",
                  "F": "FATAL", "crit": "CRIT", "A": "CRIT", "off": "OFF", "x": "INFO", "": "INFO",
                  None: "INFO"}
        for value, level in levels.items():
            log = self.facts("--level-variable", "CATEGORY", CATEGORY=value)["log"]
            self.assertEqual(log, {"level": "INFO", "variables": [
                {"variable": "CATEGORY", "text": value, "level": level}]})
        two = self.facts("--level-variable", "ONE", "--level-variable", "TWO", ONE="T", TWO="E")
        self.assertEqual([one["level"] for one in two["log"]["variables"]], ["TRACE", "ERROR"])
        self.assertIn("TRACE for lines that name ONE (T)",
                      self.text("--level-variable", "ONE", ONE="T"))


class Commands(Base):
    def test_json_is_ascii_whatever_the_texts_hold(self):
        awkward = "q\"\\/\n\t\x7f\u00fc\u20ac\U0001f600"
        done = self.start("--json", "--level-variable", "V", V=awkward)
        self.assertTrue(done.stdout.isascii())
        self.assertEqual(json.loads(done.stdout)["log"]["variables"][0]["text"], awkward)
        done = self.start("--json", "--level-variable", "V", V=b"a\xff\xed\xa0\x80b")
        self.assertEqual(json.loads(done.stdout)["log"]["variables"][0]["text"],
                         "a" + "\ufffd" * 4 + "b")

    def test_help_and_version(self):
        self.assertIn("Usage: vninfo", self.text("--help"))
        self.assertEqual(self.text("-h"), self.text("--help"))
        self.assertRegex(self.text("--version"), r"^vninfo \d+\.\d+\.\d+\n$")
        self.assertEqual("vninfo " + self.facts()["version"] + "\n", self.text("--version"))

    def test_wrong_arguments(self):
        for arguments, message in [
                (["--jason"], "unknown argument '--jason'"), (["x"], "unknown argument 'x'"),
                (["--level-variable"], "a value must follow '--level-variable'"),
                (["--json", "--config"], "a value must follow '--config'")]:
            done = self.start(*arguments)
            self.assertEqual((done.returncode, done.stdout), (2, b""))
            self.assertEqual(done.stderr.decode(), f"vninfo: {message}; see vninfo --help\n")

    def test_a_report_that_cannot_be_written(self):
        for arguments in [[], ["--json"], ["--help"]]:
            with open("/dev/full", "wb") as full:
                done = subprocess.run([VNINFO, *arguments], stdout=full, env=self.environment,
                                      stderr=subprocess.PIPE, check=False)
            self.assertEqual((done.returncode, done.stderr.decode()),
                             (1, "vninfo: writing failed: No space left on device\n"))


if __name__ == "__main__":
    VNINFO = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)
