"""Writes docs/proof.md from the rows of docs/proof.json."""
from record import ROOT
from stages import STAGES

PAGE = ROOT / "docs/proof.md"

INTRODUCTION = """# Proofs

Written by `scripts/prove`, which runs what [testing](testing.md) describes. Each stage can be
repeated alone (`scripts/prove STAGE`). A row that was not repeated keeps the commit and the day of
its run; a commit with + had uncommitted changes. Executions of the fuzzers add up, from the first
commit of the row to the last. Other processors are emulated.
"""
MACHINE_COLUMNS = ("| Machine | Processor, system, compiler | Commits |", "|---|---|---|")
COLUMNS = ("| Stage | What | How much | Result | Commit | Date | Machine |",
           "|---|---|---|---|---|---|--:|")


def amount(row):
    return f"{row['count']:,} executions" if "count" in row else row["amount"]


def commits(row):
    first = row.get("since", row["commit"])
    return row["commit"] if first == row["commit"] else f"{first} to {row['commit']}"


def machines(rows):
    return list(dict.fromkeys(row["machine"] for row in rows))


def stage_rows(stage, rows):
    own = [row for row in rows if row["stage"] == stage.name]
    if not own:
        return [f"| {stage.name} | {stage.about} | | not run | | | |"]
    lines = [f"| {stage.name} | {row['what']} | {amount(row)} | {row['result']} | {commits(row)} | "
             f"{row['date']} | {machines(rows).index(row['machine']) + 1} |" for row in own]
    return lines + total(stage, own)


def total(stage, own):
    """The sum of the counts; of the same commits if all rows are."""
    if not all("count" in row for row in own):
        return []
    ranges = list(dict.fromkeys(commits(row) for row in own))
    result = "FAILED" if any(row["result"] == "FAILED" for row in own) else "passed"
    commit = ranges[0] if len(ranges) == 1 else "see above"
    return [f"| {stage.name} | all | {sum(row['count'] for row in own):,} executions | {result} | "
            f"{commit} | {max(row['date'] for row in own)} | |"]


def machine_rows(rows):
    for number, machine in enumerate(machines(rows), 1):
        commits = dict.fromkeys(row["commit"] for row in rows if row["machine"] == machine)
        yield f"| {number} | {machine} | {', '.join(commits)} |"


def page(rows):
    lines = [INTRODUCTION, *COLUMNS]
    for stage in STAGES:
        lines += stage_rows(stage, rows)
    return "\n".join([*lines, "", *MACHINE_COLUMNS, *machine_rows(rows), ""])


def write(rows):
    PAGE.write_text(page(rows), encoding="utf-8")
