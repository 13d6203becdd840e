#!/usr/bin/env python3
"""Checks that the library is compiled and linked with the protections that distributions use."""
import argparse
import pathlib
import subprocess
import sys
import unittest

import support

OPTIONS = None


class Hardening(unittest.TestCase):
    def test_the_loader_binds_at_once_and_write_protects(self):
        segments = support.run(["readelf", "-lW", OPTIONS.library])
        self.assertIn("GNU_RELRO", segments)
        self.assertNotRegex(segments, r"GNU_STACK .* RWE ")
        self.assertRegex(support.run(["readelf", "-dW", OPTIONS.library]), r"FLAGS.* NOW")

    def test_stacks_are_protected(self):
        names = support.run(["nm", "-D", "--undefined-only", OPTIONS.library])
        self.assertIn("__stack_chk_fail", names)

    def test_every_source_is_compiled_so(self):
        """Includes the upstream sources. Builds with tests do not define _FORTIFY_SOURCE."""
        for target in ["vncommon_objects", "vn_fdlibm", "vn_netlib"]:
            commands = subprocess.run(["ninja", "-C", OPTIONS.build, "-t", "commands", target],
                                      capture_output=True, text=True, check=False).stdout
            compiled = [line for line in commands.splitlines() if f"{target}.dir" in line]
            self.assertTrue(compiled)
            for line in compiled:
                self.assertIn("-fstack-protector-strong", line)
                self.assertIn("-fstack-clash-protection", line)


if __name__ == "__main__":
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--build", type=pathlib.Path, required=True)
    arguments.add_argument("--library", type=pathlib.Path, required=True)
    support.main(arguments, sys.modules[__name__])
