"""Mutates the library's sources, one small change at a time, and reports what no test notices.

The working tree is never changed, except docs/mutation.json and docs/mutation.md: mutations are
made in a copy of it, uncommitted changes included, in build/mutate.
"""
import argparse
import collections
import re
import signal
import sys
import time

import page
import results as store
import tree_copy
from families import ROOT, families
from operators import candidates, select
from stages import STAGES, Stage, try_out

PER_FAMILY = 6


def parse_arguments(names):
    parser = argparse.ArgumentParser(
        prog="scripts/mutate", description=__doc__.split("\n\n")[0],
        epilog="The status is 0 if every mutation was noticed, 3 if some survived. "
               "tests/mutate/reasons.json explains those that make no difference.")
    parser.add_argument("--only", metavar="FAMILY", help=f"one of: {', '.join(names)}")
    parser.add_argument("--per-family", type=int, default=PER_FAMILY, metavar="N",
                        help="mutations per family (default %(default)s), at least one per source")
    parser.add_argument("--limit", type=int, metavar="N", help="stop after N mutations")
    parser.add_argument("--id", metavar="ID", help="this mutation only")
    parser.add_argument("--shard", default="1/1", metavar="K/N",
                        help="every N-th mutation, from the K-th on")
    parser.add_argument("--stages", default=",".join(STAGES), metavar="LIST",
                        help="builds to test, in order (default %(default)s)")
    parser.add_argument("--jobs", type=int, default=2, metavar="N",
                        help="parallel build jobs (default 2)")
    parser.add_argument("--resume", action="store_true",
                        help="reuse earlier results if sources and tests are unchanged")
    parser.add_argument("--list", action="store_true", help="print the mutations; build nothing")
    parser.add_argument("--page", action="store_true",
                        help="write docs/mutation.md from docs/mutation.json; build nothing")
    arguments = parser.parse_args()
    if arguments.only and arguments.only not in names:
        parser.error(f"no family {arguments.only}; see --help")
    if not set(arguments.stages.split(",")) <= set(STAGES):
        parser.error(f"--stages takes {','.join(STAGES)}")
    if not re.fullmatch(r"[1-9]\d*/[1-9]\d*", arguments.shard):
        parser.error("--shard takes K/N, such as 1/3")
    return arguments


def pools(known):
    """Family -> every mutation that its sources have room for."""
    return {name: [mutation for source in family.sources
                   for mutation in candidates(name, source, (ROOT / source).read_text())]
            for name, family in known.items()}


def selection(pool, count, results=()):
    """The chosen mutations of every family, and the others that have a result."""
    chosen = []
    for mutations in pool.values():
        own = select(mutations, count)
        ids = {mutation.id for mutation in own}
        chosen += own + [m for m in mutations if m.id in results and m.id not in ids]
    return chosen


def choose(mutations, arguments):
    chosen = [mutation for mutation in mutations
              if arguments.only in (None, mutation.family) and arguments.id in (None, mutation.id)]
    first, step = map(int, arguments.shard.split("/"))
    return chosen[first - 1::step][:arguments.limit]


def print_list(mutations):
    for m in mutations:
        print(f"{m.id}  {m.source}:{m.number}  {m.operator}\n"
              f"    - {m.before.strip()}\n    + {m.after.strip()}")
    print(f"{len(mutations)} mutations")


def usable(result, key, stages):
    """Whether --resume may take an earlier result."""
    return bool(result) and result["key"] == key and (
        result["verdict"] != "survived" or result["stages"] == stages)


def report(progress, mutation, result, seconds):
    print(f"[{progress}] {result['verdict']:8} {mutation.id} {mutation.source}:{mutation.number} "
          f"{mutation.operator}; {result['by'] or '-'}; {seconds:.1f} s", flush=True)
    if result["verdict"] == "survived":
        print(f"    - {mutation.before.strip()}\n    + {mutation.after.strip()}", flush=True)


def run(mutations, known, arguments, results, save):
    """The count of each verdict. Results are saved after each mutation."""
    tree_copy.refresh()
    stages = [Stage(name, arguments.jobs, known) for name in arguments.stages.split(",")]
    verdicts = collections.Counter()
    for index, mutation in enumerate(mutations, 1):
        began = time.monotonic()
        key = store.key_of(mutation, known[mutation.family], tree_copy.TREE)
        result = results.get(mutation.id)
        if not (arguments.resume and usable(result, key, arguments.stages)):
            verdict, by = try_out(mutation, stages)
            result = store.result(mutation, key, verdict, by, arguments.stages)
            results[mutation.id] = result
            save()
        verdicts[result["verdict"]] += 1
        report(f"{index}/{len(mutations)}", mutation, result, time.monotonic() - began)
    return verdicts


def main():
    known = families()
    arguments = parse_arguments(known)
    pool = pools(known)
    chosen = choose(selection(pool, arguments.per_family), arguments)
    if arguments.list:
        print_list(chosen)
        return 0
    results = store.load()

    def save():
        store.save(selection(pool, PER_FAMILY, results), results)
        page.write(store.read())

    if arguments.page:
        save()
        return 0
    verdicts = run(chosen, known, arguments, results, save)
    print(f"mutate: {verdicts['noticed']} noticed, {verdicts['survived']} survived, "
          f"{verdicts['not compiled']} not compiled")
    return 3 if verdicts["survived"] else 0


if __name__ == "__main__":
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)   # for: scripts/mutate --list | head
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
