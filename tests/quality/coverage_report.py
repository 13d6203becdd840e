#!/usr/bin/env python3
"""Line and branch coverage of the library's own sources, from the counters of a coverage build.

Prints a row per file and the totals. The status is 1 when a total is below its bound.
"""
import argparse
import collections
import json
import pathlib
import subprocess
import sys

FOLDERS = ("platform", "containers", "text", "config", "logging", "events")
UPSTREAM = ("platform/fdlibm/", "text/numbers/netlib/")


def own_file(name, source):
    """The path below the source folder, or None for what is not the library's own."""
    try:
        path = pathlib.Path(name).resolve().relative_to(source).as_posix()
    except ValueError:
        return None
    own = path.split("/")[0] in FOLDERS and not path.startswith(UPSTREAM)
    return path if own else None


def gcov_documents(build):
    counters = sorted((build / "CMakeFiles" / "vncommon_objects.dir").rglob("*.gcda"))
    if not counters:
        sys.exit(f"coverage_report: no counters below {build}; run the tests first")
    command = ["gcov", "--json-format", "--stdout", "--branch-probabilities"]
    output = subprocess.run(command + [str(file) for file in counters], cwd=build, check=True,
                            stdout=subprocess.PIPE, text=True).stdout
    return [json.loads(text) for text in output.splitlines() if text]


class File:
    def __init__(self):
        self.lines = collections.Counter()     # line -> count
        self.branches = collections.Counter()  # (line, function, index) -> count

    def add(self, line):
        number = line["line_number"]
        self.lines[number] += line["count"]
        taken = [branch["count"] for branch in line["branches"] if not branch["throw"]]
        for index, count in enumerate(taken):
            self.branches[number, line.get("function_name"), index] += count

    def missed_lines(self):
        return sorted(number for number, count in self.lines.items() if count == 0)

    def missed_branches(self):
        """Line -> branches not taken, on lines that were reached."""
        missed = collections.Counter()
        for (number, _, _), count in self.branches.items():
            if count == 0 and self.lines[number] > 0:
                missed[number] += 1
        return missed


def read_files(build, source):
    files = collections.defaultdict(File)
    for document in gcov_documents(build):
        folder = pathlib.Path(document["current_working_directory"])
        for entry in document["files"]:
            path = own_file(folder / entry["file"], source)
            if path is not None:
                for line in entry["lines"]:
                    files[path].add(line)
    return dict(sorted(files.items()))


def percent(hit, total):
    return 100.0 * hit / total if total else 100.0


def count_hits(counters):
    return sum(1 for count in counters.values() if count > 0), len(counters)


def print_row(name, lines, branches):
    print(f"{name:38} {percent(*lines):6.1f}% {lines[0]:5}/{lines[1]:<5}"
          f" {percent(*branches):6.1f}% {branches[0]:5}/{branches[1]:<5}")


def print_missed(path, file, source):
    text = (source / path).read_text().splitlines()
    for number in file.missed_lines():
        print(f"{path}:{number}: not reached: {text[number - 1].strip()}")
    for number, count in sorted(file.missed_branches().items()):
        print(f"{path}:{number}: {count} branches not taken: {text[number - 1].strip()}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--lines", type=float, default=97.0, help="lower bound, percent")
    parser.add_argument("--branches", type=float, default=90.0, help="lower bound, percent")
    parser.add_argument("--missed", action="store_true", help="name every line and branch missed")
    arguments = parser.parse_args()
    source = arguments.source.resolve()

    files = read_files(arguments.build.resolve(), source)
    print(f"{'file':38} {'lines':>19} {'branches':>19}")
    all_lines, all_branches = [0, 0], [0, 0]
    for path, file in files.items():
        lines, branches = count_hits(file.lines), count_hits(file.branches)
        print_row(path, lines, branches)
        all_lines = [a + b for a, b in zip(all_lines, lines)]
        all_branches = [a + b for a, b in zip(all_branches, branches)]
    print_row("total", all_lines, all_branches)
    if arguments.missed:
        for path, file in files.items():
            print_missed(path, file, source)
    low = (percent(*all_lines) < arguments.lines) or (percent(*all_branches) < arguments.branches)
    if low:
        print(f"coverage_report: below {arguments.lines:g}% of lines or"
              f" {arguments.branches:g}% of branches", file=sys.stderr)
    return 1 if low else 0


if __name__ == "__main__":
    sys.exit(main())
