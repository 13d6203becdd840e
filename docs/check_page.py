#!/usr/bin/env python3
"""Checks that a page of the manual tells the truth: check_page.py PAGE SOURCE FOLDER PROGRAM

A ```c or ```cpp block of the page must be the SOURCE, to the byte. A ```conf block is put into
FOLDER as .vantrel.conf. PROGRAM then runs in FOLDER, and must end with status 0 and print what the
last ```text block says. The line above that block tells how exact this is:
    "... prints:"                         to the byte
    "... prints, apart from the numbers:"  any number may stand where a number stands
    "... prints, for example:"            the same lines up to their first colon
"""
import difflib
import os
import pathlib
import re
import subprocess
import sys

BLOCK = re.compile(r"^(?P<above>[^\n]*)\n\n?```(?P<kind>\w+)\n(?P<text>.*?)^```$", re.S | re.M)


def fail(message):
    sys.exit("check_page: " + message)


def differences(expected, actual, name):
    return "".join(difflib.unified_diff(expected.splitlines(True), actual.splitlines(True),
                                        "the page", name))


def comparable(text, above):
    if above.endswith("apart from the numbers:"):
        return re.sub(r"\d+", "N", text)
    if above.endswith("for example:"):
        return "".join(line.split(":")[0] + "\n" for line in text.splitlines())
    return text


def main():
    page, source, folder, program = (pathlib.Path(argument).resolve()
                                     for argument in sys.argv[1:5])
    blocks = [match.groupdict() for match in BLOCK.finditer(page.read_text(encoding="utf-8"))]
    folder.mkdir(parents=True, exist_ok=True)
    expected = None
    for block in blocks:
        if block["kind"] in ("c", "cpp"):
            text = source.read_text(encoding="utf-8")
            if block["text"] != text:
                fail(f"{page}: the program shown is not {source}; copy it again\n"
                     + differences(block["text"], text, str(source)))
        elif block["kind"] == "conf":
            (folder / ".vantrel.conf").write_text(block["text"], encoding="utf-8")
        elif block["kind"] == "text":
            expected = block
    if expected is None:
        fail(f"{page}: no ```text block with the output of {program}")
    if not re.search(r"prints(:|, apart from the numbers:|, for example:)$", expected["above"]):
        fail(f"{page}: the line above the output does not say how exact it is; see --help")

    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    run = subprocess.run([program], cwd=folder, env=environment, stdout=subprocess.PIPE,
                         stdin=subprocess.DEVNULL, timeout=600)
    if run.returncode != 0:
        fail(f"{program} ended with status {run.returncode}")
    wanted = comparable(expected["text"], expected["above"])
    actual = comparable(run.stdout.decode("utf-8"), expected["above"])
    if wanted != actual:
        fail(f"{page}: {program} prints something else\n"
             + differences(wanted, actual, "the program"))


if __name__ == "__main__":
    if "--help" in sys.argv:
        print(__doc__)
    elif len(sys.argv) != 5:
        fail("needs four arguments; see --help")
    else:
        main()
