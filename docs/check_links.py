#!/usr/bin/env python3
"""Checks the finished manual: check_links.py SITE HEADERS
Every link inside the site leads somewhere, and every public header has its page."""
import pathlib
import re
import sys
import urllib.parse

site, headers = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
pages = {page.name: page.read_text(encoding="utf-8") for page in site.glob("*.html")}
anchors = {name: set(re.findall(r'\b(?:id|name)="([^"]+)"', text)) for name, text in pages.items()}
broken = []
for name, text in sorted(pages.items()):
    # navigation frames of Doxygen itself ask for "javascript:" and for "#"
    for link in set(re.findall(r'<a [^>]*href="([^"]+)"', text)):
        if re.match(r"(https?|javascript|mailto):", link) or link == "#":
            continue
        target, _, anchor = urllib.parse.unquote(link).partition("#")
        target = target or name
        # "_8md": Doxygen's entry for the file instead of the page that it holds
        if (name.startswith("md_") or name == "index.html") and target.endswith("_8md.html"):
            broken.append(f"{name}: {link}")
        if not (site / target).is_file() or (anchor and anchor not in anchors.get(target, ())):
            broken.append(f"{name}: {link}")
for header in [*headers.glob("*.h"), *headers.glob("*.hpp")]:
    page = header.name.replace("_", "__").replace(".", "_8") + ".html"
    if "Detailed Description" not in pages.get(page, ""):
        broken.append(f"{header.name} has no page, or its page no description")
if not pages or broken:
    sys.exit("check_links: broken:\n" + "\n".join(broken))
print(f"{len(pages)} pages, no broken link")
