#!/usr/bin/env python3
"""scripts/prove: what it reads from each kind of log, what it keeps, and the page."""
import pathlib
import tempfile
import unittest

import page
import parse
import record
import stages

SAMPLES = pathlib.Path(__file__).with_name("samples")


def sample(name):
    return (SAMPLES / name).read_text(encoding="utf-8")


def row(stage="checks", what="the tree", result="passed", commit="abc", **more):
    return {"stage": stage, "what": what, "amount": "", "result": result, "commit": commit,
            "date": "2026-01-02", "machine": "one", "minutes": 3, **more}


class Parsing(unittest.TestCase):
    def test_suites(self):
        self.assertEqual(parse.ctest(sample("ctest.txt")), (5, 0, 0))
        self.assertEqual(parse.ctest(sample("ctest_failed.txt")), (3, 1, 2))
        self.assertEqual(parse.ctest_passed(sample("ctest_failed.txt")), {"bits_test"})
        listed = parse.ctest_listed(sample("ctest_list.txt"))
        self.assertEqual(len(listed), 14)
        self.assertEqual(listed & parse.ctest_passed(sample("ctest.txt")), {"small_stack_test"})

    def test_faults(self):
        self.assertEqual(parse.faults(sample("faults.txt")), (2, 124))

    def test_fuzz(self):
        text = sample("fuzz.txt")
        self.assertEqual(parse.fuzz(text), [("integers", 737043, True), ("utf16", 226777, True)])
        failed = text.replace("226777     56694     259       801  passed",
                              "     -         -       -         -  FAILED")
        self.assertEqual(parse.fuzz(failed)[1], ("utf16", 0, False))

    def test_coverage(self):
        self.assertEqual(parse.coverage(sample("coverage.json")), ((933, 4646), (443, 2232)))

    def test_mutation(self):
        self.assertEqual(parse.mutation(sample("mutation.json"), {"a-000002": "why"}),
                         (3, 1, 2, 1))

    def test_soak(self):
        text = sample("soak.txt")
        self.assertEqual(parse.soak(text)[:2], (5, 21128))
        self.assertEqual(len(parse.soak(text)[2]), 4)   # too short to judge
        self.assertEqual(parse.soak(text.replace("too short to judge", "flat"))[2], [])

    def test_repeated_programs(self):
        self.assertEqual(parse.googletest(sample("googletest.txt")), (3, 3))

    def test_bits(self):
        self.assertEqual(parse.bits(sample("bits.txt")), (51, 0))

    def test_cross(self):
        self.assertEqual(parse.cross(sample("cross.txt")),
                         ("12.2.0", [("bits", "passed", "1 tests, 0 failed")]))

    def test_releases(self):
        self.assertEqual(parse.release(sample("release.txt")),
                         [("scripts/run", "passed", 4), ("scripts/test --quick", "FAILED", 31)])

    def test_checks(self):
        self.assertEqual(parse.checks(sample("check.txt")),
                         ["format", "functions", "tree", "shell", "python"])

    def test_failed_checks(self):
        failed = sample("check.txt").replace("check: all checks passed",
                                             "check: failed: tree tidy; see the lines above")
        self.assertEqual(parse.failed_checks(failed), ["tree", "tidy"])
        self.assertEqual(parse.failed_checks(sample("check.txt")), [])

    def test_a_log_without_the_figure_is_an_error(self):
        for read in (parse.ctest, parse.faults, parse.fuzz, parse.soak, parse.googletest,
                     parse.bits, parse.cross, parse.release):
            with self.subTest(read.__name__), self.assertRaises(ValueError):
                read("configure failed\n")
        with self.assertRaises(ValueError):
            parse.coverage("{}")


class Record(unittest.TestCase):
    def test_other_stages_keep_their_rows(self):
        rows = [row("bits", "a", commit="old"), row("checks", commit="old")]
        after = record.replace(rows, "checks", [row("checks", commit="new")])
        self.assertEqual([(each["stage"], each["commit"]) for each in after],
                         [("bits", "old"), ("checks", "new")])

    def test_counts_add_up(self):
        rows = [row("fuzz", "utf8", count=10), row("fuzz", "gone", count=7)]
        after = record.replace(rows, "fuzz", [row("fuzz", "utf8", commit="def", count=5)])
        self.assertEqual([(each["what"], each["count"]) for each in after], [("utf8", 15)])
        last = record.add(after[0], row("fuzz", "utf8", commit="fed", count=2))
        self.assertEqual((last["count"], last["since"], last["commit"]), (17, "abc", "fed"))

    def test_a_failed_count_stays_failed_on_its_commit(self):
        failed = row("fuzz", "utf8", "FAILED", count=1)
        again = record.add(failed, row("fuzz", "utf8", count=1))
        self.assertEqual((again["count"], again["result"]), (2, "FAILED"))
        fixed = record.add(again, row("fuzz", "utf8", commit="def", count=1))
        self.assertEqual((fixed["count"], fixed["result"]), (3, "passed"))

    def test_rows_survive_the_file(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "proof.json"
            self.assertEqual(record.load(path), [])
            record.save([row(), row("bits", "b")], path)
            self.assertEqual(record.load(path), [row(), row("bits", "b")])

    def test_a_stamp_names_commit_and_machine(self):
        stamp = record.stamp()
        self.assertRegex(stamp["commit"], r"^[0-9a-f]{10}\+?$")
        self.assertIn("processors", stamp["machine"])


class Stages(unittest.TestCase):
    def test_names_are_unique(self):
        names = [stage.name for stage in stages.STAGES]
        self.assertEqual(len(set(names)), len(names))

    def test_a_failed_command_is_a_failed_row(self):
        saved = stages.run
        self.addCleanup(setattr, stages, "run", saved)
        stages.run = lambda *_: stages.Run(1, sample("check.txt"))
        self.assertEqual(stages.checks(None)[0]["result"], "FAILED")
        stages.run = lambda *_: stages.Run(stages.MISSING, "")
        self.assertIn("not run", stages.cross(None)[0]["result"])


class Page(unittest.TestCase):
    def test_the_page_is_what_the_record_gives(self):
        self.assertEqual(page.PAGE.read_text(encoding="utf-8"), page.page(record.load()),
                         "run scripts/prove --page")

    def test_stages_that_never_ran_say_so(self):
        text = page.page([row(result="FAILED")])
        self.assertIn("| checks | the tree |  | FAILED | abc | 2026-01-02 | 1 |", text)
        self.assertEqual(text.count("| not run |"), len(stages.STAGES) - 1)

    def test_sums(self):
        text = page.page([row("fuzz", "a", count=1000), row("fuzz", "b", count=500)])
        self.assertIn("| fuzz | all | 1,500 executions | passed | abc | 2026-01-02 | |", text)
        text = page.page([{**row("fuzz", "a", count=1, commit="x"), "since": "w"},
                          row("fuzz", "b", "FAILED", count=2)])
        self.assertIn("| fuzz | a | 1 executions | passed | w to x |", text)
        self.assertIn("| fuzz | all | 3 executions | FAILED | see above |", text)


if __name__ == "__main__":
    unittest.main(verbosity=2)
