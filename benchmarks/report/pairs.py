"""Reads which benchmarks are compared (pairs.json) and the targets for ours.

Also compares both with the programs.
"""
import dataclasses
import fnmatch
import itertools
import json
import subprocess


@dataclasses.dataclass
class Target:
    than: str
    limit: float          # of our time divided by the other's
    text: str
    strict: bool = False  # below the limit, not on it
    above_floor: bool = False

    def is_met(self, ratio):
        return ratio < self.limit if self.strict else ratio <= self.limit


@dataclasses.dataclass
class Row:
    what: str
    ours: str
    peers: dict    # name of the peer -> its benchmark
    floor: dict    # the same, of one entry at most
    per: float
    targets: list


@dataclasses.dataclass
class Growth:
    what: str
    ours: list     # benchmarks at the smaller and at the larger size
    per: list
    than: str      # the peer that it is compared with; empty: the limit is for ours alone
    peer: list
    limit: float = 0   # 0: none is set


@dataclasses.dataclass
class Family:
    title: str
    program: str
    note: str
    run: dict
    usual_seconds: float   # of a whole run, if its settings do not determine it; else 0
    quick_skip: str
    rows: list
    growth: list


# Times that differ by less count as equal: this is the noise between two runs of the same code.
LEVEL = 1.05


def target(entry):
    than, above = entry["than"], entry.get("above_floor", False)
    if entry.get("faster"):
        return Target(than, 1, f"faster than {than}", strict=True, above_floor=above)
    if entry.get("level"):
        return Target(than, LEVEL, f"level with {than}", above_floor=above)
    if "speedup" in entry:
        times = entry["speedup"]
        return Target(than, 1 / times, f"≤ 1/{times:g} × {than}", above_floor=above)
    added = "what it adds is " if above else ""
    added_by = "what is added by " if above else ""
    text = f"{added}≤ {entry['at_most']:g} × {added_by}{than}"
    return Target(than, entry["at_most"], text, above_floor=above)


def fill(thing, names):
    """Returns a copy with {name} replaced in all its texts."""
    if isinstance(thing, str):
        for name, value in names.items():
            thing = thing.replace("{" + name + "}", value)
        return thing
    if isinstance(thing, dict):
        return {key: fill(value, names) for key, value in thing.items()}
    if isinstance(thing, list):
        return [fill(value, names) for value in thing]
    return thing


def each(entry):
    """Returns one entry for every combination of the values in its "each"."""
    choices = entry.get("each", {})
    labelled = [values if isinstance(values, dict) else {value: value for value in values}
                for values in choices.values()]
    for combination in itertools.product(*(values.items() for values in labelled)):
        values = {name: value for name, (value, _) in zip(choices, combination)}
        labels = {name: label for name, (_, label) in zip(choices, combination)}
        plain = {key: value for key, value in entry.items() if key != "each"}
        yield {**fill(plain, values), "what": fill(entry["what"], labels)}


def family(entry):
    rows = [Row(row["what"], row["ours"], row.get("peers", {}), row.get("floor", {}),
                float(row.get("per", 1)), [])
            for template in entry["rows"] for row in each(template)]
    growth = [Growth(row["what"], row["ours"], row["per"], row.get("than", ""),
                     row.get("peer", []))
              for template in entry.get("growth", []) for row in each(template)]
    return Family(entry["title"], entry["program"], entry.get("note", ""), entry["run"],
                  entry.get("usual_seconds", 0), entry.get("quick_skip", ""), rows, growth)


def matches(entry, program, benchmark):
    """Returns whether an entry's program and patterns match this benchmark."""
    return entry["program"] == program and any(fnmatch.fnmatchcase(benchmark, pattern)
                                               for pattern in entry["ours"])


def add_targets(families, content):
    """Assigns targets to rows; returns a line of text for every entry without a row."""
    mistakes = []
    for entry in content["rows"]:
        rows = [row for one in families for row in one.rows
                if matches(entry, one.program, row.ours)]
        for row in rows:
            row.targets += [target(aim) for aim in entry["targets"]]
        mistakes += [] if rows else [f"{entry['program']}: a target has no row: {entry['ours']}"]
    for entry in content["growth"]:
        rows = [row for one in families for row in one.growth
                if matches(entry, one.program, row.ours[0])]
        for row in rows:
            row.limit = entry["at_most"]
        mistakes += [] if rows else [f"{entry['program']}: a limit has no row: {entry['ours']}"]
    return mistakes


@dataclasses.dataclass
class Pairs:
    families: list
    optional: set    # peers that a machine need not have
    mistakes: list   # targets for rows that do not exist
    counted: list    # targets that a test counts


def load(path, targets_path):
    content = json.loads(path.read_text(encoding="utf-8"))
    targets = json.loads(targets_path.read_text(encoding="utf-8"))
    families = [family(entry) for entry in content["families"]]
    return Pairs(families, set(content["optional"]), add_targets(families, targets),
                 targets["counted"])


# ---- Comparison with the programs ------------------------------------------------------------

def listed(program):
    """Returns the names of the benchmarks in a program."""
    done = subprocess.run([program, "--benchmark_list_tests"], check=True, text=True,
                          capture_output=True, timeout=60)
    return set(done.stdout.splitlines())


def named(one):
    """Yields (who, benchmark) for every name in a family's rows; who is empty if it must exist."""
    for row in one.rows:
        yield "", row.ours
        yield from row.peers.items()
        yield from row.floor.items()
    for row in one.growth:
        yield from (("", benchmark) for benchmark in row.ours)
        yield from ((row.than, benchmark) for benchmark in row.peer)


def absent_peers(one, optional, present):
    """Returns the optional peers without any benchmark in the program: they are not installed."""
    found = {who for who, benchmark in named(one) if benchmark in present}
    return {who for who, _ in named(one) if who in optional} - found


def target_mistakes(one):
    """Returns a line for each target whose peer is not in its row."""
    return [f"{one.program}: '{row.what}' has a target for {aim.than}, which is not in the row"
            for row in one.rows for aim in row.targets
            if aim.than not in row.peers and aim.than not in row.floor]


def mismatches(one, optional, present):
    """Returns the differences between a family's rows and its program's benchmarks, as lines."""
    absent = absent_peers(one, optional, present)
    known = {benchmark for _, benchmark in named(one)}
    wanted = {benchmark for who, benchmark in named(one) if who not in absent}
    return (target_mistakes(one) +
            [f"{one.program}: no row of pairs.json names '{name}'"
             for name in sorted(present - known)] +
            [f"{one.program}: pairs.json names '{name}', which the program does not have"
             for name in sorted(wanted - present)])
