#!/usr/bin/env python3
"""Links programs with the installed libvncommon.a, through CMake and through pkg-config. The
programs are in C and C++, define names that are local in the archive, use the library before
main(), or load it as part of a plugin."""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import support

OPTIONS = None
SOURCES = pathlib.Path(__file__).parent / "static"

# Programs cannot define these again: every program has them, or the compiler makes them.
NOT_FOR_PROGRAMS = re.compile(r"(main|_.*init.*|_GLOBAL_.*)$")
RESULTS = """
#include <math.h>
#include <stdio.h>
#include <vncommon/vncommon.h>

void check_own_names(void);

int main(void) {
    VN_EventWriter* event = VN_EventWriter_ctor(8, "Name");
    VN_EventWriter_addDecimal(event, 0x31c000000000007bull);
    char* text = VN_EventWriter_toString(event);
    char buffer[64];
    printf("%s %s %s", vn_g_fmt(buffer, 0.1), text, vn_pow(2, 10) == 1024 ? "1024" : "wrong");
    vn_free(text);
    VN_EventWriter_dtor(event);
    vn_gammal(-0.5);
    printf(" %d", signgam);
    check_own_names();
    puts("");
    return 0;
}
"""


def symbols(nm, file, *arguments):
    """Returns pairs of a symbol's kind and name."""
    lines = support.run([nm, *arguments, file]).splitlines()
    found = (re.fullmatch(r"(?:[0-9a-f]+)? *([A-Za-z]) (\S.*)", line.strip()) for line in lines)
    return [(match[1], match[2].split("@")[0]) for match in found if match]


class StaticLibrary(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="vn-static-")
        cls.addClassCleanup(cls.temporary.cleanup)
        cls.work = pathlib.Path(cls.temporary.name)
        cls.prefix = cls.work / "prefix"
        support.run([OPTIONS.cmake, "--install", OPTIONS.build, "--prefix", cls.prefix])
        cls.archive = next(cls.prefix.rglob("libvncommon.a"))
        (cls.work / "alone").mkdir()
        (cls.work / "alone/libvncommon.a").symlink_to(cls.archive)
        readme = support.Readme(OPTIONS.readme)
        for name, text in readme.programs.items():
            (cls.work / name).write_text(text)
        for path in SOURCES.iterdir():
            (cls.work / path.name).write_text(path.read_text())
        cls.environment = {**os.environ, "PKG_CONFIG_PATH": str(cls.archive.parent / "pkgconfig")}

    def link(self, compiler, output, *sources):
        """Links through pkg-config. The linker first searches a folder without a shared library."""
        support.run(["sh", "-ec", f"{compiler} -o {output} {' '.join(sources)} -Lalone "
                     "$(pkg-config --static --cflags --libs vncommon)"],
                    cwd=self.work, env=self.environment)
        return self.work / output

    def test_only_the_exported_names_are_global(self):
        listed = {line.split("#")[0].strip() for path in OPTIONS.exports.glob("*.txt")
                  for line in path.read_text().splitlines()} - {""}
        found = symbols(OPTIONS.nm, self.archive, "-C", "--extern-only", "--defined-only")
        self.assertEqual({name for _, name in found}, listed)
        kinds = {kind for kind, _ in symbols(OPTIONS.nm, self.archive, "--defined-only")}
        self.assertLessEqual(kinds, set("TDBRtdbr"))   # not weak, common or unique

    def test_initialisers_run_before_those_of_the_program(self):
        sections = support.run(["objdump", "-h", self.archive]).split()
        initialisers = [name for name in sections if name.startswith((".init_array", ".ctors"))]
        self.assertGreaterEqual(len(initialisers), 3)
        for name in initialisers:
            self.assertRegex(name, r"^\.init_array\.00\d{3}$")
        program = self.link("c++ -std=c++17", "early", "early.cpp")
        self.assertRegex(support.run([program]),
                         r"^1\.2345678901234568e-300 \{1:\d+\.\d{6}, 2:\d+\.\d{6}\}\n$")

    def test_through_pkg_config(self):
        support.check_hello(self, self.link("cc -std=c11", "hello", "hello.c"))
        program = self.link("c++ -std=c++17", "hello_cpp", "hello.cpp")
        support.check_hello_cpp(self, program)
        self.assertNotIn("libvncommon", support.run(["objdump", "-p", program]))

    def test_through_cmake(self):
        build = support.build_with_cmake(OPTIONS.cmake, self.work,
                                         f"-DCMAKE_PREFIX_PATH={self.prefix}")
        support.check_hello(self, build / "hello")
        self.assertNotIn("libvncommon", support.run(["objdump", "-p", build / "hello"]))
        plugin = next(build.glob("libplugin.so"))
        program = "import ctypes, sys; print(ctypes.CDLL(sys.argv[1]).plugin())"
        self.assertGreater(int(support.run([sys.executable, "-c", program, plugin])), 0)

    def test_a_program_may_have_every_name_that_is_local(self):
        """Defines all of them: FDLIBM's, netlib's, the decimal library's and ours."""
        names = sorted({name for _, name in symbols(OPTIONS.nm, self.archive, "--defined-only")
                        if not name.startswith("Java_")}
                       - {name for _, name in symbols(OPTIONS.nm, self.archive, "--extern-only")})
        names = [name for name in names if re.fullmatch(r"[A-Za-z_]\w*", name)
                 and not NOT_FOR_PROGRAMS.match(name)]
        self.assertGreater(len(names), 300)
        for name in ["__bid64_to_string", "__ieee754_pow", "_dtoa_r"]:
            self.assertIn(name, names)
        own = "".join(f"int {name} = {at};\n" for at, name in enumerate(names))
        checks = "".join(f"    sum += {name};\n" for name in names)
        (self.work / "own.c").write_text(
            f"{own}int printf(const char* format, ...);\n"
            f"void check_own_names(void) {{\n    long sum = 0;\n{checks}"
            f'    printf(" %ld", sum);\n}}\n')
        (self.work / "results.c").write_text(RESULTS)
        program = self.link("cc -fno-builtin", "results", "results.c", "own.c")
        self.assertEqual(support.run([program]),
                         f".1 Name(+123E+0) 1024 -1 {sum(range(len(names)))}\n")

    def test_link_time_optimisation_is_refused(self):
        done = subprocess.run([OPTIONS.cmake, "-S", OPTIONS.readme.parent, "-B", self.work / "lto",
                               "-G", "Ninja", "-DCMAKE_CXX_FLAGS=-flto", "-DVN_BUILD_STATIC=ON"],
                              capture_output=True, text=True, check=False)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("leave -flto out", " ".join(done.stderr.split()))

    def test_a_program_may_have_its_own_signgam(self):
        (self.work / "signgam.c").write_text("int signgam;\nvoid check_own_names(void) {}\n")
        (self.work / "results.c").write_text(RESULTS)
        program = self.link("cc", "signgam", "results.c", "signgam.c")
        self.assertTrue(support.run([program]).endswith(" -1\n"))


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--build", type=pathlib.Path, required=True)
    arguments.add_argument("--cmake", default="cmake")
    arguments.add_argument("--readme", type=pathlib.Path, required=True)
    arguments.add_argument("--nm", default="nm")
    arguments.add_argument("--exports", type=pathlib.Path, required=True)
    support.main(arguments, sys.modules[__name__])
