"""What the logs of the checks say. Every function takes the text and fails with ValueError if the
figure is not there, so that a changed log is noticed."""
import json
import re


def last(pattern, text):
    found = re.findall(pattern, text, re.M)
    if not found:
        raise ValueError(f"the log has no {pattern!r}")
    return found[-1]


def ctest(text):
    """(tests, failed, skipped or disabled)"""
    failed, tests = last(r"tests passed, (\d+) tests? failed out of (\d+)", text)
    skipped = len(re.findall(r"^ *\d+/\d+ Test +#\d+: \S+ \.+\*\*\*(?:Skipped|Not Run \(Disabled\))",
                             text, re.M))
    return int(tests), int(failed), skipped


def ctest_passed(text):
    """The names of the tests that passed."""
    return set(re.findall(r"^ *\d+/\d+ Test +#\d+: (\S+) \.+ +Passed", text, re.M))


def ctest_listed(text):
    """The names that ctest -N lists."""
    return set(re.findall(r"^  Test +#\d+: (\S+)", text, re.M))


def faults(text):
    """(scenarios, injection points)"""
    points = [int(count) for count in re.findall(r"^\S+ +(\d+) injection points$", text, re.M)]
    if not points:
        raise ValueError("the log has no injection points")
    return len(points), sum(points)


def fuzz(text):
    """[(target, executions, whether it passed)]"""
    last(r"^target +executions", text)
    rows = re.findall(r"^(\w+) +(\d+|-) +(?:\d+|-) +(?:\d+|-) +(?:\d+|-)  (passed|FAILED)$", text,
                      re.M)
    return [(target, 0 if count == "-" else int(count), result == "passed")
            for target, count, result in rows]


def coverage(text):
    """((lines reached, lines), (branches taken, branches)) of gcovr's summary."""
    summary = json.loads(text)
    if "line_total" not in summary:
        raise ValueError("the summary has no totals")
    return tuple((summary[f"{kind}_covered"], summary[f"{kind}_total"])
                 for kind in ("line", "branch"))


def mutation(text, explained):
    """(run, killed, survivors, survivors without a reason) of docs/mutation.json."""
    entries = json.loads(text)["mutations"]
    verdicts = [entry.get("verdict") for entry in entries]
    survivors = [entry["id"] for entry in entries if entry.get("verdict") == "survived"]
    killed = verdicts.count("noticed")
    return (killed + len(survivors), killed, len(survivors),
            len([name for name in survivors if name not in explained]))


def soak(text):
    """(seconds, rounds, the quantities that did not stay flat)"""
    seconds, rounds = last(r"^ *(\d+) s: (\d+) rounds", text)
    judged = re.findall(r"^(threads|loading) +(.*?) +second quarter .*: (.*)$", text, re.M)
    if len(judged) != 6:
        raise ValueError("the log does not judge six quantities")
    return int(seconds), int(rounds), [f"{who} {what}" for who, what, result in judged
                                       if result != "flat"]


def googletest(text):
    """(tests passed, repetitions) of one program with --gtest_repeat or run several times."""
    passed = [int(count) for count in re.findall(r"^\[  PASSED  \] (\d+) tests?\.$", text, re.M)]
    if not passed:
        raise ValueError("the log has no passed test")
    return sum(passed), len(passed)


def bits(text):
    """(groups, wrong)"""
    groups, wrong = last(r"^(\d+) groups, \d+ in the manifest, (\d+) wrong", text)
    return int(groups), int(wrong)


def cross(text):
    """(compiler's version, [(suite, result, counts)])"""
    version = last(r"^== \w+, ([\d.]+), emulated", text)
    rows = re.findall(r"^\w+ +(\w+) +(passed|FAILED) +(\d+ tests, \d+ failed)", text, re.M)
    if not rows:
        raise ValueError("the log has no table")
    return version, rows


def release(text):
    """[(command, result, minutes)]"""
    rows = re.findall(r"^(?:bookworm|trixie)  (scripts/.*?)  (passed|FAILED)  (\d+) min$", text,
                      re.M)
    if not rows:
        raise ValueError("the log has no table")
    return [(command, result, int(minutes)) for command, result, minutes in rows]


def checks(text):
    """The names of the checks that ran."""
    return re.findall(r"^== (format|functions|tree|shell|python|tidy)$", text, re.M)


def failed_checks(text):
    """The names of the checks that failed."""
    found = re.findall(r"^check: failed: ([\w ]+);", text, re.M)
    return found[0].split() if found else []
