#!/usr/bin/env python3
"""Checks that the mathematics uses no function of the system's mathematics library and exports none
of its internal functions. From the C library it may use only signgam (<math.h>), the rounding mode
(<fenv.h>) and the call that ends a process whose stack was overwritten. Builds with assertions
also have the call that reports a failed one."""
import argparse
import subprocess
import sys

# Not in this list: functions that are exact by IEEE 754 (sqrt, floor ...). The rest of the library
# may call them.
NAMES = """acos acosh asin asinh atan atan2 atanh cbrt cos cosh erf erfc exp exp2 expm1 fmod frexp
gamma hypot ilogb lgamma lgamma_r log log10 log1p log2 modf nextafter pow remainder scalb scalbn sin
sincos sinh tan tanh tgamma""".split()
FORBIDDEN = {name + suffix for name in NAMES for suffix in ("", "f", "l")}


def symbols(nm, *arguments):
    output = subprocess.run([nm, *arguments], check=True, capture_output=True, text=True).stdout
    rows = [line.split() for line in output.splitlines()]
    return {row[-1].split("@")[0] for row in rows if len(row) >= 2}


def check_objects(nm, objects):
    """Lists the undefined symbols of the objects, except the allowed ones."""
    open_names = symbols(nm, "--undefined-only", *objects) - symbols(nm, "--defined-only", *objects)
    allowed = {"signgam", "fegetround", "fesetround", "__stack_chk_fail", "_GLOBAL_OFFSET_TABLE_"}
    instrumented = ("__asan_", "__ubsan_", "__tsan_", "__gcov_", "__llvm_")
    return [f"called from the mathematics: {name}" for name in sorted(open_names - allowed)
            if not name.startswith(instrumented) and "failAssertion" not in name]


def check_library(nm, library):
    undefined = symbols(nm, "-D", "--undefined-only", library)
    exported = symbols(nm, "-D", "--defined-only", library)
    problems = [f"bound at run time: {name}" for name in sorted(undefined & FORBIDDEN)]
    if "signgam" not in undefined:
        problems.append("signgam is not the C library's")
    problems += [f"exported: {name}" for name in sorted(exported)
                 if name in FORBIDDEN or name.startswith(("__fd_", "__ieee754_", "__kernel_"))]
    return problems


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--library", required=True)
    parser.add_argument("objects", nargs="+")
    options = parser.parse_args()
    problems = (check_objects(options.nm, options.objects) +
                check_library(options.nm, options.library))
    print("\n".join(problems) or f"{len(options.objects)} objects and the library are closed")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
