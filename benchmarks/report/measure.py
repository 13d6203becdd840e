"""Runs the benchmark programs and extracts the needed part of their output."""
import dataclasses
import datetime
import json
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import tempfile
import time

QUICK = {"min_time": 0.01, "repetitions": 3}
TIME_LIMIT = 1200   # seconds for one program
TO_NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


# ---- The machine -----------------------------------------------------------------------------

def first_line(path):
    try:
        return pathlib.Path(path).read_text(encoding="utf-8").splitlines()[0].strip()
    except (OSError, IndexError):
        return "not readable"


def processor():
    text = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    model = re.search(r"^model name\s*:\s*(.+)$", text, re.M)
    return model[1] if model else platform.machine()


def is_virtual():
    text = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    return re.search(r"^flags\s*:.*\bhypervisor\b", text, re.M) is not None


def compiler(build):
    """Returns the first line of --version of the compiler that the build's cache names."""
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    command = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.+)$", cache, re.M)[1]
    version = subprocess.run([command, "--version"], check=True, text=True, capture_output=True)
    return version.stdout.splitlines()[0]


def machine(build):
    devices = pathlib.Path("/sys/devices/system")
    return {
        "processor": processor(),
        "virtual machine": "yes" if is_virtual() else "no",
        "cores": len(os.sched_getaffinity(0)),
        "compiler": compiler(build),
        "system": f"{platform.system()} {platform.release()}, {' '.join(platform.libc_ver())}",
        "governor": first_line(devices / "cpu/cpu0/cpufreq/scaling_governor"),
        "clock source": first_line(devices / "clocksource/clocksource0/current_clocksource"),
    }


# ---- One program -----------------------------------------------------------------------------

@dataclasses.dataclass
class Plan:
    program: str
    path: pathlib.Path
    count: int      # benchmarks to run
    settings: dict
    skip: str
    usual_seconds: float

    def command(self, output):
        options = [f"--benchmark_out={output}", "--benchmark_out_format=json",
                   f"--benchmark_min_time={self.settings['min_time']}",
                   f"--benchmark_repetitions={self.settings['repetitions']}",
                   "--benchmark_enable_random_interleaving=true"]
        if self.skip:
            options.append(f"--benchmark_filter=-{self.skip}")
        return [str(self.path), *options]


def plan(family, path, names, quick):
    skip = family.quick_skip if quick else ""
    count = sum(1 for name in names if not (skip and re.search(skip, name)))
    return Plan(family.program, path, count, QUICK if quick else family.run, skip,
                0 if quick else family.usual_seconds)


def clock_of(name):
    """Selects the time to use: processor time or wall clock."""
    if "/manual_time" in name:
        return "manual"
    return "real" if "/real_time" in name else "processor"


def kept(entries):
    """Returns a summary of one benchmark's repetitions."""
    name, unit = entries[0]["run_name"], TO_NANOSECONDS[entries[0]["time_unit"]]
    field = "cpu_time" if clock_of(name) == "processor" else "real_time"
    times = [entry[field] * unit for entry in entries]
    mean = statistics.fmean(times)
    spread = statistics.stdev(times) / mean if len(times) > 1 and mean > 0 else 0
    return {"name": name, "clock": clock_of(name),
            "median_ns": float(f"{statistics.median(times):.6g}"),
            "min_ns": float(f"{min(times):.6g}"), "cv": round(spread, 4)}


def kept_of_all(output):
    by_name = {}
    for entry in output["benchmarks"]:
        if entry.get("run_type") == "iteration" and not entry.get("error_occurred"):
            by_name.setdefault(entry["run_name"], []).append(entry)
    return [kept(by_name[name]) for name in sorted(by_name)]


class Progress:
    """Shows which program runs and for how long: on a terminal in one line, else in new lines."""

    def __init__(self, title, guess):
        self.title, self.guess = title, guess
        self.start = self.shown = time.monotonic()
        self.terminal = sys.stdout.isatty()
        print(f"{title}, about {guess:.0f} s", end="" if self.terminal else "\n", flush=True)

    def seconds(self):
        return time.monotonic() - self.start

    def tick(self):
        if self.terminal:
            print(f"\r{self.title}, {self.seconds():.0f} of about {self.guess:.0f} s ",
                  end="", flush=True)
        elif time.monotonic() - self.shown >= 15:
            self.shown = time.monotonic()
            print(f"    {self.seconds():.0f} s", flush=True)

    def done(self):
        start = "\r" if self.terminal else ""
        print(f"{start}{self.title}, took {self.seconds():.0f} s          ".rstrip(), flush=True)


def wait(process, progress):
    while process.poll() is None:
        progress.tick()
        if progress.seconds() > TIME_LIMIT:
            process.kill()
            process.wait()
            raise RuntimeError(f"it was stopped after {TIME_LIMIT} s")
        time.sleep(0.5)
    if process.returncode != 0:
        raise RuntimeError(f"it ended with status {process.returncode}")


def run(one, progress):
    """Runs a program in a temporary folder and returns the extracted output."""
    with tempfile.TemporaryDirectory(prefix="vn-bench-") as folder:
        output = pathlib.Path(folder) / "output.json"
        errors = pathlib.Path(folder) / "errors"
        with open(errors, "wb") as file:
            process = subprocess.Popen(one.command(output), cwd=folder, stderr=file,
                                       stdout=subprocess.DEVNULL)
            try:
                wait(process, progress)
            except BaseException:
                process.kill()
                sys.stderr.write(errors.read_text(encoding="utf-8", errors="replace"))
                raise
        return kept_of_all(json.loads(output.read_text(encoding="utf-8")))


# ---- All of them -----------------------------------------------------------------------------

def guess(one, raw):
    """Estimates the seconds of a program: those of its last run, or from its settings."""
    before = read(raw, one.program)
    if before and before["settings"] == one.settings:
        return before["seconds"]
    measured = one.settings["min_time"] * one.settings["repetitions"]
    return one.usual_seconds or one.count * (0.05 + 1.8 * measured)


def read(raw, program):
    try:
        return json.loads((raw / f"{program}.json").read_text(encoding="utf-8"))
    except FileNotFoundError:
        return None


def write(raw, program, content):
    """Returns JSON with one benchmark per line, so that diffs are readable."""
    lines = ",\n".join("    " + json.dumps(entry) for entry in content.pop("benchmarks"))
    head = json.dumps(content, indent=2)[:-2]
    raw.mkdir(parents=True, exist_ok=True)
    (raw / f"{program}.json").write_text(f'{head},\n  "benchmarks": [\n{lines}\n  ]\n}}\n',
                                         encoding="utf-8")


def medians(runs):
    """One summary of several: the median of their medians, the least time, the largest spread."""
    by_name = {}
    for entry in (entry for run in runs for entry in run):
        by_name.setdefault(entry["name"], []).append(entry)
    return [{**entries[0],
             "median_ns": float(f"{statistics.median(each['median_ns'] for each in entries):.6g}"),
             "min_ns": min(each["min_ns"] for each in entries),
             "cv": max(each["cv"] for each in entries)} for entries in by_name.values()]


def run_all(plans, quick, build, raw, runs):
    where = machine(build)
    total = sum(guess(one, raw) for one in plans) * runs
    print(f"bench: {len(plans)} programs, about {total / 60:.1f} minutes", flush=True)
    for number, one in enumerate(plans, 1):
        progress = Progress(f"[{number:2}/{len(plans)}] {one.program}: {one.count} benchmarks, "
                            f"{one.settings['repetitions']} times each", guess(one, raw) * runs)
        benchmarks = medians([run(one, progress) for _ in range(runs)])
        progress.done()
        write(raw, one.program, {
            "program": one.program, "quick": quick, "date": datetime.date.today().isoformat(),
            "seconds": round(progress.seconds() / runs), "runs": runs, "settings": one.settings,
            "machine": where, "benchmarks": benchmarks})
