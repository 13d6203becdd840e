#!/usr/bin/env python3
"""The layers of the library, from its include directives: architecture.py ROOT

Draws docs/architecture.svg: the folders, and an arrow from each to those whose headers it includes,
with the number of includes. What may include what is in tests/quality/layers.json;
architecture_test.py compares both with the sources.
"""
import collections
import dataclasses
import json
import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.M)
FOR_ALL = ("api.h", "vncommon.h")


# ---- The include graph -----------------------------------------------------------------------

@dataclasses.dataclass(frozen=True)
class Include:
    file: str      # that includes
    header: str    # as the directive names it
    source: str    # folder of the file
    target: str    # folder of the header


def load_rules(root):
    return json.loads((root / "tests/quality/layers.json").read_text(encoding="utf-8"))


def folder_of(path, rules):
    """The folder that a file of the tree belongs to, or None for those of all and of others."""
    first, *_, name = path.split("/")
    if first in rules["may_use"]:
        return first
    if "vncommon" in path.split("/")[:2]:
        return next((folder for folder, names in rules["headers"].items() if name in names), None)
    return None


def sources(root, rules):
    for folder in [*rules["may_use"], "include/vncommon"]:
        for file in sorted((root / folder).rglob("*")):
            if file.suffix in (".c", ".cpp", ".h"):
                yield file.relative_to(root).as_posix(), file.read_text(encoding="utf-8")


def includes(root, rules):
    """All includes of a header of another folder."""
    found = []
    for file, text in sources(root, rules):
        for header in INCLUDE.findall(text):
            source = folder_of(file, rules)
            target = folder_of(header, rules) if "/" in header else None
            if source and target and source != target:
                found.append(Include(file, header, source, target))
    return found


def faults(root, rules):
    """Everything that breaks the rules, as lines of text."""
    found = includes(root, rules)
    excused = {(each["file"], each["includes"]) for each in rules["exceptions"]}
    used = {(each.file, each.header) for each in found
            if each.target not in rules["may_use"][each.source]}
    lines = [f"{file} includes {header}, which is above it; see tests/quality/layers.json"
             for file, header in sorted(used - excused)]
    lines += [f"layers.json excuses {file}, which no longer includes {header} against the rule"
              for file, header in sorted(excused - used)]
    known = {name for names in rules["headers"].values() for name in names} | set(FOR_ALL)
    there = {header.name for header in (root / "include/vncommon").glob("*.h")}
    lines += [f"layers.json does not say which folder {name} belongs to"
              for name in sorted(there - known)]
    return lines + [f"layers.json names {name}, which is not there"
                    for name in sorted(known - there)]


# ---- The picture -----------------------------------------------------------------------------

WIDTH, ROW, BOX_HEIGHT, TOP = 680, 120, 48, 24
LABEL = (26, 18)
# Left and right end of each box. Arrows go from x to x; a label is at a share of the way.
BOXES = {"events": (250, 430), "config": (40, 200), "logging": (480, 640),
         "containers": (150, 300), "text": (380, 530), "platform": (20, 660)}
WAYS = {("events", "platform"): (340, 340, 0.8), ("events", "logging"): (410, 500, 0.5),
        ("events", "containers"): (290, 245, 0.4), ("events", "text"): (390, 435, 0.4),
        ("config", "platform"): (90, 90, 0.5), ("config", "containers"): (160, 190, 0.5),
        ("config", "text"): (190, 395, 0.15), ("logging", "containers"): (490, 285, 0.15),
        ("logging", "text"): (530, 490, 0.5), ("logging", "platform"): (580, 580, 0.5),
        ("containers", "platform"): (225, 225, 0.5), ("text", "platform"): (425, 425, 0.5),
        ("platform", "text"): (485, 485, 0.5), ("platform", "logging"): (620, 620, 0.5)}

STYLE = """\
.paper { fill: #ffffff } .box { fill: #ddf4ff; stroke: #0072b2; stroke-width: 1.5 }
text { fill: #24292f; font: 14px sans-serif; text-anchor: middle } .name { font-weight: bold }
.small { font-size: 12px } .down { stroke: #57606a } .up { stroke: #b35900; stroke-dasharray: 6 4 }
line { stroke-width: 1.5 } .downhead { fill: #57606a } .uphead { fill: #b35900 }
@media (prefers-color-scheme: dark) {
.paper { fill: #0d1117 } .box { fill: #0c2d45; stroke: #56b4e9 }
text { fill: #e6edf3 } .down { stroke: #9aa4af } .up { stroke: #f0a35e }
.downhead { fill: #9aa4af } .uphead { fill: #f0a35e }
}"""


@dataclasses.dataclass
class Arrow:
    source: str
    target: str
    count: int
    start: tuple
    end: tuple
    label: tuple
    up: bool


def row_of(folder, rules):
    return next(number for number, row in enumerate(rules["rows"]) if folder in row)


def arrow(source, target, count, rules):
    first, last = row_of(source, rules), row_of(target, rules)
    middle = [sum(BOXES[folder]) / 2 for folder in (source, target)]
    x1, x2, share = WAYS.get((source, target), (*middle, 0.5))
    up = last < first
    y1 = TOP + first * ROW + (0 if up else BOX_HEIGHT)
    y2 = TOP + last * ROW + (BOX_HEIGHT if up else 0)
    label = (x1 + (x2 - x1) * share, y1 + (y2 - y1) * share)
    return Arrow(source, target, count, (x1, y1), (x2, y2), label, up)


def arrows(root, rules):
    counts = collections.Counter((each.source, each.target) for each in includes(root, rules))
    return [arrow(*folders, count, rules) for folders, count in sorted(counts.items())]


def line_svg(each):
    kind = "up" if each.up else "down"
    (x1, y1), (x2, y2) = each.start, each.end
    return (f'<line class="{kind}" x1="{x1:g}" y1="{y1:g}" x2="{x2:g}" y2="{y2:g}" '
            f'marker-end="url(#{kind}head)"/>')


def count_svg(each):
    x, y = each.label
    return [f'<rect class="paper" x="{x - LABEL[0] / 2:g}" y="{y - LABEL[1] / 2:g}" '
            f'width="{LABEL[0]}" height="{LABEL[1]}"/>',
            f'<text class="small" x="{x:g}" y="{y + 4:g}">{each.count}</text>']


def box_svg(folder, y):
    left, right = BOXES[folder]
    return [f'<rect class="box" x="{left}" y="{y}" width="{right - left}" height="{BOX_HEIGHT}" '
            'rx="6"/>',
            f'<text class="name" x="{(left + right) / 2:g}" y="{y + 29}">{folder}/</text>']


def head_svg(kind):
    return (f'<marker id="{kind}head" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="8" '
            f'markerHeight="8" markerUnits="userSpaceOnUse" orient="auto">'
            f'<path class="{kind}head" d="M0 0 L8 4 L0 8 z"/></marker>')


def svg(root, rules):
    height = TOP + len(rules["rows"]) * ROW
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" '
             f'width="{WIDTH}" height="{height}">',
             "<title>The layers of the library and what includes what</title>",
             f"<style>\n{STYLE}\n</style>", f"<defs>{head_svg('down')}{head_svg('up')}</defs>",
             f'<rect class="paper" width="{WIDTH}" height="{height}"/>']
    drawn = arrows(root, rules)
    lines += map(line_svg, drawn)
    for each in drawn:
        lines += count_svg(each)
    for number, row in enumerate(rules["rows"]):
        for folder in row:
            lines += box_svg(folder, TOP + number * ROW)
    lines.append(f'<text class="small" x="{WIDTH / 2:g}" y="{height - 20}">An arrow goes to the '
                 'folder whose headers are included; dashed ones go up.</text>')
    return "\n".join([*lines, "</svg>", ""])


def main():
    root = pathlib.Path(sys.argv[1])
    (root / "docs/architecture.svg").write_text(svg(root, load_rules(root)), encoding="utf-8")


if __name__ == "__main__":
    main()
