#!/usr/bin/env python3
"""Compares the binary interface of the library, read from its debug information, with the recorded
one (vncommon.abi): every exported name, every signature, the layout of every record. Also shows
that a change of any of these would be noticed. --renew rewrites the record."""
import argparse
import difflib
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

FOLDER = pathlib.Path(__file__).resolve().parent
BASELINE = FOLDER / "vncommon.abi"
SUPPRESSIONS = FOLDER / "c_library.suppr"
OPTIONS = None
# Entries written in assembly have no type in the debug information; it is given here.
WORDS = ["Trace", "Debug", "Info", "Warn", "Error", "Fatal", "Crit", "Force"]
ENTRIES = {**{f"VN_Log{word}": "const char* format, ..." for word in WORDS},
           **{f"FileLogger_Log{word}": "FileLogger* logger, const char* format, ..."
              for word in WORDS}}
ADVICE = """
The binary interface is not the recorded one. Programs that are compiled already rely on it.
If the change is meant: scripts/abi-baseline tells what to do."""


def dump(library, source):
    """The interface as abidw writes it, without anything that depends on where it was built."""
    text = subprocess.run(
        ["abidw", "--headers-dir", source / "include", "--exported-interfaces-only",
         "--drop-private-types", "--drop-undefined-syms", "--no-show-locs", "--no-comp-dir-path",
         "--no-corpus-path", "--no-elf-needed", "--no-parameter-names", "--no-write-default-sizes",
         "--type-id-style", "hash", library], check=True, capture_output=True, text=True).stdout
    return text.replace(f"path='{source}/", "path='")


def headers_of(source):
    return "".join(path.read_text() for path in source.glob("include/vncommon/*.h"))


def compare(old, new):
    """abidiff's verdict and report on two such texts."""
    with tempfile.TemporaryDirectory() as folder:
        paths = [pathlib.Path(folder, name) for name in ("recorded.abi", "built.abi")]
        for path, text in zip(paths, (old, new)):
            path.write_text(text)
        done = subprocess.run(["abidiff", "--harmless", "--suppressions", SUPPRESSIONS, *paths], capture_output=True, text=True,
                              check=False)
    if done.returncode & 3:
        raise AssertionError(f"abidiff failed:\n{done.stdout}{done.stderr}")
    return done.returncode != 0, done.stdout


class Interface(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.recorded = BASELINE.read_text()
        cls.built = dump(OPTIONS.library, OPTIONS.source)

    def test_it_is_the_recorded_one(self):
        changed, report = compare(self.recorded, self.built)
        self.assertFalse(changed, "\n" + report + ADVICE)

    def test_every_export_is_recorded_with_its_type(self):
        typed = set(re.findall(r"elf-symbol-id='([^'@]+)", self.recorded))
        listed = {line.split("#")[0].strip() for path in (FOLDER / "exports").glob("*.txt")
                  for line in path.read_text().splitlines()}
        listed = {name for name in listed if re.fullmatch(r"\w+", name)}
        self.assertTrue(listed)
        self.assertEqual(listed - typed - set(ENTRIES), set())

    def test_the_entries_without_type(self):
        headers = headers_of(OPTIONS.source)
        for name, parameters in ENTRIES.items():
            self.assertIn(f"<elf-symbol name='{name}' ", self.recorded)
            self.assertIn(f"\nVN_API void {name}({parameters}) ", headers)

    def test_every_record_is_recorded_with_its_layout(self):
        records = set(re.findall(r"^(?:typedef )?struct (\w+) \{", headers_of(OPTIONS.source),
                                 re.MULTILINE))
        self.assertGreaterEqual(records, {"Vector", "HashMap", "CStringBuffer", "FileLogger",
                                          "VN_EventWriter", "VN_TimestampSet", "vn_qtsQueue"})
        laid_out = set(re.findall(r"<class-decl name='(\w+)' size-in-bits='\d+'", self.recorded))
        self.assertEqual(records - laid_out, set())

    def test_the_record_names_no_place(self):
        for text in (self.recorded, self.built):
            self.assertEqual(re.findall(r"='/[^']*'", text), [])


class Noticed(unittest.TestCase):
    """Each test changes the recorded interface as a program's author never should."""

    def setUp(self):
        self.recorded = BASELINE.read_text()
        self.tree = xml.etree.ElementTree.fromstring(self.recorded)

    def report(self):
        changed, report = compare(self.recorded,
                                  xml.etree.ElementTree.tostring(self.tree, encoding="unicode"))
        self.assertTrue(changed)
        return report

    def members(self, record):
        return self.tree.findall(f".//class-decl[@name='{record}']/data-member")

    def test_nothing_is_noticed_where_nothing_changed(self):
        self.assertEqual(compare(self.recorded, xml.etree.ElementTree.tostring(
            self.tree, encoding="unicode"))[0], False)

    def test_members_that_change_places(self):
        for record in ["Vector", "HashMap", "CStringBuffer", "FileLogger", "VN_EventWriter",
                       "VN_TimestampSetFunctionTable", "vn_qtsQueue"]:
            self.tree = xml.etree.ElementTree.fromstring(self.recorded)
            first, second = self.members(record)[:2]
            key = "layout-offset-in-bits"
            first.attrib[key], second.attrib[key] = second.attrib[key], first.attrib[key]
            self.assertIn(record, self.report())

    def test_a_record_that_grows(self):
        record = self.tree.find(".//class-decl[@name='VN_TimestampSet']")
        record.attrib["size-in-bits"] = "192"
        self.assertIn("type size changed from 128 to 192", self.report())

    def test_a_member_that_changes_its_type(self):
        flag = self.tree.find(".//type-decl[@name='bool']").attrib["id"]
        self.members("FileLogger")[0].find("var-decl").attrib["type-id"] = flag
        self.assertIn("type of 'uint32_t level' changed", self.report())

    def test_a_parameter_that_changes_its_type(self):
        flag = self.tree.find(".//type-decl[@name='bool']").attrib["id"]
        function = self.tree.find(".//function-decl[@name='vn_Vector_add']")
        function.findall("parameter")[1].attrib["type-id"] = flag
        self.assertIn("vn_Vector_add", self.report())

    def test_a_result_that_changes_its_type(self):
        flag = self.tree.find(".//type-decl[@name='bool']").attrib["id"]
        self.tree.find(".//function-decl[@name='vn_numberOfCPUs']/return").attrib["type-id"] = flag
        self.assertIn("return type changed", self.report())

    def remove_export(self, name):
        symbols = self.tree.find("elf-function-symbols")
        symbols.remove(symbols.find(f"elf-symbol[@name='{name}']"))
        for unit in self.tree.findall("abi-instr"):
            for function in unit.findall(f"function-decl[@name='{name}']"):
                unit.remove(function)

    def test_an_export_that_is_gone(self):
        self.remove_export("vn_strtod")
        self.assertIn("1 Removed", self.report())

    def test_an_export_that_is_new(self):
        self.remove_export("vn_strtod")
        smaller = xml.etree.ElementTree.tostring(self.tree, encoding="unicode")
        changed, report = compare(smaller, self.recorded)
        self.assertTrue(changed)
        self.assertIn("vn_strtod", report)


def renew():
    old = BASELINE.read_text() if BASELINE.exists() else ""
    new = dump(OPTIONS.library, OPTIONS.source)
    if "<abi-instr" not in new:
        sys.exit(f"{OPTIONS.library} holds no debug information; build with -g")
    changed, report = compare(old, new) if old else (True, "A first record.\n")
    print(report if changed else "The interface has not changed.")
    changes = list(difflib.unified_diff(old.splitlines(), new.splitlines(), lineterm="", n=0))
    BASELINE.write_text(new)
    print(f"{BASELINE.name} is written, {max(0, len(changes) - 2)} lines of difference")


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--renew", action="store_true", help="write the record anew")
    arguments.add_argument("--library", type=pathlib.Path, required=True,
                           help="libvncommon.so with debug information")
    arguments.add_argument("--source", type=pathlib.Path, required=True, help="top of the tree")
    OPTIONS, REST = arguments.parse_known_args()
    OPTIONS.source = OPTIONS.source.resolve()
    if OPTIONS.renew:
        renew()
    else:
        unittest.main(argv=[sys.argv[0], *REST], verbosity=2)
