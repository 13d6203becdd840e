"""Runs everything that shows that the library does what it promises, and writes docs/proof.md.

Every stage is saved when it ends, so that the others can follow later. Logs are in build/prove.
"""
import argparse
import sys
import time

import page
import record
from stages import FAILED, STAGES


def parse_arguments():
    names = [stage.name for stage in STAGES]
    parser = argparse.ArgumentParser(prog="scripts/prove", description=__doc__.split("\n\n")[0],
                                     epilog="The status is 1 if a stage failed.")
    parser.add_argument("stages", nargs="*", metavar="STAGE",
                        help=f"all, in this order, or some of: {', '.join(names)}")
    parser.add_argument("--list", action="store_true", help="print the stages; run nothing")
    parser.add_argument("--page", action="store_true",
                        help="write docs/proof.md from docs/proof.json; run nothing")
    parser.add_argument("--seconds", type=int, default=60, metavar="N",
                        help="fuzz: time of each target (default %(default)s)")
    parser.add_argument("--minutes", type=int, default=10, metavar="N",
                        help="soak: time (default %(default)s)")
    parser.add_argument("--storm", type=int, default=60, metavar="SECONDS",
                        help="storms: time of each (default %(default)s)")
    arguments = parser.parse_args()
    unknown = [name for name in arguments.stages if name not in names]
    if unknown:
        parser.error(f"no stage {unknown[0]}; see --list")
    return arguments


def minutes_of(stage, rows):
    """What the stage took when it last ran, or an estimate."""
    return next((row["minutes"] for row in rows if row["stage"] == stage.name), stage.minutes)


def execute(stage, arguments):
    """The stage's rows, stamped. One that cannot be read is a failure, too."""
    began = time.monotonic()
    stamp = record.stamp()   # the commit may change during a long stage
    try:
        found = stage.run(arguments)
    except (OSError, ValueError) as error:
        print(f"prove: {stage.name} failed: {error}; see build/prove", file=sys.stderr)
        found = [{"what": stage.about, "amount": "", "result": FAILED}]
    common = {**stamp, "minutes": max(1, round((time.monotonic() - began) / 60))}
    return [{"stage": stage.name, **row, **common} for row in found]


def main():
    arguments = parse_arguments()
    rows = record.load()
    if arguments.list:
        for stage in STAGES:
            print(f"{stage.name:12} {stage.about}, about {minutes_of(stage, rows)} min")
        return 0
    chosen = [stage for stage in STAGES if not arguments.stages or stage.name in arguments.stages]
    failed = []
    for number, stage in enumerate([] if arguments.page else chosen, 1):
        print(f"stage {number} of {len(chosen)}: {stage.name}, "
              f"about {minutes_of(stage, rows)} min", flush=True)
        new = execute(stage, arguments)
        for row in new:
            print(f"    {row['what']}: {page.amount(row)}: {row['result']}", flush=True)
        failed += [row for row in new if row["result"] == FAILED]
        rows = record.replace(record.load(), stage.name, new)   # another run may have added rows
        record.save(rows)
        page.write(rows)
    page.write(rows)
    if failed:
        print(f"prove: {len(failed)} rows failed; see docs/proof.md and the logs in build/prove",
              file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
