#!/usr/bin/env python3
"""scripts/mutate: which tests belong to which source, the mistakes, the copy, and the page."""
import pathlib
import subprocess
import tempfile
import unittest

import families
import operators
import page
import results
import tree_copy
from stages import TARGETS

SOURCE = """#include <x>  // a < b
bool find(int count) {
    if (count < 1 && !found("a < b")) {
        unlock(&mutex);
        return true;
    }
    return false;
}
"""


def mutations(text=SOURCE):
    return list(operators.candidates("family", "folder/name.cpp", text))


class Families(unittest.TestCase):
    def test_every_source_has_one_family_with_tests(self):
        known = families.families()
        listed = [source for family in known.values() for source in family.sources]
        self.assertEqual(sorted(listed), sorted(families.sources()))
        self.assertGreater(len(listed), 50)
        programs = {path.stem for path in (families.ROOT / "tests").rglob("*_test.cpp")}
        for name, family in known.items():
            self.assertTrue(family.tests, name)
            self.assertLessEqual(set(family.tests), programs | set(TARGETS), name)

    def test_the_tables_name_what_exists(self):
        for source in (*families.SUBJECTS, *families.LEFT_OUT):
            self.assertTrue((families.ROOT / source).is_file(), source)
        self.assertLessEqual({*families.SUBJECTS.values(), *families.OTHER_TESTS},
                             set(families.families()))

    def test_folders_and_subjects(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name in ("containers/map.cpp", "containers/map_keys.h", "text/utf8/any.cpp",
                         "tests/containers/map_test.cpp", "tests/containers/map_keys_test.cpp",
                         "tests/containers/mapper_test.cpp", "tests/text/utf8/some_test.cpp"):
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).touch()
            self.assertEqual(families.families(root), {
                "containers/map": families.Family(["containers/map.cpp", "containers/map_keys.h"],
                                                  ["map_test", "map_keys_test"]),
                "text/utf8": families.Family(["text/utf8/any.cpp"], ["some_test"])})


class Operators(unittest.TestCase):
    def test_the_mistakes_of_a_function(self):
        self.assertEqual([(m.number, m.operator, m.after.strip()) for m in mutations()], [
            (3, "comparison", 'if (count <= 1 && !found("a < b")) {'),
            (3, "negation", 'if (count < 1 && found("a < b")) {'),
            (3, "and/or", 'if (count < 1 || !found("a < b")) {'),
            (4, "dropped unlock", ";"),
            (5, "returned constant", "return false;"),
            (7, "returned constant", "return true;")])

    def test_an_id_does_not_depend_on_the_line_number(self):
        moved = mutations("// a longer file\n\n" + SOURCE)
        self.assertEqual([m.id for m in moved], [m.id for m in mutations()])
        self.assertEqual(len({m.id for m in moved}), len(moved))

    def test_the_selection_is_fixed_and_reaches_every_source(self):
        other = list(operators.candidates("family", "folder/other.cpp", SOURCE))
        chosen = operators.select(mutations() + other, 4)
        self.assertEqual(chosen, operators.select(other + mutations(), 4))
        self.assertEqual({m.source for m in operators.select(mutations() + other, 1)},
                         {"folder/name.cpp", "folder/other.cpp"})
        self.assertEqual(operators.select(other, 0), [])


class TheCopy(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        root = pathlib.Path(temporary.name)
        self.root, self.copy = root / "tree", root / "copy"
        (self.root / "folder").mkdir(parents=True)
        self.source = self.root / "folder/name.cpp"
        self.source.write_text(SOURCE)
        subprocess.run(["git", "init", "-q", self.root], check=True)
        for name, value in (("ROOT", self.root), ("TREE", self.copy)):
            self.addCleanup(setattr, tree_copy, name, getattr(tree_copy, name))
            setattr(tree_copy, name, value)

    def test_uncommitted_changes_are_copied_and_kept(self):
        tree_copy.refresh()
        (self.root / "new.cpp").write_text("int a;\n")
        self.source.write_text("// edited\n" + SOURCE)
        tree_copy.refresh()
        copied = self.copy / "folder/name.cpp"
        self.assertEqual(copied.read_text(), "// edited\n" + SOURCE)
        self.assertTrue((self.copy / "new.cpp").is_file())
        mutation = mutations("// edited\n" + SOURCE)[0]
        with tree_copy.mutated(mutation):
            self.assertIn("count <= 1", copied.read_text())
        self.assertEqual(copied.read_text(), "// edited\n" + SOURCE)
        self.assertEqual(self.source.read_text(), "// edited\n" + SOURCE)

    def test_a_removed_file_leaves_the_copy(self):
        tree_copy.refresh()
        self.source.unlink()
        tree_copy.refresh()
        self.assertFalse((self.copy / "folder/name.cpp").exists())


class ThePage(unittest.TestCase):
    def test_the_page_is_what_the_results_give(self):
        self.assertEqual(page.PAGE.read_text(encoding="utf-8"), page.page(results.read()),
                         "run scripts/mutate --page")

    def test_rows(self):
        one, two, three = mutations()[:3]
        run = {"key": "", "stages": "plain", "commit": "abc", "date": "2026-01-02"}
        known = {one.id: {**run, "verdict": "noticed", "by": "a_test, tsan (status 1)"},
                 two.id: {**run, "verdict": "survived", "by": ""},
                 "name-gone00": {**run, "verdict": "noticed", "by": "removed_test"}}
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "results.json"
            results.save([one, two, three], known, path)
            text = page.page(results.read(path))
            self.assertEqual(set(results.load(path)), {one.id, two.id})
        self.assertIn("| family | 2 | 1 | 1 | 1 | 1 | abc, 2026-01-02 |", text)
        self.assertIn(f"| {two.id} | `folder/name.cpp` |", text)
        self.assertIn("not explained yet", text)
        self.assertNotIn("removed_test", text)


if __name__ == "__main__":
    unittest.main(verbosity=2)
