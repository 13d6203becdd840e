"""The builds that test a mutation, one after the other until one notices it."""
import json
import os
import resource
import signal
import subprocess
import sys
import time

from tree_copy import ROOT, TREE, WORK, mutated


def test_environment(preset):
    """What ctest sets for the tests of a preset."""
    presets = json.loads((ROOT / "CMakePresets.json").read_text(encoding="utf-8"))["testPresets"]
    return next(each["environment"] for each in presets if each["name"] == preset)


# The sanitizers may notice what a plain run does not, such as a memory leak.
STAGES = {
    "plain": (["-DCMAKE_BUILD_TYPE=Mutation", "-DCMAKE_CXX_FLAGS=-O0", "-DCMAKE_C_FLAGS=-O0"], {}),
    "asan-ubsan": (
        ["-DCMAKE_BUILD_TYPE=Mutation", "-DCMAKE_CXX_FLAGS=-O1", "-DCMAKE_C_FLAGS=-O1",
         "-DVN_SANITIZE=address,undefined,float-cast-overflow"],
        # The build does not stop at a float-cast-overflow by itself.
        {**test_environment("asan-ubsan"), "UBSAN_OPTIONS": "halt_on_error=1"}),
    "tsan": (
        ["-DCMAKE_BUILD_TYPE=Mutation", "-DCMAKE_CXX_FLAGS=-O1", "-DCMAKE_C_FLAGS=-O1",
         "-DVN_SANITIZE=thread"],
        test_environment("tsan")),
}
# The program of a test that is not named for it.
TARGETS = {"numbers_oracle_test": "numbers_print", "maths_strictmath_test": "maths_strictmath"}


class Stage:
    """One build of the copy and the tests in it."""

    def __init__(self, name, jobs, families):
        self.name, self.jobs, self.families = name, jobs, families
        self.options, self.environment = STAGES[name]
        self.folder = WORK / name
        self.commands, self.limits = {}, {}

    def configure(self):
        if not (self.folder / "build.ninja").is_file():
            run = subprocess.run(["cmake", "-S", TREE, "-B", self.folder, "-G", "Ninja",
                                  "-DVN_BUILD_BENCHMARKS=OFF", *self.options],
                                 capture_output=True, text=True, check=False)
            if run.returncode != 0:
                sys.exit(f"{run.stderr}mutate: configuring {self.name} failed; see above")

    def build(self, family):
        targets = [TARGETS.get(test, test) for test in self.present(family)]
        return subprocess.run(["ninja", "-C", self.folder, f"-j{self.jobs}", "vncommon", *targets],
                              capture_output=True, text=True, check=False)

    def present(self, family):
        """The family's tests that this build has; builds with sanitizers lack some."""
        if not self.commands:
            self.configure()
            self.list_tests()
        return [test for test in self.families[family].tests if test in self.commands]

    def list_tests(self):
        """The commands of the tests. ctest knows them only after the programs are built."""
        listed = subprocess.run(["ctest", "--show-only=json-v1"], cwd=self.folder, check=True,
                                capture_output=True, text=True).stdout
        for test in json.loads(listed)["tests"]:
            properties = {each["name"]: each["value"] for each in test["properties"]}
            if not properties.get("DISABLED"):
                self.commands[test["name"]] = (test.get("command"),
                                               properties["WORKING_DIRECTORY"])

    def prepare(self, family):
        """Builds and tests the family unchanged. A test's limit is eight times its run time."""
        if family in self.limits:
            return
        for _ in range(2):   # the first build may discover new tests
            built = self.build(family)
            if built.returncode != 0:
                sys.exit(f"{built.stdout}mutate: {self.name} does not build without any mutation; "
                         "see above")
            self.list_tests()
        self.limits[family] = {}
        for test in self.present(family):
            began = time.monotonic()
            verdict = self.run(test, 600)
            if verdict:
                sys.exit(f"mutate: {test} ({self.name}) fails without any mutation: {verdict}; "
                         "see build/mutate/test.log")
            self.limits[family][test] = max(20.0, 8 * (time.monotonic() - began))

    def run(self, test, limit):
        """None if the test passes, else what happened."""
        command, folder = self.commands[test]
        with open(WORK / "test.log", "wb") as log:
            process = subprocess.Popen(command, cwd=folder, stdin=subprocess.DEVNULL, stdout=log,
                                       stderr=log, env={**os.environ, **self.environment},
                                       start_new_session=True, preexec_fn=prepare_test)
            try:
                status = process.wait(limit)
            except subprocess.TimeoutExpired:
                status = None
            try:   # also what it left running, even if it has ended itself
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()
        if status is None:
            return "hang"
        if status < 0:
            return signal.Signals(-status).name
        return f"status {status}" if status else None

    def judge(self, mutation):
        """(verdict, what noticed it). The copy must contain the mutation."""
        if self.build(mutation.family).returncode != 0:
            return "not compiled", ""
        for test, limit in self.limits[mutation.family].items():
            verdict = self.run(test, limit)
            if verdict:
                mode = "" if self.name == "plain" else f", {self.name}"
                return "noticed", f"{test}{mode} ({verdict})"
        return "survived", ""


def prepare_test():
    """Signals as in a shell: nohup ignores SIGHUP. Soft limits only: tests set their own."""
    signal.signal(signal.SIGHUP, signal.SIG_DFL)
    for limit, value in (resource.RLIMIT_CORE, 0), (resource.RLIMIT_FSIZE, 1 << 30):
        resource.setrlimit(limit, (value, resource.getrlimit(limit)[1]))


def try_out(mutation, stages):
    """(verdict, what noticed it) of the first stage that notices the mutation."""
    verdict = ("survived", "")
    for stage in stages:
        stage.prepare(mutation.family)
        with mutated(mutation):
            verdict = stage.judge(mutation)
        if verdict[0] != "survived":
            break
    return verdict
