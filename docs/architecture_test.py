#!/usr/bin/env python3
"""What includes what: the rules, the picture and the page of docs/architecture.md."""
import itertools
import pathlib
import re
import tempfile
import unittest

import architecture

ROOT = pathlib.Path(__file__).resolve().parents[1]

RULES = {
    "rows": [["events"], ["text"], ["platform"]],
    "may_use": {"events": ["text"], "text": ["platform"], "platform": []},
    "headers": {"events": [], "text": ["utf8.h"], "platform": ["failure.h"]},
    "exceptions": [],
}
FILES = {
    "include/vncommon/api.h": "",
    "include/vncommon/vncommon.h": "#include <vncommon/utf8.h>\n#include <vncommon/failure.h>\n",
    "include/vncommon/utf8.h": "#include <vncommon/api.h>\n",
    "include/vncommon/failure.h": "",
    "events/event.cpp": "#include <vncommon/utf8.h>\n#include <stdio.h>\n#include \"text/own.h\"\n",
    "text/utf8/utf8.cpp": "#include <vncommon/utf8.h>\n#include <vncommon/failure.h>\n",
    "platform/failure.cpp": "#include \"platform/check_error.h\"\n",
}


class MadeUp(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vn-architecture-")
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        for name, text in FILES.items():
            self.write(name, text)

    def write(self, name, text):
        (self.root / name).parent.mkdir(parents=True, exist_ok=True)
        (self.root / name).write_text(text, encoding="utf-8")

    def faults(self, **changes):
        return architecture.faults(self.root, {**RULES, **changes})

    def test_includes_are_counted_between_folders(self):
        drawn = architecture.arrows(self.root, {**RULES})
        self.assertEqual([(each.source, each.target, each.count, each.up) for each in drawn],
                         [("events", "text", 2, False), ("text", "platform", 1, False)])

    def test_a_tree_that_keeps_the_rules(self):
        self.assertEqual(self.faults(), [])

    def test_an_include_of_a_higher_layer(self):
        self.write("platform/files.cpp", "#include <vncommon/utf8.h>\n")
        self.assertIn("platform/files.cpp includes vncommon/utf8.h", self.faults()[0])
        excused = {"file": "platform/files.cpp", "includes": "vncommon/utf8.h"}
        self.assertEqual(self.faults(exceptions=[excused]), [])

    def test_an_include_between_public_headers(self):
        self.write("include/vncommon/failure.h", "#include <vncommon/utf8.h>\n")
        self.assertIn("include/vncommon/failure.h includes", self.faults()[0])

    def test_a_layer_that_may_not_be_skipped(self):
        self.write("events/other.cpp", "#include \"platform/check_error.h\"\n")
        self.assertEqual(len(self.faults()), 1)

    def test_an_excuse_that_is_no_longer_needed(self):
        excused = {"file": "text/utf8/utf8.cpp", "includes": "vncommon/event.h"}
        self.assertIn("no longer", self.faults(exceptions=[excused])[0])

    def test_headers_without_a_folder_and_folders_without_a_header(self):
        self.write("include/vncommon/new.h", "")
        (self.root / "include/vncommon/utf8.h").unlink()
        self.assertEqual(len(self.faults()), 2)


class OurTree(unittest.TestCase):
    def setUp(self):
        self.rules = architecture.load_rules(ROOT)

    def test_the_rules_are_kept(self):
        self.assertEqual(architecture.faults(ROOT, self.rules), [])

    def test_the_rules_point_down(self):
        for source, targets in self.rules["may_use"].items():
            for target in targets:
                self.assertGreater(architecture.row_of(target, self.rules),
                                   architecture.row_of(source, self.rules))

    def test_the_picture_is_true(self):
        drawn = (ROOT / "docs/architecture.svg").read_text(encoding="utf-8")
        self.assertTrue(drawn == architecture.svg(ROOT, self.rules),
                        "what includes what has changed; run docs/architecture.py .")

    def test_no_label_covers_another_or_a_box(self):
        width, height = architecture.LABEL
        labels = [each.label for each in architecture.arrows(ROOT, self.rules)]
        for (x1, y1), (x2, y2) in itertools.combinations(labels, 2):
            self.assertTrue(abs(x1 - x2) >= width or abs(y1 - y2) >= height, f"{x1},{y1} {x2},{y2}")
        for (x, y), folder in itertools.product(labels, architecture.BOXES):
            left, right = architecture.BOXES[folder]
            top = architecture.TOP + architecture.row_of(folder, self.rules) * architecture.ROW
            self.assertFalse(left - width / 2 < x < right + width / 2 and
                             top - height / 2 < y < top + architecture.BOX_HEIGHT + height / 2,
                             f"{x},{y} on {folder}")

    def test_the_exceptions_are_on_the_page(self):
        text = (ROOT / "docs/architecture.md").read_text(encoding="utf-8")
        for each in self.rules["exceptions"]:
            row = f"| `{each['file']}` | `{each['includes'].split('/')[1]}` | {each['reason']} |"
            self.assertIn(row, text)

    def test_the_rules_are_on_the_page(self):
        text = (ROOT / "docs/architecture.md").read_text(encoding="utf-8")
        for folder, targets in self.rules["may_use"].items():
            self.assertIn(f"| `{folder}/` | {', '.join(targets) or 'none of these'} |", text)

    def test_the_files_that_the_page_names_are_there(self):
        text = (ROOT / "docs/architecture.md").read_text(encoding="utf-8")
        named = [name for name in re.findall(r"`([\w./-]+/[\w./*-]*)`", text)]
        self.assertGreater(len(named), 30)
        self.assertEqual([name for name in named if not list(ROOT.glob(name.rstrip("/")))], [])


if __name__ == "__main__":
    unittest.main()
