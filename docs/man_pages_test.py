#!/usr/bin/env python3
"""The manual page of a made-up header, and that no markup is left in any page."""
import pathlib
import unittest

import man_pages

HEADERS = pathlib.Path(__file__).resolve().parent.parent / "include/vncommon"
HEADER = """\
/** @file
 * Numbers: how to get them.
 *
 * Any thread. */
#ifndef A_H
VN_BEGIN_DECLS

/** @name Getting
 * All of these read memory.
 * @{ */

/** The value at `"%d"`:
 *  - one;
 *  - two.
 * Compat: the rest.
 *
 *     get(\\n);
 */
VN_NODISCARD VN_API int vn_get(const int* at) VN_PURE VN_NONNULL;

/* In place of the call: see a/b. */
#if defined(__GNUC__) && !defined(INSIDE)
extern inline __attribute__((gnu_inline)) int vn_get(const int* at) {
    return *at;
}
#endif

/** The next one. */
VN_API int vn_next(const char* format, ...) VN_PRINTF(1, 2);
/** @} */

VN_END_DECLS
#endif
"""


class Page(unittest.TestCase):
    def setUp(self):
        self.lines = man_pages.page("numbers", HEADER, "1.0").split("\n")

    def assert_follow(self, *lines):
        at = self.lines.index(lines[0])
        self.assertEqual(self.lines[at:at + len(lines)], list(lines))

    def test_the_comment_of_the_file(self):
        self.assertIn("vncommon_numbers \\- how to get them", self.lines)
        self.assert_follow(".SH DESCRIPTION", "Numbers: how to get them.", ".PP", "Any thread.")

    def test_a_group(self):
        self.assert_follow(".SS Getting", "All of these read memory.", ".PP")

    def test_a_function(self):
        self.assert_follow("\\fBint vn_get(const int* at);\\fR", ".fi", ".RS 4",
                           'The value at \\fB"%d"\\fR:', ".br", "\\- one;", ".br", "\\- two.",
                           ".br", "Compat: the rest.", ".PP", ".RS", ".nf", "get(\\en);")
        self.assert_follow("\\fBint vn_next(const char* format, ...);\\fR", ".fi", ".RS 4",
                           "The next one.", ".RE")

    def test_inline_bodies_are_left_out_with_their_comment(self):
        for text in ("In place of", "gnu_inline", "__GNUC__", "return", "#endif"):
            self.assertNotIn(text, "\n".join(self.lines))

    def test_no_markup_is_left(self):
        for header in HEADERS.glob("*.h"):
            text = header.read_text(encoding="utf-8")
            if "VN_END_DECLS\n" in text and header.stem != "api":
                page = man_pages.page(header.stem, text, "1.0")
                for mark in ("/**", "@{", "@}", "@name", "@file", "VN_API", "VN_PURE", "_inline"):
                    self.assertNotIn(mark, page, header.name)


if __name__ == "__main__":
    unittest.main()
