"""The charts at the top of the benchmark page: bars of time per call on one axis, as SVG.

Ours is the first bar of each group and the only one in a strong colour, so no legend is needed.
The picture has its own background and follows the reader's light or dark setting.
"""
import dataclasses
import io
import re
from xml.sax.saxutils import escape

import matplotlib
from matplotlib.backends.backend_agg import FigureCanvasAgg
from matplotlib.figure import Figure
from matplotlib.ticker import MaxNLocator

import times

OURS = "libvncommon"
# Colours by role, for light and dark. Ours and the peers also differ in lightness, so that they are
# distinct without colours.
LIGHT = {"paper": "#ffffff", "ink": "#24292f", "rule": "#d0d7de", "ours": "#0072b2",
         "peer": "#9aa4af", "floor": "#eaeef2", "edge": "#8c959f"}
DARK = {"paper": "#0d1117", "ink": "#e6edf3", "rule": "#30363d", "ours": "#56b4e9",
        "peer": "#6e7681", "floor": "#21262d", "edge": "#7d8590"}

# Lengths in points, which are pixels in the SVG.
WIDTH, EDGE, GAP = 680, 12, 8
TITLE, HEADING, BAR, FOOT = 38, 24, 18, 46
STYLE = {"svg.hashsalt": "libvncommon", "svg.fonttype": "path", "font.family": "DejaVu Sans",
         "font.size": 11, "figure.dpi": 72, "text.hinting": "none"}


@dataclasses.dataclass
class Bar:
    name: str
    time: float   # nanoseconds
    role: str     # of LIGHT and DARK


@dataclasses.dataclass
class Group:
    heading: str
    bars: list


def group(line):
    """Returns the bars of one row: ours, the peers (fastest first), the least cost of the work."""
    peers = sorted(line.peers.items(), key=lambda peer: peer[1])
    floor = [Bar(f"{line.floor[0]} (least possible)", line.floor[1], "floor")] if line.floor else []
    return Group(line.what.replace("`", ""), [Bar(OURS, line.ours, "ours"),
                                              *(Bar(name, time, "peer") for name, time in peers),
                                              *floor])


class Drawing:
    """A figure whose coordinates are points from the upper left corner."""

    def __init__(self, height):
        self.height = height
        self.figure = Figure(figsize=(WIDTH / 72, height / 72), facecolor=LIGHT["paper"])
        self.canvas = FigureCanvasAgg(self.figure)   # to measure text; savefig has its own canvas

    def text(self, x, y, content, side="left", weight="normal", size=11):
        # Text has a background, so that no grid line crosses it.
        paper = {"facecolor": LIGHT["paper"], "edgecolor": "none", "pad": 1}
        return self.figure.text(x / WIDTH, 1 - y / self.height, content, ha=side, va="center",
                                color=LIGHT["ink"], weight=weight, size=size, bbox=paper)

    def width(self, content, weight="normal"):
        probe = self.text(0, 0, content, weight=weight)
        width = probe.get_window_extent(self.canvas.get_renderer()).width
        probe.remove()
        return width

    def axes(self, left, top, right, bottom):
        return self.figure.add_axes([left / WIDTH, 1 - bottom / self.height,
                                     (right - left) / WIDTH, (bottom - top) / self.height])


def weight(bar):
    return "bold" if bar.role == "ours" else "normal"


def plan(groups):
    """Returns [(y of the middle, bar)], [(y of the middle, heading)] and the total height."""
    bars, headings, y = [], [], TITLE
    for each in groups:
        headings.append((y + HEADING / 2, each.heading))
        y += HEADING
        for bar in each.bars:
            bars.append((y + BAR / 2, bar))
            y += BAR
        y += GAP
    return bars, headings, y + FOOT


def prepare_axes(axes, longest, unit, height):
    axes.set_xlim(0, longest)
    axes.set_ylim(height, 0)
    axes.set_yticks([])
    axes.set_facecolor("none")
    ticks = MaxNLocator(6, steps=[1, 2, 2.5, 5, 10]).tick_values(0, longest)
    axes.set_xticks([tick for tick in ticks if tick <= longest])
    axes.xaxis.grid(color=LIGHT["rule"], linewidth=0.8)
    axes.set_axisbelow(True)
    axes.tick_params(color=LIGHT["rule"], labelcolor=LIGHT["ink"], length=4)
    axes.set_xlabel(f"{unit} per call; shorter is faster", color=LIGHT["ink"])
    for spine in axes.spines.values():
        spine.set_visible(False)


def draw(title, groups):
    """Draws the figure, with one axis for all groups."""
    bars, headings, height = plan(groups)
    drawing = Drawing(height)
    short, unit, size = times.unit(max(bar.time for _, bar in bars))

    def value(bar):
        return f"{times.three_digits(bar.time / size)} {short}"

    left = EDGE + max(drawing.width(bar.name, weight(bar)) for _, bar in bars) + 8
    right = max(drawing.width(value(bar), weight(bar)) for _, bar in bars) + 6 + EDGE
    axes = drawing.axes(left, TITLE, WIDTH - right, height - FOOT)
    longest = max(bar.time for _, bar in bars) / size
    prepare_axes(axes, longest, unit, height - FOOT - TITLE)
    drawing.text(EDGE, TITLE / 2, title, weight="bold", size=14)
    for y, heading in headings:
        drawing.text(EDGE, y, heading, weight="bold")
    for y, bar in bars:
        edge = LIGHT["edge"] if bar.role == "floor" else "none"
        axes.barh(y - TITLE, bar.time / size, height=BAR - 5, color=LIGHT[bar.role],
                  edgecolor=edge, clip_on=False)
        drawing.text(left - 8, y, bar.name, "right", weight(bar))
        end = left + (WIDTH - right - left) * bar.time / size / longest
        drawing.text(end + 6, y, value(bar), weight=weight(bar))
    return drawing.figure


def dark_rules():
    """Returns the style for a dark background, which replaces the light colours."""
    rules = [f'[style*="{what}: {LIGHT[role]}"] {{ {what}: {DARK[role]} !important }}'
             for role in LIGHT for what in ("fill", "stroke")]
    return "@media (prefers-color-scheme: dark) {\n" + "\n".join(rules) + "\n}\n"


def svg(title, groups):
    """Returns the picture as text; equal times give equal text."""
    with matplotlib.rc_context(STYLE):
        output = io.StringIO()
        draw(title, groups).savefig(output, format="svg", facecolor=LIGHT["paper"], metadata={
            "Date": None, "Creator": None, "Format": None, "Type": None})
    text = re.sub(r'(<svg [^>]*?)width="(\d+)pt" height="(\d+)pt"([^>]*>)',
                  rf'\1width="\2" height="\3"\4\n <title>{escape(title)}</title>',
                  output.getvalue(), count=1)
    text = re.sub(r' d="[^"]*"', lambda path: re.sub(r"\s+", " ", path[0]), text)   # one line each
    return text.replace("</style>", dark_rules() + "</style>", 1)
