"""Functions shared by the tests of this folder."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

CONSUMER = pathlib.Path(__file__).parent / "consumer"


def run(command, **keywords):
    """Runs a command and returns its output; if the command fails, fails with the whole output."""
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          check=False, **keywords)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


class Readme:
    """The code examples of the README."""

    def __init__(self, path):
        self.text = path.read_text()
        self.programs = dict(re.findall(r"\(`(hello\.\w+)`\):\n\n```\w+\n(.*?)```", self.text,
                                        re.DOTALL))
        self.command = self._only(r"^    (cc hello\.c .*)$")
        self.cpp_command = self._only(r"^    (c\+\+ hello\.cpp .*)$")
        self.cmake = self._only(r"^```cmake\n(.*?)```")

    def _only(self, pattern):
        found = re.findall(pattern, self.text, re.DOTALL | re.MULTILINE if "```" in pattern
                           else re.MULTILINE)
        if len(found) != 1:
            raise AssertionError(f"the README holds {len(found)} pieces like {pattern}")
        return found[0]

    def write(self, folder):
        """Writes hello.c, hello.cpp, the CMake lines and the project that includes them."""
        for name, text in self.programs.items():
            (folder / name).write_text(text)
        (folder / "readme.cmake").write_text(self.cmake)
        (folder / "CMakeLists.txt").write_text((CONSUMER / "CMakeLists.txt").read_text())


def check_hello(case, program, **keywords):
    output = run([program], **keywords)
    case.assertRegex(output, r' - Tick\("ACME",12\.5\)\n$')
    case.assertRegex(output, r" INFO  \[\d+\] - .*, \d+ processors\n")


def check_hello_cpp(case, program, **keywords):
    output = run([program], **keywords)
    case.assertRegex(output, r' - Tick\("ACME",12\.5\)\n.* - \{1:\d+\.\d{6}, 2:\d+\.\d{6}\}\n$')


def build_with_cmake(cmake, folder, *definitions):
    build = folder / "build"
    run([cmake, "-S", folder, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
         *definitions])
    run([cmake, "--build", build])
    return build


def add_compilers(parser):
    """Adds the options of the tests that only compile."""
    parser.add_argument("--include", type=pathlib.Path, required=True)
    parser.add_argument("--compilers", nargs="+", default=["gcc", "clang"])
    parser.add_argument("--cxx-compilers", nargs="+", default=["g++", "clang++"])


def present(compilers):
    """Returns each installed compiler once, even if it has several names."""
    paths = (shutil.which(compiler) for compiler in compilers)
    return sorted({os.path.realpath(path): path for path in paths if path}.values())


def main(parser, module):
    """Stores the parsed options in module.OPTIONS and runs the module's tests."""
    module.OPTIONS, rest = parser.parse_known_args()
    unittest.main(module=module, argv=[sys.argv[0], *rest], verbosity=2)
