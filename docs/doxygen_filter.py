#!/usr/bin/env python3
"""Shows Doxygen the sources of the manual: doxygen_filter.py FILE writes to standard output.

The public headers are written for people who open them: plain comments, no markup. Here they get
what Doxygen wants to see:
  - the comment at the top describes the file;
  - a comment directly above a declaration describes it, and the declarations that follow it
    without a blank line; one behind a declaration on its line describes that;
  - "---- Title ----" starts a group of declarations;
  - a conditional block of inline bodies, and the comment above it, are left out: the functions are
    described where they are declared;
  - deeper indented lines are shown as they stand, everything else is running text in which no
    character has a meaning of its own.
In pages (*.md) links become references, because Doxygen knows files by their names alone. The C++
header (*.hpp) is written for Doxygen and passes as it is.
"""
import os
import re
import sys

LIST_ITEM = re.compile(r"\s{0,3}(-|\d+\.)\s")
SECTION = re.compile(r"/\*\s*-{2,}\s*(.*?)\s*-*\s*$")
DECLARATION = re.compile(r"(extern |VN_NODISCARD )?VN_API\b")


def escape(text):
    """Running text without meaning for Doxygen, the `quoted` words excepted."""
    return re.sub(r"([\\@#%<>&])", r"\\\1", text)


def bare_lines(comment):
    """The text of a comment, line by line, without its frame of slashes and asterisks."""
    inner = comment.strip()[2:-2].rstrip()
    lines = inner.split("\n")
    return [lines[0].lstrip(" ")] + [re.sub(r"^\s*\* ?", "", line) for line in lines[1:]]


def marked_up(lines):
    """The lines as Doxygen is to read them."""
    result, in_list, verbatim = [], False, False
    for line in lines:
        indent = len(line) - len(line.lstrip())
        if LIST_ITEM.match(line):
            in_list = True
        elif not line.strip() or indent == 0:
            in_list = False
        literal = bool(line.strip()) and indent >= 4 and not in_list
        if literal != verbatim:
            result.append("@verbatim" if literal else "@endverbatim")
            verbatim = literal
        result.append(line[4:] if literal else escape(line))
    if verbatim:
        result.append("@endverbatim")
    return result


class Header:
    def __init__(self, text):
        self.lines = text.split("\n")
        self.at = 0
        self.out = []
        self.in_section = False
        self.last_doc = None      # describes the declarations until the next blank line
        self.doc_is_fresh = False # nothing stands between it and the next declaration

    def take_until(self, token):
        """The lines from here to the one that holds the token, as one text."""
        first = self.at
        while token not in self.lines[self.at]:
            self.at += 1
        self.at += 1
        return "\n".join(self.lines[first:self.at])

    def end_section(self):
        if self.in_section:
            self.out.append("/** @} */")
            self.in_section = False

    def comment(self, is_first):
        text = self.take_until("*/")
        lines = bare_lines(text)
        title = SECTION.match(re.sub(r"\*/\s*$", "", text.split("\n")[0]).rstrip())
        if is_first:
            self.out += ["/** @file", *marked_up(lines), "*/"]
        elif title:
            self.end_section()
            self.out += ["/** @name " + escape(title.group(1)), *marked_up(lines[1:]), "*/", "/** @{ */"]
            self.in_section = True
        else:
            self.last_doc = ["/** ", *marked_up(lines), "*/"]
            self.doc_is_fresh = True
            self.out += self.last_doc

    def code_with_trailing_comment(self, text):
        code, comment = re.fullmatch(r"(.*?)(/\*.*)", text, re.S).groups()
        self.out.append(code + "/**< " + "\n".join(marked_up(bare_lines(comment))) + " */")

    def declaration(self):
        first = self.at
        text = self.take_until(";")
        if "/*" in text.split("\n")[-1]:
            self.at = first
            while "*/" not in self.lines[self.at]:
                self.at += 1
            self.at += 1
            text = "\n".join(self.lines[first:self.at])
            self.code_with_trailing_comment(text)
        else:
            if self.last_doc and not self.doc_is_fresh:
                self.out += self.last_doc
            self.out.append(text)
        self.doc_is_fresh = False

    def conditional_block(self):
        """The number of lines from this #if to its #endif, both included."""
        depth = 0
        for count, line in enumerate(self.lines[self.at:], 1):
            depth += line.startswith("#if")
            depth -= line.startswith("#endif")
            if depth == 0:
                return count
        return 1   # the guard of a header cut short

    def skip_inline_bodies(self):
        """Whether here was a block of inline bodies, which is passed with the comment above it."""
        end = self.at + self.conditional_block()
        if not any("gnu_inline" in line for line in self.lines[self.at:end]):
            return False
        if self.doc_is_fresh:
            del self.out[-len(self.last_doc):]
        self.last_doc, self.doc_is_fresh, self.at = None, False, end
        return True

    def render(self):
        while self.at < len(self.lines):
            line = self.lines[self.at]
            if line.lstrip().startswith("/*"):
                self.comment(is_first=self.at == 0)
                continue
            if DECLARATION.match(line):
                self.declaration()
                continue
            if "/*" in line and not line.startswith("#"):
                self.code_with_trailing_comment(self.take_until("*/"))
                continue
            if line.startswith("#if") and "GNUC" in line and self.skip_inline_bodies():
                continue
            if line.startswith("VN_END_DECLS"):
                self.end_section()
            if not line.strip():
                self.last_doc = None
            self.doc_is_fresh = False
            self.out.append(line)
            self.at += 1
        return "\n".join(self.out)


def label(path):
    return "page_" + os.path.basename(path).removesuffix(".md").replace("-", "_")


def slug(heading):
    """The anchor that Markdown viewers give a heading."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def with_section_labels(path, text, reference):
    """Links to headings of the same page become references, and these headings get labels."""
    wanted = set(re.findall(r"\]\(#([^)\s]+)\)", text))

    def labelled(heading):
        name = slug(heading[2])
        return f"{heading[0]} {{#{label(path)}_{name}}}" if name in wanted else heading[0]

    text = re.sub(r"^(##+) ([^\n]+?)$", labelled, text, flags=re.M)
    return re.sub(r"\[([^\]]*)\]\(#([^)\s]+)\)",
                  lambda link: reference(f"{label(path)}_{link[2]}", link[1]), text)


def page(path, text):
    """A page under a label of its own, with its links as references."""
    if not path.endswith("index.md"):
        text = re.sub(r"\A(# [^\n]*)", rf"\1 {{#{label(path)}}}", text)

    def reference(target, shown):
        return f'@ref {target} "{" ".join(shown.split())}"'   # Doxygen wants it on one line

    text = re.sub(r"\[([^\]]*)\]\((?:[^)\s]*/)?(\w+\.h(?:pp)?)\)",
                  lambda link: reference(link[2], link[1]), text)
    text = re.sub(r"\[([^\]]*)\]\(([^)\s:]*\.md)\)",
                  lambda link: reference(label(link[2]), link[1]), text)
    return with_section_labels(path, text, reference)


def main():
    path = sys.argv[1]
    with open(path, encoding="utf-8") as file:
        text = file.read()
    if path.endswith(".md"):
        text = page(path, text)
    elif not path.endswith(".hpp"):
        text = Header(text).render()
    sys.stdout.write(text)


if __name__ == "__main__":
    main()
