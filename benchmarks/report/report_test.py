#!/usr/bin/env python3
"""Tests the report on benchmarks: pairs, judgement, page and charts, with invented times."""
import itertools
import pathlib
import re
import tempfile
import unittest
import xml.etree.ElementTree

import judge
import measure
import page
import pairs
import times

try:
    import chart
except ImportError:
    chart = None

ROOT = pathlib.Path(__file__).resolve().parents[2]
ENTRY = {
    "title": "Adding & taking", "program": "sample_bench", "note": "A note.",
    "run": {"min_time": 0.1, "repetitions": 3},
    "rows": [{"what": "`add`, {size}", "each": {"size": {"10": "ten", "20": "twenty"}},
              "ours": "ours/{size}", "per": "{size}", "peers": {"Peer": "peer/{size}"},
              "floor": {"bare": "bare"}}],
    "growth": [{"what": "add", "ours": ["ours/10", "ours/20"], "per": [10, 20],
                "than": "Peer", "peer": ["peer/10", "peer/20"]}],
}
TARGETS = {
    "rows": [{"program": "sample_bench", "ours": ["ours/*"],
              "targets": [{"than": "Peer", "faster": True}, {"than": "bare", "at_most": 2},
                          {"than": "Peer", "at_most": 0.6, "above_floor": True}]}],
    "growth": [{"program": "sample_bench", "ours": ["ours/*"], "at_most": 1.25}],
}
CONTENT = {
    "charts": [{"name": "adding", "program": "sample_bench", "ours": ["ours/*"],
                "question": "What does it cost?", "note": "A note on it."}],
    "slower": [{"title": "Twenty", "reason": "It is more.", "program": "sample_bench",
                "ours": ["ours/20"]}],
}
NAMES = {"ours/10", "ours/20", "peer/10", "peer/20", "bare"}


def data(**nanoseconds):
    """Returns raw data of the sample; an underscore in a name means a slash."""
    return {"program": "sample_bench", "quick": False, "date": "2024-03-05", "seconds": 1,
            "settings": ENTRY["run"], "machine": {"processor": "Some CPU", "compiler": "cc"},
            "benchmarks": [{"name": name.replace("_", "/"), "median_ns": time, "cv": 0.01}
                           for name, time in nanoseconds.items()]}


def family_with_targets():
    family = pairs.family(ENTRY)
    pairs.add_targets([family], TARGETS)
    return family


def judged(**nanoseconds):
    return judge.judge(family_with_targets(), data(**nanoseconds))


class Pairs(unittest.TestCase):
    def test_each_makes_a_row_with_values_in_names_and_labels_in_words(self):
        rows = pairs.family(ENTRY).rows
        self.assertEqual([row.what for row in rows], ["`add`, ten", "`add`, twenty"])
        self.assertEqual([row.ours for row in rows], ["ours/10", "ours/20"])
        self.assertEqual([row.per for row in rows], [10, 20])

    def test_agreement(self):
        self.assertEqual(pairs.mismatches(pairs.family(ENTRY), set(), NAMES), [])

    def test_a_benchmark_without_a_row(self):
        problems = pairs.mismatches(pairs.family(ENTRY), set(), NAMES | {"new"})
        self.assertEqual(problems, ["sample_bench: no row of pairs.json names 'new'"])

    def test_a_name_without_a_benchmark(self):
        problems = pairs.mismatches(pairs.family(ENTRY), set(), NAMES - {"peer/20"})
        self.assertEqual(len(problems), 1)
        self.assertIn("'peer/20'", problems[0])

    def test_an_optional_peer_may_be_absent_as_a_whole_only(self):
        family = pairs.family(ENTRY)
        self.assertEqual(pairs.mismatches(family, {"Peer"}, NAMES - {"peer/10", "peer/20"}), [])
        self.assertEqual(pairs.absent_peers(family, {"Peer"}, {"ours/10"}), {"Peer"})
        self.assertEqual(len(pairs.mismatches(family, {"Peer"}, NAMES - {"peer/10"})), 1)

    def test_a_target_beside_nobody(self):
        family = pairs.family(ENTRY)
        mistakes = pairs.add_targets([family], {"growth": [], "rows": [
            {"program": "sample_bench", "ours": ["*"],
             "targets": [{"than": "Nobody", "faster": True}]}]})
        self.assertEqual(mistakes, [])
        problems = pairs.mismatches(family, set(), NAMES)
        self.assertTrue(any("Nobody" in problem for problem in problems))

    def test_a_target_without_a_row(self):
        entry = {"program": "sample_bench", "ours": ["ours/30"], "targets": [], "at_most": 1}
        mistakes = pairs.add_targets([pairs.family(ENTRY)], {"rows": [entry], "growth": [entry]})
        self.assertEqual(len(mistakes), 2)

    def test_a_chart_and_a_reason_without_a_row(self):
        families = [pairs.family(ENTRY)]
        self.assertEqual(page.mistakes(CONTENT, families), [])
        lost = {"charts": [{**CONTENT["charts"][0], "ours": ["theirs/*"]}],
                "slower": [{**CONTENT["slower"][0], "program": "other_bench"}]}
        self.assertEqual(len(page.mistakes(lost, families)), 2)


class Judgement(unittest.TestCase):
    def test_ratios(self):
        line = judged(ours_10=100, peer_10=200, bare=50).lines[0]
        self.assertEqual([line.ours, line.peers["Peer"], line.floor[1]], [10, 20, 5])
        self.assertEqual(line.best_peer(), ("Peer", 20))
        ratios = [round(verdict.ratio, 3) for verdict in line.verdicts]
        self.assertEqual(ratios, [0.5, 2, 0.333])   # the last: without the floor, 50 / 150
        self.assertTrue(all(verdict.met for verdict in line.verdicts))

    def test_missed(self):
        missed = judged(ours_10=200, peer_10=200, bare=50).missed()
        self.assertEqual([round(verdict.ratio, 2) for _, verdict in missed], [1, 4, 1])

    def test_faster_is_below_and_at_most_is_on_the_limit(self):
        self.assertFalse(pairs.target({"than": "P", "faster": True}).is_met(1))
        self.assertTrue(pairs.target({"than": "P", "at_most": 1}).is_met(1))
        self.assertTrue(pairs.target({"than": "P", "speedup": 4}).is_met(0.25))
        self.assertFalse(pairs.target({"than": "P", "speedup": 4}).is_met(0.26))

    def test_growth_beside_the_peers(self):
        growth = judged(ours_10=100, ours_20=400, peer_10=100, peer_20=300, bare=1).growth[0]
        self.assertEqual([growth.ours, growth.peer], [2, 1.5])
        self.assertFalse(growth.verdicts[0].met)

    def test_what_was_not_measured_is_left_out(self):
        one = judged(ours_10=100)
        self.assertEqual([len(one.lines), len(one.growth)], [1, 0])
        self.assertEqual(len(one.lines[0].unmeasured), 3)


class Measurement(unittest.TestCase):
    @staticmethod
    def entry(name, processor, real, unit="ns"):
        return {"name": name, "run_name": name, "run_type": "iteration", "cpu_time": processor,
                "real_time": real, "time_unit": unit, "executable": "somewhere"}

    def test_the_clock_that_counts(self):
        names = ["plain", "set/manual_time", "many/real_time/threads:2"]
        kept = measure.kept_of_all(
            {"benchmarks": [self.entry(name, 1, 2, "us") for name in names]})
        self.assertEqual({one["name"]: one["median_ns"] for one in kept},
                         {"plain": 1000, "set/manual_time": 2000,
                          "many/real_time/threads:2": 2000})

    def test_medians_of_the_repetitions_alone(self):
        entries = [self.entry("plain", time, 0) for time in (3, 1, 100)]
        mean = {**self.entry("plain", 34, 0), "run_type": "aggregate"}
        kept = measure.kept_of_all({"benchmarks": [*entries, mean]})
        self.assertEqual([kept[0]["median_ns"], kept[0]["min_ns"]], [3, 1])
        self.assertEqual(sorted(kept[0]), ["clock", "cv", "median_ns", "min_ns", "name"])

    def test_medians_of_the_runs(self):
        runs = [measure.kept_of_all({"benchmarks": [self.entry("plain", time, 0) for time in times]})
                for times in ((3, 3), (9, 1), (4, 4))]
        one, = measure.medians(runs)
        self.assertEqual((one["median_ns"], one["min_ns"]), (4, 1))
        self.assertEqual(one["cv"], max(run[0]["cv"] for run in runs))
        self.assertEqual(measure.medians(runs[:1]), runs[0])

    def test_data_are_written_and_read(self):
        with tempfile.TemporaryDirectory() as folder:
            content = data(ours_10=100)
            measure.write(pathlib.Path(folder), "sample_bench", dict(content))
            self.assertEqual(measure.read(pathlib.Path(folder), "sample_bench"), content)


class Page(unittest.TestCase):
    def setUp(self):
        self.text = page.document([judged(ours_10=100, ours_20=500, peer_10=200, peer_20=400,
                                          bare=40)], CONTENT)

    def section(self, heading):
        return self.text.split(f"# {heading}\n")[1].split("\n#")[0]

    def test_questions_come_first(self):
        headings = [line for line in self.text.splitlines() if line.startswith("## ")]
        self.assertEqual(headings, ["## What does it cost?", "## Where a peer is faster",
                                    "## Machine and method", "## Adding & taking"])
        self.assertIn("](benchmarks/adding.svg)", self.section("What does it cost?"))

    def test_table(self):
        self.assertIn("| `add`, ten | 10.0 ns ± 1 % | Peer, 20.0 ns | 0.50 | — |"
                      " bare, 4.00 ns (2.50) |", self.section("Adding & taking"))
        self.assertIn("- Processor: Some CPU", self.text)

    def test_targets_are_not_on_the_page(self):
        self.assertNotIn("target", self.text.lower())

    def test_what_is_slower_is_named_with_its_reason(self):
        self.assertIn("1 of 2 rows", self.section("Where a peer is faster"))
        self.assertIn("It is more.", self.section("Twenty"))
        self.assertIn("| `add`, twenty | 25.0 ns ± 1 % | Peer, 20.0 ns (1.25) |",
                      self.section("Twenty"))

    def test_what_is_slower_without_a_reason_says_so(self):
        text = page.document([judged(ours_10=300, peer_10=200, bare=1)], CONTENT)
        self.assertIn("The reason is not known.", text.split("### Not explained yet")[1])

    def test_level_is_not_slower(self):
        text = page.document([judged(ours_10=104, peer_10=100, bare=1)], CONTENT)
        self.assertIn("0 of 1 rows", text)

    def test_a_question_that_was_not_measured_is_left_out(self):
        self.assertNotIn("What does it cost", page.document([judged()], CONTENT))


def luminance(colour):
    """WCAG 2: relative luminance."""
    parts = [int(colour[i:i + 2], 16) / 255 for i in (1, 3, 5)]
    red, green, blue = (part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4
                        for part in parts)
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def contrast(one, other):
    """WCAG 2: contrast ratio."""
    low, high = sorted((luminance(one), luminance(other)))
    return (high + 0.05) / (low + 0.05)


def overlap(one, other):
    return (min(one.x1, other.x1) - max(one.x0, other.x0) > 0.5 and
            min(one.y1, other.y1) - max(one.y0, other.y0) > 0.5)


def chart_boxes(figure):
    """Returns [(name, box)] of everything that must not overlap, measured by the renderer."""
    renderer = figure.canvas.get_renderer()
    axes = figure.axes[0]
    labels = [*figure.texts, axes.xaxis.label, *axes.get_xticklabels()]
    figure.draw(renderer)   # places the labels of the axis
    return ([(label.get_text(), label.get_tightbbox(renderer)) for label in labels] +
            [(f"bar {i}", bar.get_window_extent(renderer)) for i, bar in enumerate(axes.patches)])


def chart_faults(figure):
    """Returns a line for each label that is cut off and each pair that overlaps."""
    boxes = chart_boxes(figure)
    page_box = figure.bbox
    faults = [f"'{name}' is cut off" for name, box in boxes
              if box.x0 < 0 or box.y0 < 0 or box.x1 > page_box.x1 or box.y1 > page_box.y1]
    return faults + [f"'{one}' overlaps '{other}'"
                     for (one, first), (other, second) in itertools.combinations(boxes, 2)
                     if overlap(first, second)]


@unittest.skipUnless(chart, "matplotlib is not installed")
class Chart(unittest.TestCase):
    LINE = judge.Line("ours", "`add`, ten", 10, 0.01, {"Slow": 30, "Quick": 5}, ("bare", 2), [], [])

    @staticmethod
    def draw(title, groups):
        with chart.matplotlib.rc_context(chart.STYLE):
            return chart.draw(title, groups)

    def test_ours_is_first_and_the_only_one_in_its_colour(self):
        bars = chart.group(self.LINE).bars
        self.assertEqual([(bar.name, bar.role) for bar in bars],
                         [("libvncommon", "ours"), ("Quick", "peer"), ("Slow", "peer"),
                          ("bare (least possible)", "floor")])

    def test_bars_have_one_axis_from_zero(self):
        figure = self.draw("Adding", [chart.group(self.LINE)] * 2)
        self.assertEqual(len(figure.axes), 1)
        self.assertEqual(figure.axes[0].get_xlim(), (0, 30))
        self.assertEqual([bar.get_width() for bar in figure.axes[0].patches],
                         [10, 5, 30, 2] * 2)
        self.assertIn("nanoseconds per call", figure.axes[0].get_xlabel())

    def test_the_unit_suits_the_longest_bar(self):
        self.assertEqual(times.unit(1999), ("ns", "nanoseconds", 1))
        self.assertEqual(times.unit(2000), ("µs", "microseconds", 1e3))

    def test_the_figures_of_a_chart_have_one_unit(self):
        bars = [chart.Bar("libvncommon", 990, "ours"), chart.Bar("Slow", 2500, "peer")]
        figure = self.draw("Adding", [chart.Group("heading", bars)])
        texts = [text.get_text() for text in figure.texts]
        self.assertIn("0.990 µs", texts)
        self.assertIn("2.50 µs", texts)
        self.assertIn("microseconds per call", figure.axes[0].get_xlabel())

    def test_names_of_any_length_fit(self):
        for name in ("x", "a peer with a name that needs much of the width of the page"):
            bars = [chart.Bar("libvncommon", 0.001, "ours"), chart.Bar(name, 987654, "peer")]
            figure = self.draw("Adding", [chart.Group("heading", bars)])
            self.assertEqual(chart_faults(figure), [])

    def test_the_faults_that_are_looked_for_are_found(self):
        figure = self.draw("A title that is far too long for its picture " * 4,
                           [chart.group(self.LINE)])
        self.assertIn("cut off", " ".join(chart_faults(figure)))
        figure = self.draw("Adding", [chart.group(self.LINE)])
        figure.text(0.3, 0.5, "in the way of every bar and label\n" * 9, va="center")
        self.assertIn("overlaps", " ".join(chart_faults(figure)))

    def test_the_charts_of_the_page(self):
        known = pairs.load(ROOT / "benchmarks/pairs.json",
                           ROOT / "tests/quality/benchmark_targets.json")
        content = page.load(ROOT / "benchmarks/page.json")
        data = [(one, measure.read(ROOT / "docs/benchmarks/raw", one.program))
                for one in known.families]
        all_judged = [judge.judge(one, times_of) for one, times_of in data if times_of]
        self.assertEqual(len(content["charts"]), 5)
        for entry in content["charts"]:
            groups = [chart.group(line) for line in page.lines_of(entry, all_judged)]
            with self.subTest(entry["name"]):
                self.assertEqual(chart_faults(self.draw(entry["question"], groups)), [])

    def test_the_same_times_give_the_same_picture(self):
        first, second = (chart.svg("Adding & taking", [chart.group(self.LINE)]) for _ in range(2))
        self.assertEqual(first, second)
        self.assertNotIn("matplotlib.org", first.split("<defs>")[1])

    def test_the_picture_is_xml_with_a_title_and_a_dark_form(self):
        text = chart.svg("Adding & taking", [chart.group(self.LINE)])
        root = xml.etree.ElementTree.fromstring(text)
        self.assertEqual(root.find("{*}title").text, "Adding & taking")
        self.assertIn("prefers-color-scheme: dark", text)
        drawn = text.split("</style>")[1]
        for role in ("paper", "ink", "ours", "peer", "floor"):
            self.assertIn(f"fill: {chart.LIGHT[role]}", drawn)

    def test_every_colour_of_the_picture_has_a_dark_form(self):
        drawn = chart.svg("Adding", [chart.group(self.LINE)]).split("</style>")[1]
        colours = set(re.findall(r"(?:fill|stroke): (#[0-9a-f]{6})", drawn))
        self.assertLessEqual(colours, set(chart.LIGHT.values()))

    def test_colours_can_be_told_apart_by_lightness_alone(self):
        for colours in (chart.LIGHT, chart.DARK):
            self.assertGreaterEqual(contrast(colours["ink"], colours["paper"]), 7)
            self.assertGreaterEqual(contrast(colours["ours"], colours["paper"]), 3)
            self.assertGreaterEqual(contrast(colours["ours"], colours["peer"]), 1.8)
            self.assertGreaterEqual(contrast(colours["peer"], colours["floor"]), 1.8)


if __name__ == "__main__":
    unittest.main()
