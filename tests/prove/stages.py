"""The stages of scripts/prove. A stage runs commands and returns rows: what, how much, result."""
import collections
import json
import os
import pathlib
import subprocess
import time

import parse
from record import ROOT

OUTPUT = ROOT / "build/prove"
MISSING = 77   # the status of a command whose packages are not to be had
PASSED, FAILED = "passed", "FAILED"

Stage = collections.namedtuple("Stage", "name minutes about run")
Run = collections.namedtuple("Run", "status text")


def row(what, amount, result, **more):
    return {"what": what, "amount": amount, "result": result, **more}


def verdict(*good):
    return PASSED if all(good) else FAILED


def run(log, *command):
    """Runs a command with its output in build/prove/LOG.log."""
    OUTPUT.mkdir(parents=True, exist_ok=True)
    path = OUTPUT / f"{log}.log"
    with open(path, "w", encoding="utf-8") as file:
        status = subprocess.run(command, cwd=ROOT, stdin=subprocess.DEVNULL, stdout=file,
                                stderr=subprocess.STDOUT, check=False).returncode
    return Run(status, path.read_text(encoding="utf-8", errors="replace"))


def built(preset, *targets):
    """A build of the preset, for the stages that run single programs."""
    done = run(f"build-{preset}", "bash", "-c",
               '. scripts/lib.sh; configure_preset "$1"; build "build/$1" "${@:2}"', "scripts/prove",
               preset, *targets)
    if done.status != 0:
        raise ValueError(f"the build of {preset} failed")
    return ROOT / "build" / preset


# ---- Suites

def suite(preset):
    def stage(_):
        done = run(preset, "scripts/test", "--only", preset)
        tests, failed, skipped = parse.ctest(done.text)
        listed = run(f"{preset}-seams", "ctest", "--preset", preset, "-N", "-L", "seams").text
        seams = parse.ctest_listed(listed)
        passed = seams & parse.ctest_passed(done.text)
        omitted = f", {skipped} skipped" if skipped else ""
        others = f", {len(seams - passed)} not run" if seams - passed else ""
        return [row("suite", f"{tests} tests, {failed} failed{omitted}",
                    verdict(done.status == 0, failed == 0)),
                row("seams", f"{len(passed)} tests passed{others}",
                    verdict(done.status == 0, passed))]
    return stage


def faults(_):
    program = built("release", "faults_test") / "tests/faults/faults_test"
    done = run("faults", program)
    scenarios, points = parse.faults(done.text)
    return [row("every call fails once, or from then on",
                f"{scenarios} scenarios, {points} runs with a failure", verdict(done.status == 0))]


# ---- Long runs

def fuzz(options):
    done = run("fuzz", "scripts/fuzz", "--seconds", str(options.seconds), "--jobs",
               str(os.cpu_count()))
    rows = [row(target, "", verdict(passed), count=count)
            for target, count, passed in parse.fuzz(done.text)]
    if not rows:
        raise ValueError("no target ran")
    return rows


def coverage(_):
    done = run("coverage", "scripts/coverage")
    lines, branches = parse.coverage((ROOT / "build/coverage/summary.json").read_text())
    return [row(what, f"{hit} of {total}, {100 * hit / total:.1f}%", verdict(done.status == 0))
            for what, (hit, total) in (("lines", lines), ("branches", branches))]


def mutation(_):
    done = run("mutation", "scripts/mutate", "--resume")
    reasons = json.loads((ROOT / "tests/mutate/reasons.json").read_text())
    mutants, killed, survivors, unexplained = parse.mutation(
        (ROOT / "docs/mutation.json").read_text(), reasons)
    return [row("mutants", f"{mutants} run, {killed} killed, {survivors} survived, "
                f"{unexplained} of them without a reason",
                verdict(done.status in (0, 3), unexplained == 0))]


def soak(options):
    done = run("soak", "scripts/soak", "--minutes", str(options.minutes))
    seconds, rounds, moved = parse.soak(done.text)
    how = "memory and descriptors flat" if not moved else f"not flat: {', '.join(moved)}"
    return [row("eight threads, every family", f"{seconds // 60} min, {rounds} rounds, {how}",
                verdict(done.status == 0, not moved))]


def repeated(log, seconds, *command):
    """(whether every run passed, runs, tests passed): the program again and again."""
    end = time.monotonic() + seconds
    runs = tests = 0
    while time.monotonic() < end:
        done = run(log, *command)
        if done.status != 0:
            return False, runs, tests
        runs, tests = runs + 1, tests + parse.googletest(done.text)[0]
    return True, runs, tests


def storms(options):
    folder = built("release", "rotation_test", "fork_families_test", "logging_fork_test",
                   "logging_signals_test") / "tests"
    done = run("rotation", folder / "logging/rotation_test", "--gtest_repeat=500",
               "--gtest_filter=Rotation.LosesAndDoublesNoLine")
    repetitions = parse.googletest(done.text)[1]
    rows = [row("rotation, 8 threads log", f"{repetitions} times 500 rotations",
                verdict(done.status == 0, repetitions == 500))]
    for what, programs in (
            ("fork", ("seams/fork_families_test", "seams/logging_fork_test")),
            ("SIGHUP", ("seams/logging_signals_test", "logging/rotation_test"))):
        results = [repeated(what, options.storm / len(programs), folder / program)
                   for program in programs]
        rows.append(row(f"{what} storm", f"{options.storm} s, {sum(each[1] for each in results)} "
                        f"programs, {sum(each[2] for each in results)} tests passed",
                        verdict(*(each[0] for each in results))))
    return rows


# ---- Bits

def bits(_):
    done = run("bits", "scripts/bits", "--check")
    folder = built("release", "bits_test")
    here = run("bits-native", folder / "tests/bits/bits_test", "tests/bits/manifest")
    groups, wrong = parse.bits(here.text)
    chosen = pathlib.Path(newlib_of(folder))
    rows = [row(f"this processor, {chosen.name.split('.tar')[0]}",
                f"{groups} groups, {wrong} wrong; all calls compared with independent results",
                verdict(done.status == 0, here.status == 0))]
    return rows + [other_newlib(path.name) for path in sorted((ROOT / "cmake/patches").iterdir())
                   if f"newlib-{path.name}.tar" not in chosen.name]


def newlib_of(folder):
    cache = (folder / "CMakeCache.txt").read_text(encoding="utf-8")
    named = [line.split("=", 1)[1] for line in cache.splitlines()
             if line.startswith("VN_NEWLIB_TARBALL:") and line.split("=", 1)[1]]
    return named[0] if named else installed_newlib()[-1]


def installed_newlib():
    known = {path.name for path in (ROOT / "cmake/patches").iterdir()}
    found = sorted(pathlib.Path("/usr/src/newlib").glob("newlib-*.tar.*"))
    return [str(path) for path in found
            if path.name.split(".tar")[0].removeprefix("newlib-") in known]


def other_newlib(release):
    what = f"this processor, newlib-{release}"
    tarball = next((path for path in installed_newlib() if f"newlib-{release}.tar" in path), None)
    if tarball is None:
        return row(what, "", "not run: the package has another release")
    done = run(f"bits-{release}", "bash", "-c",
               '. scripts/lib.sh; configure_preset release -B "$1" -DVN_NEWLIB_TARBALL="$2"; '
               'build "$1" bits_test; "$1/tests/bits/bits_test" tests/bits/manifest',
               "scripts/prove", f"build/bits-{release}", tarball)
    groups, wrong = parse.bits(done.text)
    return row(what, f"{groups} groups, {wrong} wrong", verdict(done.status == 0))


def cross(_):
    rows = []
    for arch in ("arm64", "ppc64el", "riscv64", "s390x"):
        done = run(f"cross-{arch}", "scripts/cross", arch, "--bits")
        if done.status == MISSING:
            rows.append(row(arch, "", "not run: its packages cannot be installed here"))
            continue
        amount = ""
        if done.status == 0:
            version, suites = parse.cross(done.text)
            amount = f"bits: {suites[0][2]}, g++ {version}, emulated"
        rows.append(row(arch, amount, verdict(done.status == 0)))
    return rows


# ---- The rest

def releases(_):
    rows = []
    for name in ("bookworm", "trixie"):
        done = run(f"release-{name}", "scripts/try-release", name)
        commands = parse.release(done.text)
        amount = "; ".join(f"{command} {result} in {minutes} min"
                           for command, result, minutes in commands)
        rows.append(row(name, amount, verdict(done.status == 0)))
    return rows


def checks(_):
    done = run("checks", "scripts/check")
    amount = ", ".join(parse.checks(done.text))
    failed = parse.failed_checks(done.text)
    if failed:
        amount += f"; failed: {', '.join(failed)}"
    return [row("the tree", amount, verdict(done.status == 0))]


STAGES = [
    Stage("release", 8, "the suite as released", suite("release")),
    Stage("asan-ubsan", 10, "the suite under AddressSanitizer and UndefinedBehaviorSanitizer",
          suite("asan-ubsan")),
    Stage("tsan", 15, "the suite under ThreadSanitizer", suite("tsan")),
    Stage("memcheck", 40, "the suite under valgrind", suite("valgrind")),
    Stage("faults", 5, "fault injection", faults),
    Stage("fuzz", 20, "libFuzzer, executions of each target", fuzz),
    Stage("coverage", 15, "coverage of the library's own sources", coverage),
    Stage("mutation", 90, "small mistakes, and whether a test notices", mutation),
    Stage("soak", 12, "every family at once", soak),
    Stage("storms", 6, "rotation, forks and SIGHUP while threads work", storms),
    Stage("bits", 5, "the manifest of results", bits),
    Stage("cross", 20, "the bits on emulated processors", cross),
    Stage("releases", 180, "README's two commands on a bare system", releases),
    Stage("checks", 6, "static checks", checks),
]
