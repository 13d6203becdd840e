#!/usr/bin/env python3
"""Runs the given commands, separated by "--". All must print the same as the first one."""
import subprocess
import sys


def commands(arguments):
    found = [[]]
    for argument in arguments:
        if argument == "--":
            found.append([])
        else:
            found[-1].append(argument)
    return found


def main():
    first, *others = [(command, subprocess.run(command, check=True, stdout=subprocess.PIPE,
                                               text=True).stdout)
                      for command in commands(sys.argv[1:])]
    failures = 0
    for command, output in others:
        pairs = zip(first[1].splitlines(), output.splitlines(), strict=True)
        different = [a for a, b in pairs if a != b]
        failures += len(different)
        print(f"{len(different)} of {len(first[1].splitlines())} lines differ: {' '.join(command)}")
        print("".join(f"  {line}\n" for line in different), end="")
    return 1 if failures or not first[1] else 0


if __name__ == "__main__":
    sys.exit(main())
