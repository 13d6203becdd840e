#!/usr/bin/env python3
"""Checks the start page of the manual: check_index.py ROOT [SITE]

It begins as the README does, lists every page once under the page's own title, and names every
public header. In the finished SITE the sidebar and the menu of small screens show all of them, and
the search knows every page. The README must stay short.
"""
import html
import pathlib
import re
import sys

import make_site

LONGEST_README = 150  # lines


def first_paragraph(text):
    return text.split("\n\n")[1]


def section(text, heading):
    return text.split(f"\n## {heading}\n")[1].split("\n## ")[0].strip()


def title(page):
    return page.read_text(encoding="utf-8").splitlines()[0].removeprefix("# ")


def length(readme):
    lines = readme.count("\n")
    if lines > LONGEST_README:
        yield f"README.md has {lines} lines, more than {LONGEST_README}; move details to docs/"


def beginnings(readme, index):
    if first_paragraph(readme) != first_paragraph(index):
        yield "index.md and README.md differ in their first paragraph; copy it"
    if section(readme, "A first program") != section(index, "A first program"):
        yield "index.md and README.md differ in 'A first program'; copy it"


def titles(docs, index):
    pages = {page.name: page for folder in (docs, docs / "families")
             for page in sorted(folder.glob("*.md")) if page.name != "index.md"}
    listed = [link for heading, links in make_site.tree(index) if heading != make_site.REFERENCE
              for link in links]
    names = [name for _, name in listed]
    yield from (f"index.md lists {name} {names.count(name)} times" for name in pages
                if names.count(name) != 1)
    yield from (f"index.md calls {name} '{shown}', the page '{title(pages[name])}'"
                for shown, name in listed if name in pages and shown != title(pages[name]))


def headers(include, index):
    named = {name for _, links in make_site.sections(index) for _, name in links}
    yield from (f"index.md does not name {header.name}" for header in include.glob("*.h")
                if header.name not in named)


def site_tree(site, index):
    shown = {name: (site / name).read_text(encoding="utf-8")
             for name in ("navtreedata.js", "menudata.js")}
    for heading, links in make_site.tree(index):
        for text in [heading, *(link[0] for link in links)]:
            yield from (f"{name} does not show '{text}'" for name, content in shown.items()
                        if f'"{text}"' not in content)


def found_by(site, typed):
    """The names that the search shows for what was typed."""
    search = site / "search"
    letters = re.search(r'0: "(.*?)"', (search / "searchdata.js").read_text(encoding="utf-8"))[1]
    wanted = re.escape(make_site.key(typed))
    letter = letters.find(typed[0].lower())
    if letter < 0:
        return []
    entries = (search / f"all_{letter:x}.js").read_text(encoding="utf-8")
    found = re.findall(rf"^  \['{wanted}[^']*',\[(.*)\]\],?$", entries, re.M)
    # Doxygen 1.9.4 has one line for each spelling. Later releases put all spellings in one line, in
    # lower case, and give each link its own name: ['vector',['../vector.html',1,'Vector']].
    return [html.unescape(name) for links in found for name in re.findall(r"'([^']*)'", links)]


def site_search(site, index):
    wanted = {title: title for _, links in make_site.tree(index) for title, _ in links}
    wanted |= {"vn_HashMap_addQ": "vn_HashMap_addQuick", "hashmap_addq": "vn_HashMap_addQuick",
               "addquick": "vn_HashMap_addQuick", "writer": "Event writer"}
    yield from (f"the search does not find '{name}' by '{typed}'"
                for typed, name in wanted.items() if name not in found_by(site, typed))


def main():
    root = pathlib.Path(sys.argv[1])
    index = (root / "docs" / "index.md").read_text(encoding="utf-8")
    readme = (root / "README.md").read_text(encoding="utf-8")
    faults = [*length(readme), *beginnings(readme, index), *titles(root / "docs", index),
              *headers(root / "include" / "vncommon", index)]
    if len(sys.argv) > 2:
        site = pathlib.Path(sys.argv[2])
        faults += [*site_tree(site, index), *site_search(site, index)]
    if faults:
        sys.exit("check_index: " + "\n".join(faults))


if __name__ == "__main__":
    main()
