"""Writes docs/mutation.md from docs/mutation.json."""
import json
import pathlib

from families import ROOT

PAGE = ROOT / "docs/mutation.md"
REASONS = pathlib.Path(__file__).with_name("reasons.json")   # id of a survivor -> why

INTRODUCTION = """# What the tests notice

Written by `scripts/mutate`. The tool makes small mistakes in a copy of the library's sources, one
at a time: a flipped comparison, an off-by-one, another constant, a dropped call or unlock. It
chooses the same ones each time, spread over every source. It runs the family's tests in a plain
build, then under AddressSanitizer and UndefinedBehaviorSanitizer, then under ThreadSanitizer, until
one fails. `--list` shows the mutations, `--id` runs one, `--page` writes this page again.

A family is a folder, or a subject in a folder that has many, with the tests of the same name below
`tests/`. A row keeps the commit and the date of its last run; a commit with + had uncommitted
changes.
"""


def reasons():
    return json.loads(REASONS.read_text(encoding="utf-8"))


def when(results):
    """The commit and date of a family's run, or of its first and its last one."""
    runs = sorted({(result["date"], result["commit"]) for result in results})
    names = [f"{commit}, {date}" for date, commit in runs]
    if not names:
        return "not run"
    return names[0] if len(names) == 1 else f"{names[0]} to {names[-1]}"


def counts(entries):
    known = [entry for entry in entries if "verdict" in entry]
    valid = [entry for entry in known if entry["verdict"] != "not compiled"]
    noticed = [entry for entry in valid if entry["verdict"] == "noticed"]
    late = sum("san (" in entry["by"] for entry in noticed)
    numbers = [len(valid), len(noticed), late, len(valid) - len(noticed), len(entries) - len(known)]
    return " | ".join(map(str, numbers)), when(known)


def family_rows(entries):
    rows = []
    for family in dict.fromkeys(entry["family"] for entry in entries):
        numbers, date = counts([entry for entry in entries if entry["family"] == family])
        rows.append(f"| {family} | {numbers} | {date} |")
    return [*rows, f"| all | {counts(entries)[0]} | |"]


def code(text):
    return f"`{text}`".replace("|", "\\|")


def survivor_rows(entries):
    known = reasons()
    return [f"| {entry['id']} | `{entry['source']}` | {code(entry['from'])} | {code(entry['to'])} | "
            f"{known.get(entry['id'], 'not explained yet')} |"
            for entry in entries if entry.get("verdict") == "survived"]


def list_rows(entries):
    return [f"{entry['id']:28} {entry['operator']:18} {entry['by'] or entry['verdict']}"
            for entry in entries if "verdict" in entry]


def page(document):
    entries = document["mutations"]
    return "\n".join([
        INTRODUCTION,
        f"Selected from the sources of {document['commit']}, {document['date']}:", "",
        "| Family | Run | Noticed | By sanitizers only | Survived | Not run | Commit, date |",
        "|---|--:|--:|--:|--:|--:|---|",
        *family_rows(entries), "",
        "## Survivors", "",
        "| Mutation | Source | From | To | Why no test can notice |", "|---|---|---|---|---|",
        *survivor_rows(entries), "",
        "## Every mutation that was run, and what noticed it", "",
        "```", *list_rows(entries), "```", ""])


def write(document):
    PAGE.write_text(page(document), encoding="utf-8")
