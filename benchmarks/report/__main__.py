"""Measures the benchmarks, writes their page, and checks pairs.json against the programs.

  report run   --build BUILD [--quick] [--runs N] [--only NAME...]   measures, writes the page
  report page                                        writes the page from existing data
  report check --build BUILD [NAME...]               compares pairs.json with the programs
"""
import argparse
import pathlib
import subprocess
import sys

import judge
import measure
import page
import pairs

ROOT = pathlib.Path(__file__).resolve().parents[2]
BENCHMARKS = ROOT / "benchmarks"
TARGETS = ROOT / "tests" / "quality" / "benchmark_targets.json"
DOCS = ROOT / "docs"
RAW = DOCS / "benchmarks" / "raw"


def arguments():
    parser = argparse.ArgumentParser(prog="report", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(dest="command", required=True)
    run = commands.add_parser("run")
    run.add_argument("--quick", action="store_true")
    run.add_argument("--runs", type=int, default=1)
    run.add_argument("--only", nargs="*", default=[])
    check = commands.add_parser("check")
    check.add_argument("programs", nargs="*", help="those that were built; default: by the sources")
    for command in (run, check):
        command.add_argument("--build", type=pathlib.Path, required=True)
    commands.add_parser("page")
    return parser.parse_args()


def sources():
    return sorted(path.stem for path in BENCHMARKS.glob("*_bench.cpp"))


def strangers(known, programs):
    """Returns a line for each program without a family and each family without a program."""
    named = {family.program for family in known.families}
    return ([f"pairs.json has no family for {name}" for name in programs if name not in named] +
            [f"pairs.json names the program {name}, which is not there"
             for name in sorted(named - set(programs))])


def lost_tests(known):
    return [f"{each['program']}: {each['test']}, which is to count, is not there"
            for each in known.counted if not (ROOT / each["test"]).is_file()]


def disagreements(known, families, present):
    """Returns the differences between the data files and the programs, as lines of text."""
    content = page.load(BENCHMARKS / "page.json")
    lines = lost_tests(known) + known.mistakes + page.mistakes(content, known.families)
    for family in families:
        lines += pairs.mismatches(family, known.optional, present[family.program])
    return lines


def listed(families, build):
    return {family.program: pairs.listed(build / "benchmarks" / family.program)
            for family in families}


def complain(lines):
    for line in lines:
        print(f"bench: {line}", file=sys.stderr)
    if lines:
        print("bench: correct the files named above: they must agree with the programs",
              file=sys.stderr)
    return 1 if lines else 0


def say_absent(known, families, present):
    for family in families:
        absent = pairs.absent_peers(family, known.optional, present[family.program])
        if absent:
            print(f"bench: {family.program} was built without {', '.join(sorted(absent))}; "
                  "scripts/setup installs the peers")


def write_page(known):
    """Writes the page from all existing raw data, and prints a summary."""
    data = [(family, measure.read(RAW, family.program)) for family in known.families]
    judged = [judge.judge(family, one) for family, one in data if one]
    if not judged:
        print("bench: there are no data yet; run scripts/bench", file=sys.stderr)
        return 1
    content = page.load(BENCHMARKS / "page.json")
    page.write(judged, content, DOCS)
    for line in page.explained(judged, content["slower"])[1]:
        print(f"bench: slower than a peer, and page.json has no reason: {line.what}")
    for one in judged:
        for what, verdict in one.missed():
            print(f"bench: missed: {one.family.title}, {what}: {verdict.text}, "
                  f"measured {page.ratio_text(verdict.ratio)}")
    total = sum(len(one.verdicts()) for one in judged)
    missed = sum(len(one.missed()) for one in judged)
    print(f"bench: {total - missed} of {total} targets met (tests/quality/benchmark_targets.json)")
    return 0


def check(known, build, programs):
    programs = programs or sources()
    families = [family for family in known.families if family.program in programs]
    present = listed(families, build)
    say_absent(known, families, present)
    return complain(strangers(known, programs) + disagreements(known, families, present))


def run(known, build, quick, only, runs):
    families = [family for family in known.families if not only or family.program in only]
    present = listed(families, build)
    say_absent(known, families, present)
    plans = [measure.plan(family, (build / "benchmarks" / family.program).resolve(),
                          present[family.program], quick) for family in families]
    measure.run_all(plans, quick, build, RAW, runs)
    problems = strangers(known, sources()) + disagreements(known, families, present)
    return write_page(known) or complain(problems)


def main():
    options = arguments()
    known = pairs.load(BENCHMARKS / "pairs.json", TARGETS)
    try:
        if options.command == "run":
            return run(known, options.build, options.quick, options.only, options.runs)
        if options.command == "check":
            return check(known, options.build, options.programs)
        return write_page(known)
    except ImportError as error:
        print(f"bench: {error}; run scripts/setup, which installs what the charts need",
              file=sys.stderr)
        return 1
    except (OSError, RuntimeError, subprocess.SubprocessError) as error:
        print(f"bench: failed: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("\nbench: stopped; what was finished is kept", file=sys.stderr)
        return 130


if __name__ == "__main__":
    sys.exit(main())
