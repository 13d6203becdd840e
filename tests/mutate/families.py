"""Which tests show what a source does: the tests in the folder below tests/ that mirrors its own.

A folder is a family, tested by every test of its mirrored folder. In the folders of SPLIT each
subject is a family: a test sockets_test.cpp makes the family platform/sockets, of the sources and
of the tests whose names begin with "sockets". The tables hold what names do not show.
"""
import collections
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ("platform", "containers", "text", "config", "logging", "events")
SPLIT = ("platform", "containers", "events")

# Source -> its family, where the name does not show it.
SUBJECTS = {
    "platform/CPlatformThreadCPP.cpp": "platform/threads",
    "platform/MemoryCounter.cpp": "platform/failure",
    "platform/check_error.h": "platform/threads",
    "platform/cpu_details.cpp": "platform/platform",
    "platform/float_environment.h": "platform/maths",
    "platform/line_reader.cpp": "platform/discovery",
    "platform/line_reader.h": "platform/discovery",
    "platform/local_time.cpp": "platform/time_stamp",
    "platform/local_time.h": "platform/time_stamp",
    "platform/mutex_lock.h": "logging",
    "platform/owned_lock.cpp": "platform/fork",
    "platform/owned_lock.h": "platform/fork",
    "platform/fork_handlers.h": "platform/fork",
    "platform/fork_safe_mutex.h": "platform/fork",
    "platform/system_text.h": "platform/files",
    "platform/owned_text.h": "platform/platform",
    "events/CTimestampSet.cpp": "events/timestamp_set",
    "events/event_text.cpp": "events/event_writer",
    "events/event_tokens.cpp": "events/event_reader",
    "events/event_tokens.h": "events/event_reader",
    "events/event_values.h": "events/event_writer",
    "events/event_walk.h": "events/event_writer",
}
# Family -> tests from elsewhere, or without a source of their name.
OTHER_TESTS = {
    "platform/failure": ("out_of_memory_test", "first_calls_test"),
    "platform/fork": ("fork_holding_locks_test", "logging_fork_test"),
    "platform/maths": ("maths_strictmath_test", "floating_point_modes_test"),
    "platform/threads": ("unload_test",),
    "text/buffers": ("small_stack_test",),
    "text/numbers": ("numbers_oracle_test",),
    "events/timestamp_set": ("library_unload_test",),
}
# Not mutated: assertions, which a release leaves out.
LEFT_OUT = ("platform/assertion.cpp", "platform/assertion.h")
UPSTREAM = ("platform/fdlibm/", "text/numbers/netlib/")

Family = collections.namedtuple("Family", "sources tests")


def sources(root=ROOT):
    found = [path.relative_to(root).as_posix() for folder in FOLDERS
             for path in sorted((root / folder).rglob("*")) if path.suffix in (".cpp", ".h")]
    return [source for source in found
            if source not in LEFT_OUT and not source.startswith(UPSTREAM)]


def tests_of(folder, root=ROOT):
    """The names of the mirrored folder's tests."""
    return sorted(path.stem for path in (root / "tests" / folder).glob("*_test.cpp"))


def subject(name, tests):
    """The longest beginning of a name, up to an underscore or the end, that has a test."""
    words = name.split("_")
    beginnings = ["_".join(words[:count]) for count in range(len(words), 0, -1)]
    return next((each for each in beginnings if f"{each}_test" in tests), None)


def family_of(source, root=ROOT):
    folder = pathlib.PurePath(source).parent.as_posix()
    if source in SUBJECTS:
        return SUBJECTS[source]
    if folder not in SPLIT:
        return folder
    own = subject(pathlib.PurePath(source).stem, tests_of(folder, root))
    return f"{folder}/{shortest(own, tests_of(folder, root))}" if own else folder


def shortest(own, tests):
    """hashmap for hashmap_keys: a part of a subject belongs to the whole."""
    words = own.split("_")
    return next(each for each in ("_".join(words[:count]) for count in range(1, len(words) + 1))
                if f"{each}_test" in tests)


def tests_for(family, root=ROOT):
    folder, _, name = family.rpartition("/")
    if folder in SPLIT:
        own = [test for test in tests_of(folder, root)
               if test.removesuffix("_test") == name or test.startswith(name + "_")]
    else:
        own = tests_of(family, root)
    own.sort(key=lambda test: (len(test), test))   # the test of the whole comes first
    return [*own, *OTHER_TESTS.get(family, ())]


def families(root=ROOT):
    """Name -> Family, in the order of the sources."""
    grouped = {}
    for source in sources(root):
        grouped.setdefault(family_of(source, root), []).append(source)
    return {name: Family(own, tests_for(name, root)) for name, own in grouped.items()}
