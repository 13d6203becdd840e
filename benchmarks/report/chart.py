"""One chart for a family: how many times as long as ours the others take, as an SVG."""
import math
from xml.sax.saxutils import escape

import times

BAR, GAP, TOP, BOTTOM = 12, 9, 58, 26
LABELS, MARGIN, PLOT = 330, 190, 380
WIDTH = LABELS + MARGIN + PLOT + MARGIN
# Middle tones, which can be told from a white and from a black background.
INK, RULE = "#768390", "#8b949e"
COLOURS = ("#3f83d1", "#d27d2d", "#2f9e77", "#a865b5", "#b8952a", "#c8586c", "#4aa3b5", "#8a7f5c")


class Axis:
    """Logarithmic, from one power of two to another, with 1 between them."""

    def __init__(self, factors):
        self.low = min(-1, math.floor(math.log2(min(factors))))
        self.high = max(1, math.ceil(math.log2(max(factors))))

    def at(self, factor):
        share = (math.log2(factor) - self.low) / (self.high - self.low)
        return LABELS + MARGIN + PLOT * share

    def ticks(self):
        step = 1 + (self.high - self.low) // 10
        return [2.0 ** power for power in range(self.low, self.high + 1)
                if power % step == 0]


def text(x, y, content, anchor="start", more=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}"{more}>{escape(content)}</text>'


def factor_text(factor):
    return f"{factor:.2f}" if factor < 10 else f"{factor:.0f}"


def tick_text(factor):
    return f"{factor:g}" if factor >= 1 else f"1/{1 / factor:g}"


def others(line):
    """(name, how many times as long as ours) of the peers, then of the floor."""
    floor = [line.floor] if line.floor else []
    return [(name, time / line.ours) for name, time in [*line.peers.items(), *floor]]


def colours(lines):
    """{name: colour}; floors are grey."""
    names = list(dict.fromkeys(name for line in lines for name in line.peers))
    chosen = {name: COLOURS[i % len(COLOURS)] for i, name in enumerate(names)}
    return {**{line.floor[0]: RULE for line in lines if line.floor}, **chosen}


def bar(axis, y, name, factor, colour):
    start, end = sorted((axis.at(1), axis.at(factor)))
    label = f"{name} {factor_text(factor)}"
    beside = (text(end + 5, y + BAR - 2, label) if factor >= 1
              else text(start - 5, y + BAR - 2, label, "end"))
    return (f'<rect x="{start:.1f}" y="{y}" width="{max(end - start, 1):.1f}" '
            f'height="{BAR - 2}" fill="{colour}"/>{beside}')


def group(axis, y, line, paint):
    """The bars of one row, and its label in the middle beside them."""
    bars = others(line)
    what = f"{line.what.replace('`', '')}: {times.text(line.ours)}"
    label = text(LABELS, y + len(bars) * BAR / 2 + 3, what, "end")
    return [label] + [bar(axis, y + i * BAR, name, factor, paint[name])
                      for i, (name, factor) in enumerate(bars)]


def grid(axis, height):
    parts = []
    for tick in axis.ticks():
        x, wide = axis.at(tick), 1.5 if tick == 1 else 0.5
        parts.append(f'<line x1="{x:.1f}" x2="{x:.1f}" y1="{TOP - 6}" y2="{height - BOTTOM}" '
                     f'stroke="{RULE}" stroke-width="{wide}" stroke-opacity="0.7"/>')
        parts.append(text(x, height - BOTTOM + 14, tick_text(tick), "middle"))
    return parts


def svg(title, lines):
    """The chart, or nothing when no line has anything to compare with."""
    lines = [line for line in lines if others(line)]
    if not lines:
        return None
    axis = Axis([factor for line in lines for _, factor in others(line)])
    rows, y, paint = [], TOP, colours(lines)
    for line in lines:
        rows += group(axis, y, line, paint)
        y += len(others(line)) * BAR + GAP
    height = y + BOTTOM
    head = [text(12, 20, title, more=' font-size="15" font-weight="bold"'),
            text(12, 38, "Time of the others, ours being 1: to the right is slower than ours, "
                         "to the left faster.")]
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" '
        f'width="{WIDTH}" height="{height}" font-family="sans-serif" font-size="10" '
        f'fill="{INK}">',
        *head, *grid(axis, height), *rows, "</svg>", ""])
