"""Writes docs/benchmarks.md and its charts out of the raw data."""
import chart
import times

INTRODUCTION = """\
Our calls beside those of the best general libraries, which are in the same program and do the same
work. `scripts/bench` measures it all again and writes this page, its charts and the data behind
them (`docs/benchmarks/raw`).
"""

QUICK = """\
**A quick run, for a first impression only:** few and short repetitions, the largest sizes left out.
`scripts/bench` without `--quick`, on a machine that has nothing else to do, gives the figures that
count.
"""

METHOD = """\
- A time is the median of several repetitions, {repetitions} of them, each of {min_time} s or more;
  the repetitions of all the benchmarks in a program are shuffled, so that a disturbance of the
  machine falls on everybody.
- It is the processor time of the thread; with several threads, and where threads are started, it
  is the clock on the wall. On a machine that others use as well such rows
  say little; the ratios of the rest bear it much better than the times do.
- Ratio: our time over that of the best peer, so below 1 is faster. The floor is the least that the
  work can cost, with the ratio to it. "Level" is a ratio of 1.05 or less.
- ± is the coefficient of variation of our repetitions.
- The charts show all the peers, not only the best.
"""

TABLE_HEAD = """\
| Call | Ours | Best peer | Ratio | Floor | Target: measured | Met |
|---|---|---|---|---|---|---|
"""

GROWTH_HEAD = """\
How the time for each item grows; caches and new memory slow everybody down.

| Call | Ours grows | Peer grows | Target: measured | Met |
|---|---|---|---|---|
"""


# ---- Cells -----------------------------------------------------------------------------------

def ratio_text(ratio):
    return f"{ratio:.2f}" if ratio < 100 else f"{ratio:.0f}"


def peer_cells(line):
    best = line.best_peer()
    if not best:
        return "—", "—"
    return f"{best[0]}, {times.text(best[1])}", ratio_text(line.ours / best[1])


def floor_cell(line):
    if not line.floor:
        return "—"
    name, time = line.floor
    return f"{name}, {times.text(time)} ({ratio_text(line.ours / time)})"


def target_cells(verdicts, unmeasured=()):
    texts = [f"{one.text}: {ratio_text(one.ratio)}" for one in verdicts]
    texts += [f"{one}: not installed" for one in unmeasured]
    if not verdicts:
        return "; ".join(texts) or "—", "—"
    return "; ".join(texts), "yes" if all(one.met for one in verdicts) else "**no**"


def table_row(cells):
    return "| " + " | ".join(cells) + " |\n"


def line_row(line):
    ours = f"{times.text(line.ours)} ± {line.spread * 100:.0f} %"
    return table_row([line.what, ours, *peer_cells(line), floor_cell(line),
                      *target_cells(line.verdicts, line.unmeasured)])


def growth_row(line):
    return table_row([line.what, ratio_text(line.ours), ratio_text(line.peer),
                      *target_cells([line.verdict])])


# ---- Sections --------------------------------------------------------------------------------

def span(values):
    low, high = min(values), max(values)
    return f"{low:g}" if low == high else f"{low:g} to {high:g}"


def machine_section(judged):
    """What the newest data were taken on; families that differ say so themselves."""
    newest = newest_of(judged)
    lines = [f"- {name.capitalize()}: {value}\n" for name, value in newest["machine"].items()]
    settings = [one.data["settings"] for one in judged]
    method = METHOD.format(repetitions=span([each["repetitions"] for each in settings]),
                           min_time=span([each["min_time"] for each in settings]))
    return f"## Machine and method\n\n- Date: {newest['date']}\n{''.join(lines)}\n{method}"


def targets_section(judged):
    total = sum(len(one.verdicts()) for one in judged)
    missed = [(one.family.title, what, each) for one in judged for what, each in one.missed()]
    text = f"## Targets\n\n{total - len(missed)} of {total} that were measured are met.\n"
    if missed:
        text += "\n| Family | Call | Missed target | Measured |\n|---|---|---|---|\n"
        text += "".join(table_row([title, what, each.text, ratio_text(each.ratio)])
                        for title, what, each in missed)
    counted = [(one.family.title, each) for one in judged for each in one.family.counted]
    if counted:
        text += "\nTargets that are counts, not times, are checked by the tests:\n\n"
        text += "".join(f"- {title}: {each['what']} (`{each['test']}`)\n"
                        for title, each in counted)
    return text


def origin(one, newest):
    """A remark where a family's data are older, of another machine, or of a quick run."""
    data = one.data
    remarks = []
    if data["machine"] != newest["machine"]:
        remarks.append(f"on {data['machine']['processor']}, {data['machine']['compiler']}")
    if data["date"] != newest["date"]:
        remarks.append(f"on {data['date']}")
    if data["quick"] and not newest["quick"]:
        remarks.append("in a quick run, for a first impression only")
    return f"\nMeasured {', '.join(remarks)}.\n" if remarks else ""


def family_section(one, newest, has_chart):
    text = f"## {one.family.title}\n{origin(one, newest)}"
    if one.family.note:
        text += f"\n{one.family.note}\n"
    if has_chart:
        text += f"\n![{one.family.title}](benchmarks/{one.family.program}.svg)\n"
    text += "\n" + TABLE_HEAD + "".join(map(line_row, one.lines))
    if one.growth:
        text += "\n" + GROWTH_HEAD + "".join(map(growth_row, one.growth))
    return text


def newest_of(judged):
    """The latest data; of one day, the most thorough."""
    return max((one.data for one in judged), key=lambda data: (data["date"], not data["quick"]))


def document(judged, charted):
    newest = newest_of(judged)
    parts = [f"# Benchmarks\n\n{INTRODUCTION}", *([QUICK] if newest["quick"] else []),
             machine_section(judged), targets_section(judged)]
    parts += [family_section(one, newest, one.family.program in charted) for one in judged]
    return "\n".join(parts)


def write(judged, docs):
    """docs/benchmarks.md and docs/benchmarks/*.svg."""
    folder = docs / "benchmarks"
    folder.mkdir(parents=True, exist_ok=True)
    charted = set()
    for one in judged:
        picture = chart.svg(one.family.title, one.lines)
        if picture:
            charted.add(one.family.program)
            (folder / f"{one.family.program}.svg").write_text(picture, encoding="utf-8")
    (docs / "benchmarks.md").write_text(document(judged, charted), encoding="utf-8")
