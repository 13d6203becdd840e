#!/usr/bin/env python3
"""Checks that docs/environment.md names the variables that the library asks for, and no other
VN_ variable: check_environment.py ROOT"""
import pathlib
import re
import sys

FOLDERS = ("platform", "containers", "text", "config", "logging", "events")

root = pathlib.Path(sys.argv[1])
# Every name that getenv() is given, directly or through a helper with a default beside it.
asked = set()
for folder in FOLDERS:
    for source in sorted((root / folder).rglob("*.cpp")):
        text = source.read_text(encoding="utf-8")
        if "getenv" in text:
            asked |= set(re.findall(r'"((?:VN_|LC_)[A-Z_]+|HOME|LANG|VANTREL_HOME)"', text))
page = (root / "docs" / "environment.md").read_text(encoding="utf-8")
named = set(re.findall(r"^\| `([A-Z_]+)`", page, re.M))
missing = asked - named
invented = {name for name in named if name.startswith("VN_")} - asked
if not asked or missing or invented:
    sys.exit(f"environment.md: missing {sorted(missing)}, never asked for {sorted(invented)}")
