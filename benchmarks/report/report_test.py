#!/usr/bin/env python3
"""The report on benchmarks: pairs, judgement, page and charts, from times made up here."""
import pathlib
import tempfile
import unittest
import xml.etree.ElementTree

import judge
import measure
import page
import pairs

ENTRY = {
    "title": "Adding & taking", "program": "sample_bench", "note": "A note.",
    "run": {"min_time": 0.1, "repetitions": 3},
    "rows": [{"what": "`add`, {size}", "each": {"size": {"10": "ten", "20": "twenty"}},
              "ours": "ours/{size}", "per": "{size}", "peers": {"Peer": "peer/{size}"},
              "floor": {"bare": "bare"},
              "targets": [{"than": "Peer", "faster": True}, {"than": "bare", "at_most": 2},
                          {"than": "Peer", "at_most": 0.6, "above_floor": True}]}],
    "growth": [{"what": "add", "ours": ["ours/10", "ours/20"], "per": [10, 20],
                "than": "Peer", "peer": ["peer/10", "peer/20"], "at_most": 1.25}],
}
NAMES = {"ours/10", "ours/20", "peer/10", "peer/20", "bare"}


def data(**nanoseconds):
    """Raw data of the sample; names are written with _ for /."""
    return {"program": "sample_bench", "quick": False, "date": "2024-03-05", "seconds": 1,
            "settings": ENTRY["run"], "machine": {"processor": "Some CPU", "compiler": "cc"},
            "benchmarks": [{"name": name.replace("_", "/"), "median_ns": time, "cv": 0.01}
                           for name, time in nanoseconds.items()]}


def judged(**nanoseconds):
    return judge.judge(pairs.family(ENTRY), data(**nanoseconds))


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
        row = {**ENTRY["rows"][0], "targets": [{"than": "Nobody", "faster": True}]}
        problems = pairs.mismatches(pairs.family({**ENTRY, "rows": [row]}), set(), NAMES)
        self.assertTrue(any("Nobody" in problem for problem in problems))


class Judgement(unittest.TestCase):
    def test_ratios(self):
        line = judged(ours_10=100, peer_10=200, bare=50).lines[0]
        self.assertEqual([line.ours, line.peers["Peer"], line.floor[1]], [10, 20, 5])
        self.assertEqual(line.best_peer(), ("Peer", 20))
        ratios = [round(verdict.ratio, 3) for verdict in line.verdicts]
        self.assertEqual(ratios, [0.5, 2, 0.333])   # the last: 50 above the floor beside 150
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
        self.assertFalse(growth.verdict.met)

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

    def test_data_are_written_and_read(self):
        with tempfile.TemporaryDirectory() as folder:
            content = data(ours_10=100)
            measure.write(pathlib.Path(folder), "sample_bench", dict(content))
            self.assertEqual(measure.read(pathlib.Path(folder), "sample_bench"), content)


class Page(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.docs = pathlib.Path(self.folder.name)
        page.write([judged(ours_10=100, peer_10=200, bare=40)], self.docs)
        self.text = (self.docs / "benchmarks.md").read_text(encoding="utf-8")

    def tearDown(self):
        self.folder.cleanup()

    def test_table(self):
        self.assertIn("| `add`, ten | 10.0 ns ± 1 % | Peer, 20.0 ns | 0.50 |"
                      " bare, 4.00 ns (2.50) |"
                      " faster than Peer: 0.50; ≤ 2 × bare: 2.50;", self.text)
        self.assertIn("| **no** |", self.text)
        self.assertIn("2 of 3 that were measured are met", self.text)
        self.assertIn("- Processor: Some CPU", self.text)

    def test_chart(self):
        self.assertIn("(benchmarks/sample_bench.svg)", self.text)
        picture = xml.etree.ElementTree.parse(self.docs / "benchmarks/sample_bench.svg")
        texts = [element.text for element in picture.iter() if element.tag.endswith("text")]
        self.assertIn("Adding & taking", texts)
        self.assertIn("Peer 2.00", texts)
        self.assertIn("bare 0.40", texts)


if __name__ == "__main__":
    unittest.main()
