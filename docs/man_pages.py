#!/usr/bin/env python3
"""Writes manual pages of section 3 out of the public headers: man_pages.py HEADERS VERSION OUTPUT.

Each header becomes one page, vncommon_NAME(3), with the header's own comments and declarations;
each function gets a page that leads there. Of Doxygen's markup the headers use @file, groups
(@name, @{, @}), comments after a declaration (/**<), `code`, and code that is indented by four.
Inline bodies are left out, with the plain comment above them."""
import pathlib
import re
import sys

MARKS = re.compile(r"\bVN_(API|NODISCARD|NORETURN)\b ?|"
                   r"\s+VN_(MALLOC|PURE|CONST|(RETURNS_)?NONNULL|PRINTF\([^()]*\))")
FUNCTION = re.compile(r"^(?:extern )?(?:VN_\w+ )*VN_API\b[^;(]*?\b(\w+)\(", re.MULTILINE)
INLINE_BODIES = re.compile(r"^/\* (?:(?!\*/).)*\*/\n#if defined\(__GNUC__\).*?^#endif\n",
                           re.DOTALL | re.MULTILINE)
TITLE = "@name "
OWN_LINE = re.compile(r"(-|\d+\.|Compat:) ")


def escaped(line):
    """Text that means nothing to the formatter, the `quoted` words in bold."""
    line = line.replace("\\", "\\e").replace("-", "\\-")
    line = re.sub(r"`([^`]*)`", r"\\fB\1\\fR", line)
    return "\\&" + line if line.startswith((".", "'")) else line


def running_text(lines):
    """A comment as paragraphs; code (indented by four, after an empty line) is shown as it is."""
    code, above = False, ""
    for line in lines:
        literal = (code or not above) and (line.startswith("    ") or (code and not line))
        if literal != code:
            yield ".RS\n.nf" if literal else ".fi\n.RE"
            code = literal
        end_of_list = above.startswith(" ") and not line.startswith(" ")
        if line and not literal and (end_of_list or OWN_LINE.match(line.strip())):
            yield ".br"
        yield escaped(line[4:] if literal else line.strip()) if line else ".PP"
        above = line
    if code:
        yield ".fi\n.RE"


def declarations(text):
    lines = MARKS.sub("", text).replace("/**<", "/*").rstrip().split("\n")
    return [".nf", *(".B \"\"" if not line else "\\fB" + escaped(line) + "\\fR" for line in lines),
            ".fi"]


def bare_lines(comment):
    """The text of a comment, line by line, without its frame and without the marks of groups."""
    lines = comment.strip().removeprefix("/**").removesuffix("*/").strip().split("\n")
    lines = [re.sub(r"^ \* ?", "", line).rstrip() for line in lines]
    lines = [line for line in lines if line not in ("@file", "@{", "@}")]
    return lines if any(lines) else []


def paragraphs(text):
    """Pairs of a comment's lines and the declarations that it is about."""
    body = text[text.index("VN_BEGIN_DECLS") + len("VN_BEGIN_DECLS"):text.rindex("VN_END_DECLS")]
    body = INLINE_BODIES.sub("", body)
    for match in re.finditer(r"(^/\*\*.*?\*/[ \t]*\n)?((?:(?!^/\*|\n\n).)*)\n\n?", body + "\n\n",
                             re.DOTALL | re.MULTILINE):
        comment = bare_lines(match[1] or "")
        if comment or match[2].strip():
            yield comment, match[2]


def page(name, text, version):
    about = bare_lines(text[:text.index("*/") + 2])
    purpose = about[0].rstrip(".").split(". ")[0]
    purpose = purpose.split(": ", 1)[-1]
    out = [f'.TH VNCOMMON_{name.upper()} 3 "" "libvncommon {version}" "Library Functions Manual"',
           ".SH NAME", f"vncommon_{name} \\- {escaped(purpose)}",
           ".SH SYNOPSIS", f".B #include <vncommon/{name}.h>", ".PP", ".B pkg\\-config vncommon",
           ".SH DESCRIPTION", *running_text(about)]
    for comment, code in paragraphs(text):
        if comment and comment[0].startswith(TITLE):
            out += [f".SS {escaped(comment[0].removeprefix(TITLE))}", *running_text(comment[1:])]
            comment = []
        if code.strip():
            out += [".PP", *declarations(code)]
            if comment:
                out += [".RS 4", *running_text(comment), ".RE"]
        elif comment:
            out += [".PP", *running_text(comment)]
    return "\n".join(out) + "\n"


def main():
    headers, version, output = pathlib.Path(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3])
    output.mkdir(parents=True, exist_ok=True)
    for old in output.glob("*.3"):
        old.unlink()
    for header in sorted(headers.glob("*.h")):
        text = header.read_text(encoding="utf-8")
        if "VN_API " not in text or header.stem == "api":
            continue
        name = f"vncommon_{header.stem}"
        (output / f"{name}.3").write_text(page(header.stem, text, version), encoding="utf-8")
        for function in FUNCTION.findall(text):
            (output / f"{function}.3").write_text(f".so man3/{name}.3\n", encoding="utf-8")


if __name__ == "__main__":
    main()
