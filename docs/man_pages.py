#!/usr/bin/env python3
"""Writes manual pages of section 3 out of the public headers: man_pages.py HEADERS VERSION OUTPUT.

Each header becomes one page, vncommon_NAME(3), with the header's own comments and declarations; each
function gets a page that leads there. Comments are plain text in which deeper indented lines are
code (doxygen_filter.py reads them the same way)."""
import pathlib
import re
import sys

from doxygen_filter import bare_lines

MARKS = re.compile(r"\bVN_(API|NODISCARD|NORETURN|MALLOC|PURE|CONST|RETURNS_NONNULL)\b ?|"
                   r" ?\bVN_(PRINTF|NONNULL)\([^()]*\)")
FUNCTION = re.compile(r"^(?:extern )?(?:VN_\w+ )*VN_API\b[^;(]*?\b(\w+)\(", re.MULTILINE)
TITLE = re.compile(r"\s*-{2,}\s*(.*?)\s*-*$")


def escaped(line):
    """Text that means nothing to the formatter."""
    line = line.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + line if line.startswith((".", "'")) else line


def running_text(lines):
    """A comment as paragraphs; lines indented by four and more are shown as they stand."""
    code = False
    for line in lines:
        literal = line.startswith("    ") or (code and not line.strip())
        if literal != code:
            yield ".RS\n.nf" if literal else ".fi\n.RE"
            code = literal
        yield escaped(line.strip() if not literal else line[4:]) if line.strip() else ".PP"
    if code:
        yield ".fi\n.RE"


def declarations(text):
    lines = MARKS.sub("", text).rstrip().split("\n")
    return [".nf", *(".B \"\"" if not line else "\\fB" + escaped(line) + "\\fR" for line in lines),
            ".fi"]


def paragraphs(text):
    """Pairs of a comment's lines and the declarations that it is about."""
    body = text[text.index("VN_BEGIN_DECLS") + len("VN_BEGIN_DECLS"):text.rindex("VN_END_DECLS")]
    body = re.sub(r"^\s*#(if|ifdef|ifndef|else|endif)\b.*$", "", body, flags=re.MULTILINE)
    for match in re.finditer(r"(?:^/\*(.*?)\*/[ \t]*\n)?((?:(?!^/\*|\n\n).)*)\n\n?", body + "\n\n",
                             re.DOTALL | re.MULTILINE):
        comment = bare_lines("/*" + match[1] + "*/") if match[1] else []
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
        title = TITLE.match(comment[0]) if comment else None
        if title:
            out.append(f".SS {escaped(title[1])}")
            comment = comment[1:]
        if code.strip():
            out += [".PP", *declarations(code)]
        if comment:
            out += [".PP" if not code.strip() else ".RS 4", *running_text(comment)]
            if code.strip():
                out.append(".RE")
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
