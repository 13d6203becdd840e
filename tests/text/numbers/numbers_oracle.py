#!/usr/bin/env python3
"""Compares the texts that numbers_print prints with python's own conversions."""
import decimal
import math
import struct
import subprocess
import sys

decimal.getcontext().prec = 1200
decimal.getcontext().rounding = decimal.ROUND_HALF_EVEN


def shortest(x):
    """Lays out the digits of repr()."""
    if math.isnan(x):
        return "NaN"
    sign = "-" if math.copysign(1, x) < 0 else ""
    if math.isinf(x):
        return sign + "Infinity"
    _, digits, exponent = decimal.Decimal(repr(abs(x))).as_tuple()
    text = "".join(map(str, digits))
    point = len(text) + exponent
    text = text.lstrip("0").rstrip("0")
    if not text:
        return sign + "0"
    count = len(text)
    if point < -3 or point > count + 5:
        tail = "." + text[1:] if count > 1 else ""
        return f"{sign}{text[0]}{tail}e{point - 1:+03d}"
    if point <= 0:
        return sign + "." + "0" * -point + text
    if point >= count:
        return sign + text + "0" * (point - count)
    return sign + text[:point] + "." + text[point:]


def named(x):
    return shortest(x) if math.isnan(x) or math.isinf(x) else None


def fixed(x, places):
    """Rounds the exact value by decimal arithmetic."""
    if named(x):
        return named(x)
    exact = decimal.Decimal(x).quantize(decimal.Decimal(1).scaleb(-places))
    return f"{exact:f}"


def scientific(x, digits):
    if x == 0:
        return "0." + "0" * (digits - 1) + "e+00"
    return named(x) or "%.*e" % (digits - 1, x)


def main():
    output = subprocess.run(sys.argv[1:], check=True, capture_output=True, text=True).stdout
    checked = wrong = 0
    for line in output.splitlines():
        bits, *texts = line.split(" ")
        x = struct.unpack(">d", bytes.fromhex(bits))[0]
        wanted = ([shortest(x)] + [fixed(x, places) for places in (0, 2, 17)]
                  + [scientific(x, digits) for digits in (1, 6, 17)])
        checked += 1
        if texts != wanted:
            wrong += 1
            print(f"{bits}: {texts} but {wanted}")
    print(f"{checked} doubles checked, {wrong} wrong")
    return 1 if wrong or checked < 10000 else 0


if __name__ == "__main__":
    sys.exit(main())
