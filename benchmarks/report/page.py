"""Writes docs/benchmarks.md and its charts from the raw data and page.json."""
import json

import pairs
import times

INTRODUCTION = """\
Our calls compared with those of the best general libraries. All run in the same program and do the
same work. `scripts/bench` repeats the measurements and writes this page, its charts and their data
(`docs/benchmarks/raw`).

In the charts, our bar is the first of each group and in colour. All bars of a chart share one axis.
The tables below have every benchmark. The section *Where a peer is faster* lists the rows in which a
peer needs less time, with the reasons.
"""

QUICK = """\
**A quick run, for a first impression only:** few and short repetitions, the largest sizes left out.
`scripts/bench` without `--quick`, on a machine that has nothing else to do, gives the figures that
count.
"""

SLOWER = """\
## Where a peer is faster

Every row in which a peer needs less time than ours, beyond the {percent} % that two runs of the
same code differ by. {count} of {compared} rows with a peer are named here.
"""

METHOD = """\
- A time is the median of several repetitions, {repetitions} of them, each of {min_time} s or more;
  the repetitions of all the benchmarks in a program are shuffled, so that noise is spread evenly.
  {runs}
- It is the processor time of the thread. With several threads, and where threads are started, it is
  the wall clock; on a shared machine such rows are unreliable. Ratios are more reliable than times.
- Ratio: our time over that of the best peer, so below 1 is faster. The floor is the
  minimum cost of the work, with the ratio to it.
- ± is the coefficient of variation of our repetitions, in several runs the largest.
"""

SLOWER_HEAD = """\
| Call | Ours | Faster peers |
|---|---|---|
"""

TABLE_HEAD = """\
| Call | Ours | Best peer | Ratio | Other peers | Floor |
|---|---|---|---|---|---|
"""

GROWTH_HEAD = """\
How the time for each item grows; caches and new memory slow everybody down.

| Call | Ours grows | Peer grows |
|---|---|---|
"""


# ---- Cells -----------------------------------------------------------------------------------

def ratio_text(ratio):
    return f"{ratio:.2f}" if ratio < 100 else f"{ratio:.0f}"


def ours_cell(line):
    return f"{times.text(line.ours)} ± {line.spread * 100:.0f} %"


def peer_text(peer):
    return f"{peer[0]}, {times.text(peer[1])}"


def peer_cells(line):
    if not line.peers:
        return "—", "—", "—"
    best, *others = sorted(line.peers.items(), key=lambda peer: peer[1])
    return (peer_text(best), ratio_text(line.ours / best[1]),
            "; ".join(map(peer_text, others)) or "—")


def floor_cell(line):
    if not line.floor:
        return "—"
    return f"{peer_text(line.floor)} ({ratio_text(line.ours / line.floor[1])})"


def table_row(cells):
    return "| " + " | ".join(cells) + " |\n"


def line_row(line):
    return table_row([line.what, ours_cell(line), *peer_cells(line), floor_cell(line)])


def slower_row(line):
    faster = "; ".join(f"{peer_text(peer)} ({ratio_text(line.ours / peer[1])})"
                       for peer in line.faster_peers())
    return table_row([line.what, ours_cell(line), faster])


def growth_row(line):
    peer = f"{line.than}, {ratio_text(line.peer)}" if line.than else "—"
    return table_row([line.what, ratio_text(line.ours), peer])


# ---- Sections --------------------------------------------------------------------------------

def lines_of(entry, judged):
    """Returns the rows that an entry of page.json describes."""
    return [line for one in judged for line in one.lines
            if pairs.matches(entry, one.family.program, line.benchmark)]


def title_of(program, judged):
    return next(one.family.title for one in judged if one.family.program == program)


def chart_section(entry, judged):
    """Returns a question with its picture; empty if its benchmarks were not measured."""
    if not lines_of(entry, judged):
        return None
    return (f"## {entry['question']}\n\n![{entry['question']}](benchmarks/{entry['name']}.svg)\n\n"
            f"{entry['note']} The table is *{title_of(entry['program'], judged)}*.\n")


def explained(judged, entries):
    """Returns [(entry, the rows that it explains)], and the rows without an explanation."""
    groups, unexplained = [(entry, []) for entry in entries], []
    for one in judged:
        for line in one.lines:
            if line.faster_peers():
                fitting = (rows for entry, rows in groups
                           if pairs.matches(entry, one.family.program, line.benchmark))
                next(fitting, unexplained).append(line)
    return [(entry, rows) for entry, rows in groups if rows], unexplained


def slower_section(judged, entries):
    groups, unexplained = explained(judged, entries)
    compared = sum(bool(line.peers) for one in judged for line in one.lines)
    count = sum(len(rows) for _, rows in groups) + len(unexplained)
    text = SLOWER.replace("{percent}", f"{(pairs.LEVEL - 1) * 100:.0f}")
    text = text.replace("{count}", str(count)).replace("{compared}", str(compared))
    if unexplained:
        groups = [*groups, ({"title": "Not explained yet", "reason": "The reason is not known."},
                            unexplained)]
    for entry, rows in groups:
        text += f"\n### {entry['title']}\n\n{entry['reason']}\n\n{SLOWER_HEAD}"
        text += "".join(map(slower_row, rows))
    return text


def span(values):
    low, high = min(values), max(values)
    return f"{low:g}" if low == high else f"{low:g} to {high:g}"


def machine_section(judged):
    """Describes the machine of the newest data; origin() marks families that differ."""
    newest = newest_of(judged)
    lines = [f"- {name.capitalize()}: {value}\n" for name, value in newest["machine"].items()]
    settings = [one.data["settings"] for one in judged]
    runs = span([one.data.get("runs", 1) for one in judged])
    several = f"Each program ran {runs} times; a time is the median of the runs."
    method = METHOD.format(runs="Each program ran once." if runs == "1" else several,
                           repetitions=span([each["repetitions"] for each in settings]),
                           min_time=span([each["min_time"] for each in settings]))
    return f"## Machine and method\n\n- Date: {newest['date']}\n{''.join(lines)}\n{method}"


def origin(one, newest):
    """Returns a remark if a family's data are older, of another machine, or of a quick run."""
    data = one.data
    remarks = []
    if data["machine"] != newest["machine"]:
        remarks.append(f"on {data['machine']['processor']}, {data['machine']['compiler']}")
    if data["date"] != newest["date"]:
        remarks.append(f"on {data['date']}")
    if data["quick"] and not newest["quick"]:
        remarks.append("in a quick run, for a first impression only")
    return f"\nMeasured {', '.join(remarks)}.\n" if remarks else ""


def family_section(one, newest):
    text = f"## {one.family.title}\n{origin(one, newest)}"
    if one.family.note:
        text += f"\n{one.family.note}\n"
    text += "\n" + TABLE_HEAD + "".join(map(line_row, one.lines))
    if one.growth:
        text += "\n" + GROWTH_HEAD + "".join(map(growth_row, one.growth))
    return text


def newest_of(judged):
    """Returns the newest data; of one day, those of a full run rather than a quick one."""
    return max((one.data for one in judged), key=lambda data: (data["date"], not data["quick"]))


def document(judged, content):
    newest = newest_of(judged)
    charts = [chart_section(entry, judged) for entry in content["charts"]]
    parts = [f"# Benchmarks\n\n{INTRODUCTION}", *([QUICK] if newest["quick"] else []),
             *filter(None, charts), slower_section(judged, content["slower"]),
             machine_section(judged), *(family_section(one, newest) for one in judged)]
    return "\n".join(parts)


# ---- The files -------------------------------------------------------------------------------

def load(path):
    return json.loads(path.read_text(encoding="utf-8"))


def mistakes(content, families):
    """Returns a line of text for each entry of page.json that names no row."""
    rows = [(one.program, row.ours) for one in families for row in one.rows]
    return [f"page.json: '{entry.get('name', entry.get('title'))}' names no row of pairs.json"
            for entry in [*content["charts"], *content["slower"]]
            if not any(pairs.matches(entry, *row) for row in rows)]


def write_charts(judged, content, folder):
    # Imported only here, so that the rest works on a machine without matplotlib.
    import chart
    folder.mkdir(parents=True, exist_ok=True)
    for entry in content["charts"]:
        lines = lines_of(entry, judged)
        if lines:
            picture = chart.svg(entry["question"], [chart.group(line) for line in lines])
            (folder / f"{entry['name']}.svg").write_text(picture, encoding="utf-8")


def write(judged, content, docs):
    """Writes docs/benchmarks.md and docs/benchmarks/*.svg."""
    write_charts(judged, content, docs / "benchmarks")
    (docs / "benchmarks.md").write_text(document(judged, content), encoding="utf-8")
