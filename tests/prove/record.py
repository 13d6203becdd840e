"""docs/proof.json: one row for each thing that was run, with the commit, day and machine."""
import datetime
import json
import os
import pathlib
import platform
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
RECORD = ROOT / "docs/proof.json"
sys.path.append(str(ROOT / "tests/quality"))
import tree  # noqa: E402


def load(path=RECORD):
    return json.loads(path.read_text(encoding="utf-8")) if path.is_file() else []


def save(rows, path=RECORD):
    lines = ",\n".join(json.dumps(row) for row in rows)
    path.write_text(f"[\n{lines}\n]\n", encoding="utf-8")


def machine():
    """Processor, system and compiler, in a line."""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = [line.split(":", 1)[1].strip() for line in file if line.startswith("model name")]
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True,
                              check=True).stdout.splitlines()[0]
    return (f"{(models or [platform.machine()])[0]}, {len(os.sched_getaffinity(0))} processors; "
            f"{system}; {compiler}")


def stamp():
    return {"commit": tree.commit(), "date": datetime.date.today().isoformat(),
            "machine": machine()}


def replace(rows, stage, new):
    """The rows after a stage has run: its own are replaced, except that counts of the same thing
    add up."""
    old = {row["what"]: row for row in rows if row["stage"] == stage}
    merged = [add(old.get(row["what"]), row) for row in new]
    return [row for row in rows if row["stage"] != stage] + merged


def add(before, row):
    """A failure stays until another commit passes. `since` is the first commit of the sum."""
    if not before or "count" not in before:
        return row
    same = before["commit"] == row["commit"]
    failed = "FAILED" in (row["result"], before["result"] if same else "")
    return {**row, "count": before["count"] + row["count"],
            "since": before.get("since", before["commit"]),
            "result": "FAILED" if failed else row["result"]}
