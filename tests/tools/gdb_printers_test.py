#!/usr/bin/env python3
"""Checks that gdb finds the printers by itself and uses them for the records of gdb_records:
gdb_printers_test.py PROGRAM LIBRARY PRINTERS PAGE

Also repeats the session on the PAGE of the manual with the same program."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

PROGRAM = LIBRARY = PRINTERS = PAGE = None
PATIENCE = 600  # seconds
SKIPPED = 77


def gdb(folder, *commands):
    """Returns gdb's output for each command after the program has stopped in lookAtThem()."""
    arguments = ["gdb", "-nx", "-batch", "-iex", f"set auto-load safe-path {folder}",
                 "-iex", f"set auto-load scripts-directory {folder}",
                 "-iex", "set debuginfod enabled off", "-iex", "set width 0",
                 "-ex", "break lookAtThem", "-ex", "run", "-ex", "up"]
    for command in commands:
        arguments += ["-ex", f"echo \\n@@{command}\\n", "-ex", command]
    environment = {**os.environ, "LC_ALL": "C.UTF-8", "ASAN_OPTIONS": "detect_leaks=0"}
    done = subprocess.run([*arguments, PROGRAM], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, env=environment, timeout=PATIENCE, check=False)
    begin, *answers = done.stdout.split("\n@@")
    return begin, {answer.split("\n", 1)[0]: answer.split("\n", 1)[1].strip()
                   for answer in answers}


def auto_load_folder(top):
    """Copies the script like the installation: its name contains the full path of the library."""
    script = pathlib.Path(f"{top}{LIBRARY}-gdb.py")
    script.parent.mkdir(parents=True)
    shutil.copy(PRINTERS, script)
    return top


GOOD = {
    "print vector": "Vector of 2, capacity 4 = {0x10, 0x20}",
    "print *empty": "Vector of 0, capacity 0",
    "print *words": 'HashMap of 2 = {["one"] = 0x1, ["two"] = 0x2}',
    "print *numbers": "HashMap of 1 = {[0x77] = 0x78}",
    "print buffer": '"some \\"text\\""',
    "print beyond": '"abc"',
    "print bytes": "3 bytes, capacity 20: 00 ff 10",
    "print queue": "queue of 3, capacity 4, at most 8 = {{0x20, 0x1, 0x0}, {0x30, 0x1, 0x0}, "
                   "{0x40, 0x1, 0x0}}",
    "print *stamps": "timestamp set of 3 = {[1] = 1700000000.250000, [2] = 1700000000.500000, "
                     "[1] = 1700000001.000000}",
    "print *event": 'Tick("AC\\"ME",12.5,-.25,100,[-7,"c",true],{"key":+15E-1},as it stands,'
                    'any(integer,5),optional())',
    "print *deep": "[" * 33 + "..." + "]" * 33,
    "print otherVector": "{size = 3}",
    "print vectorReference": "Vector of 2, capacity 4 = {0x10, 0x20}",
    "print wordsReference": 'HashMap of 2 = {["one"] = 0x1, ["two"] = 0x2}',
    "print bufferReference": '"some \\"text\\""',
}
FIELDS = ["vector", "map", "text", "bytes", "queue", "stamps", "event"]


class Printers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        bad = [f"print {record}.{field}" for record in ["zeroed", "garbage", "lengthOnly"]
               for field in FIELDS]
        null = [f"print *({name}*)0" for name in ["Vector", "HashMap", "VN_EventWriter"]]
        with tempfile.TemporaryDirectory(prefix="vn-gdb-") as top:
            cls.begin, cls.answers = gdb(auto_load_folder(top), *GOOD, *bad, *null,
                                         "print garbage", "print lengthOnly",
                                         "info pretty-printer")

    def value(self, command):
        self.assertIn(command, self.answers, self.begin)
        value = self.answers[command].split(" = ", 1)[1]
        return re.sub(r"^\(.* &\) @0x[0-9a-f]+: ", "", value)

    def test_gdb_finds_them_by_itself(self):
        self.assertIn("libvncommon", self.answers["info pretty-printer"])

    def test_records(self):
        for command, expected in GOOD.items():
            with self.subTest(command):
                self.assertEqual(self.value(command), expected)

    def test_the_session_of_the_manual(self):
        session = re.findall(r"^\(gdb\) (.*)\n\$\d+ = (.*)$", pathlib.Path(PAGE).read_text(),
                             re.MULTILINE)
        self.assertGreaterEqual(len(session), 5)
        for command, answer in session:
            self.assertEqual(self.value(command), answer, command)

    def test_records_that_are_zero(self):
        for field in FIELDS:
            expected = "Vector of 0, capacity 0" if field == "vector" else "not initialised"
            self.assertEqual(self.value(f"print zeroed.{field}"), expected, field)

    def test_records_that_are_garbage(self):
        for field in FIELDS:
            shown = self.value(f"print garbage.{field}")
            self.assertRegex(shown, "not initialised|not readable|Cannot access memory", field)

    def test_records_with_a_bad_pointer(self):
        for field in FIELDS:
            shown = self.value(f"print lengthOnly.{field}")
            self.assertRegex(shown, "not initialised|not readable|Cannot access memory", field)

    def test_nothing_raises(self):
        for command, answer in self.answers.items():
            self.assertNotIn("Traceback", answer, command)
            self.assertNotIn("Python Exception", answer, command)


def reason_to_skip():
    if shutil.which("gdb") is None:
        return "gdb is not installed"
    with tempfile.TemporaryDirectory(prefix="vn-gdb-") as top:
        begin, _ = gdb(top)
    return None if "lookAtThem () at" in begin else f"gdb cannot run the program here:\n{begin}"


if __name__ == "__main__":
    PROGRAM, LIBRARY, PRINTERS, PAGE = (os.path.realpath(sys.argv.pop(1)) for _ in range(4))
    REASON = reason_to_skip()
    if REASON:
        print(f"skipped: {REASON}")
        sys.exit(SKIPPED)
    unittest.main(verbosity=2)
