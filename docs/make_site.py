#!/usr/bin/env python3
"""Builds the manual's site: make_site.py DOXYGEN DOXYFILE INDEX LAYOUT

Writes LAYOUT, the tree in the sidebar, from the sections of the start page INDEX, so that both show
the same pages under the same titles. Runs Doxygen. Then leads the links of pages to headers to the
pages of these headers, and adds to the index of the search, in which Doxygen finds a name by its
beginning only: HashMap_add finds vn_HashMap_addQuick, too.
"""
import html
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree
from xml.sax.saxutils import quoteattr

LINK = re.compile(r"\[([^\]]+)\]\((?:[^)\s]*/)?([\w-]+\.(?:md|h))\)")
REFERENCE = "Reference"


def sections(text):
    """[(heading, [(title, file)])] of the start page, without sections that link to nothing."""
    found = []
    for part in re.split(r"^## ", text, flags=re.M)[1:]:
        links = LINK.findall(part)
        if links:
            found.append((part.split("\n")[0], links))
    return found


def tree(text):
    """[(heading, [(title, file)])] of the sidebar: pages as listed, headers last."""
    found = sections(text)
    groups = [(heading, [link for link in links if link[1].endswith(".md")])
              for heading, links in found if heading != REFERENCE]
    headers = [(file, file) for heading, links in reversed(found) for _, file in links
               if file.endswith(".h")]
    return [*groups, (REFERENCE, list(dict.fromkeys(headers)))]


def labels(doxygen, settings):
    """{title: label} of the pages. Releases of Doxygen differ in the labels, so it is run without
    output first."""
    with tempfile.TemporaryDirectory() as folder:
        tags = pathlib.Path(folder, "tags")
        settings += (f'\nFILE_PATTERNS = *.md\nGENERATE_HTML = NO\nGENERATE_TAGFILE = "{tags}"\n'
                     "LAYOUT_FILE =\nWARNINGS = NO\nWARN_AS_ERROR = NO\n")
        subprocess.run([doxygen, "-"], input=settings, text=True, check=True,
                       stderr=subprocess.DEVNULL)
        pages = xml.etree.ElementTree.parse(tags).findall("compound[@kind='page']")
    return {page.findtext("title"): page.findtext("name") for page in pages}


def layout(text, labels_of):
    def tab(title, file):
        target = labels_of.get(title, file)
        return f'<tab type="user" url="@ref {target}" title={quoteattr(title)}/>'

    lines = ['<doxygenlayout version="1.0">', "<navindex>",
             '<tab type="mainpage" visible="yes" title="Start"/>']
    for heading, links in tree(text):
        lines += [f"<tab type=\"usergroup\" title={quoteattr(heading)}>",
                  *(tab(*link) for link in links)]
        if heading == REFERENCE:
            lines += ['<tab type="globals" visible="yes" title="All names" intro=""/>',
                      '<tab type="classlist" visible="yes" title="All records" intro=""/>']
        lines.append("</tab>")
    return "\n".join([*lines, "</navindex>", "</doxygenlayout>", ""])


HEADER_LINK = re.compile(r'href="(?:\.\./)+include/vncommon/(\w+)\.(hpp|h)"')


def link_headers(output):
    """Doxygen leaves the links to headers as they are in the pages: relative to the source tree."""
    for page in output.glob("*.html"):
        text = page.read_text(encoding="utf-8")
        linked = HEADER_LINK.sub(
            lambda link: f'href="{link[1].replace("_", "__")}_8{link[2]}.html"', text)
        if linked != text:
            page.write_text(linked, encoding="utf-8")


# ---- The index of the search: search/all_N.js, one file for each first letter, one name a line

# '_' and ' ' in a name, as the index writes them.
SEPARATOR = re.compile(r"_5f|_20")
ENTRY = re.compile(r"^  \['(?P<name>.*)_\d+',(?P<links>\['(?P<shown>.*?)',.*\])\],?$", re.M)


def key(typed):
    """What a reader types, as the search looks it up."""
    return re.sub(r"[\x01-\x7f]", lambda c: c[0] if c[0].isalnum() else f"_{ord(c[0]):02x}",
                  typed.lower())


def later_words(name):
    """The ends of a name from its second word on."""
    return [name[at.end():] for at in SEPARATOR.finditer(name) if name[at.end():]]


def add(entries, name, links):
    known = entries.get(name[0])   # None: the search opens no file for that letter
    if known is not None and not any(other.startswith(name) and leads_to == links
                                     for other, leads_to in known):
        known.append((name, links))


def add_words(search):
    """Adds entries to the index for every later word of a name, and for every title as it is shown:
    Doxygen 1.9.4 has none of the former, 1.9.8 leaves out the punctuation of titles. Drops the
    entries for *.md, which would lead to a list of the names in the page, not to the page."""
    letters = re.search(r'0: "(.*?)"', (search / "searchdata.js").read_text(encoding="utf-8"))[1]
    files = {letter: search / f"all_{number:x}.js" for number, letter in enumerate(letters)}
    found = {letter: [each.groupdict() for each in ENTRY.finditer(file.read_text(encoding="utf-8"))
                      if not each["name"].endswith("_2emd")] for letter, file in files.items()}
    entries = {letter: [(each["name"], each["links"]) for each in some]
               for letter, some in found.items()}
    for each in [each for some in found.values() for each in some]:
        for name in [key(html.unescape(each["shown"])), *later_words(each["name"])]:
            add(entries, name, each["links"])
    for letter, file in files.items():
        lines = [f"  ['{name}_{number}',{links}]"
                 for number, (name, links) in enumerate(sorted(entries[letter]))]
        file.write_text("var searchData=\n[\n" + ",\n".join(lines) + "\n];\n", encoding="utf-8")


def main():
    doxygen, doxyfile, index, target = sys.argv[1:5]
    text = pathlib.Path(index).read_text(encoding="utf-8")
    settings = pathlib.Path(doxyfile).read_text(encoding="utf-8")
    pathlib.Path(target).write_text(layout(text, labels(doxygen, settings)), encoding="utf-8")
    status = subprocess.run([doxygen, doxyfile]).returncode
    if status == 0:
        output = pathlib.Path(re.search(r'^OUTPUT_DIRECTORY\s*= "(.*)"', settings, re.M)[1])
        link_headers(output)
        add_words(output / "search")
    return status


if __name__ == "__main__":
    sys.exit(main())
