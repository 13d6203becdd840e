#!/usr/bin/env python3
"""What Doxygen is shown of headers and pages made up here."""
import unittest

import doxygen_filter

HEADER = """\
/* A header. */
#ifndef A_H
#define A_H

/* The value. */
VN_API int vn_get(const int* at);

/* In place of the call. */
#if defined(__GNUC__) && !defined(INSIDE)
#if 1
extern inline __attribute__((gnu_inline)) int vn_get(const int* at) {
    return *at;
}
#endif
#endif

/* The next one. */
VN_API int vn_next(const int* at);
#endif
"""


class Headers(unittest.TestCase):
    def setUp(self):
        self.shown = doxygen_filter.Header(HEADER).render()

    def test_inline_bodies_are_left_out_with_their_comment(self):
        for text in ("In place of", "gnu_inline", "__GNUC__", "return"):
            self.assertNotIn(text, self.shown)

    def test_comments_stay_with_their_declarations(self):
        lines = [line for line in self.shown.split("\n") if line.strip()]
        for comment, declaration in (("The value.", "vn_get"), ("The next one.", "vn_next")):
            at = lines.index(comment)
            self.assertIn(declaration, lines[at + 2])

    def test_other_conditions_stay(self):
        self.assertEqual(self.shown.count("#endif"), 1)
        self.assertIn("#ifndef A_H", self.shown)


class Pages(unittest.TestCase):
    def test_links_become_references(self):
        text = doxygen_filter.page("docs/some-page.md", "# T\n[a b](x/other-page.md) [h](a_b.h)")
        self.assertEqual(text, '# T {#page_some_page}\n@ref page_other_page "a b" @ref a_b.h "h"')

    def test_a_link_within_the_page_labels_its_section(self):
        text = doxygen_filter.page("p.md", "# T\n[here](#what-is-it)\n## What is it?\n## More\n")
        self.assertIn('@ref page_p_what-is-it "here"', text)
        self.assertIn("## What is it? {#page_p_what-is-it}\n## More\n", text)


if __name__ == "__main__":
    unittest.main()
