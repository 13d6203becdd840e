#!/usr/bin/env python3
"""Proves that the manifest is right: compares every call of every group with an independent
implementation. Arguments: bits_test, java ("" for none), the folder of StrictMathAnswers.class,
icu_answers. --every N compares only every N-th call.

The expected results come from java.lang.StrictMath (mathematics), from ICU called directly
(conversions and caseless order) and from python: its conversions, codecs, exact integers and
decimals, and models of the documented formats. The conversions and the caseless order are compared
with python's, too. StrictMath lacks erf and gammal: these are compared with python's to a few units
in the last place, and the manifest shows that all builds return the same bits."""
import argparse
import decimal
import math
import pathlib
import re
import struct
import subprocess
import sys
import unicodedata

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "text/numbers"))
from numbers_oracle import shortest  # noqa: E402

decimal.getcontext().prec = 1300
decimal.getcontext().Emin = -100000
decimal.getcontext().rounding = decimal.ROUND_HALF_EVEN

STRICTMATH = """pow exp log log10 cbrt sin cos tan asin acos atan atan2 sinh cosh tanh asinh acosh
atanh fmod""".split()
ICU = ["utf8_to_utf16", "utf16_to_utf8", "caseless_order"]
LOWEST, HIGHEST = -2**63, 2**63 - 1


# ---- Doubles ------------------------------------------------------------------------------------

def double(bits):
    return struct.unpack(">d", bytes.fromhex(bits))[0]


def bits(x):
    return "nan" if math.isnan(x) else struct.pack(">d", x).hex()


def saturated(value):
    return str(value if LOWEST <= value <= HIGHEST else LOWEST)


def integral(x):
    return str(LOWEST) if not math.isfinite(x) else saturated(math.trunc(x))


def frac(x):
    if not math.isfinite(x):
        return bits(math.copysign(0, x))
    return bits(math.copysign(math.modf(x)[0], x))


def bankers(x):
    if math.isnan(x):
        return str(LOWEST)
    if math.isinf(x):
        return str(HIGHEST if x > 0 else LOWEST)
    return str(max(LOWEST, min(HIGHEST, round(x))))


def ilogb(x):
    if x == 0:
        return str(-2**31 + 1)
    return str(math.frexp(x)[1] - 1 if math.isfinite(x) else 2**31 - 1)


def exponent(x):
    return str(math.frexp(x)[1] if math.isfinite(x) else 0)


def mantissa(x):
    return bits(math.frexp(x)[0] if math.isfinite(x) else x)


def nextafter(x, y):
    if math.isnan(x) or math.isnan(y):
        return "nan"
    return bits(x if x == y else math.nextafter(x, y))


def scalbn(x, n):
    """The result of exact arithmetic, rounded once."""
    if not math.isfinite(x) or x == 0:
        return bits(x)
    n = max(-5000, min(5000, n))
    numerator, denominator = x.as_integer_ratio()
    numerator, denominator = (numerator << n, denominator) if n > 0 else (
        numerator, denominator << -n)
    try:
        result = numerator / denominator
    except OverflowError:
        result = math.inf
    return bits(math.copysign(result, x))


def sign_of_gamma(x):
    if x < 0 and math.isfinite(x) and x != math.floor(x):
        return "-1" if math.floor(x) % 2 else "1"
    return "1"


def near(result, x, wanted):
    """Returns the result if it is within a few units of the wanted one, else the wanted one."""
    if result == bits(wanted):
        return result
    if result == "nan" or not math.isfinite(wanted):
        return bits(wanted)
    bound = 4e-15 * max(abs(wanted), 1e-300)
    return result if abs(double(result) - wanted) <= bound else bits(wanted)


def erf(x, result):
    return near(result, x, math.erf(x))


def gammal(x, result):
    if math.isnan(x):
        return "nan"
    if math.isinf(x) or (x <= 0 and x == math.floor(x)):
        return bits(math.inf)
    try:
        wanted = math.lgamma(x)
    except OverflowError:
        wanted = math.inf
    if math.isinf(wanted):
        return bits(wanted)
    # Near its zeros, and where python's own sum cancels, the error is absolute.
    close = abs(double(result) - wanted) <= 2e-13 * max(1, abs(wanted))
    return result if close else bits(wanted)


# ---- Texts of numbers ---------------------------------------------------------------------------

def named(x):
    if math.isnan(x):
        return "NaN"
    return "-Infinity" if x < 0 else "Infinity"


def fixed(x, places, size):
    places = min(places, 100)
    if not math.isfinite(x):
        text = named(x)
    else:
        exact = decimal.Decimal(x).quantize(decimal.Decimal(1).scaleb(-places))
        text = f"{exact:f}"
        if exact == 0 and places < 0:  # one zero per dropped place
            text = ("-" if math.copysign(1, x) < 0 else "") + "0" * (-places if x else 1)
    return text if len(text) < size and size >= 2 else "(null)"


def scientific(x, digits, size):
    digits = max(1, min(digits, 100))
    if not math.isfinite(x):
        text = named(x)
    elif x == 0:
        text = "0." + "0" * (digits - 1) + "e+00"
    else:
        text = "%.*e" % (digits - 1, x)
    return text if len(text) < size and size >= 2 else "(null)"


DECIMAL = re.compile(rb"[ \t\n\v\f\r]*([+-]?)(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?")
HEXADECIMAL = re.compile(rb"[ \t\n\v\f\r]*([+-]?)0[xX]([0-9a-fA-F]+\.?[0-9a-fA-F]*|\.[0-9a-fA-F]+)"
                         rb"([pP][+-]?\d+)?")
WORD = re.compile(rb"[ \t\n\v\f\r]*([+-]?)(inf(?:inity)?|nan(?:\([0-9a-f]+\))?)", re.I)


def out_of_range(value, digits):
    """netlib reports overflow, and underflow to zero of a number that is not zero."""
    overflow = math.isinf(value) and not digits.lower().startswith(b"inf")
    vanished = value == 0 and digits.strip(b"0.") != b""
    return " out of range" if overflow or vanished else ""


def reading(text):
    text = bytes.fromhex(text)
    found = HEXADECIMAL.match(text)
    if found:
        try:
            value = float.fromhex(found.group().decode().strip())
        except OverflowError:
            value = -math.inf if found.group(1) == b"-" else math.inf
        return f"{bits(value)} {found.end()}{out_of_range(value, found.group(2))}"
    found = DECIMAL.match(text) or WORD.match(text)
    if not found:
        return f"{bits(0.0)} 0"
    if re.match(rb"\s*[+-]0[xX]", text):
        return f"{bits(0.0)} {found.end()}"  # netlib: no digits after the x, and the sign is lost
    value = float(found.group().decode().split("(")[0])
    return f"{bits(value)} {found.end()}{out_of_range(value, found.group(2))}"


def decimal_text(word):
    value = int(word, 16)
    sign = "-" if value >> 63 else "+"
    top = value >> 58 & 31
    if top == 31:
        return sign + ("SNaN" if value >> 57 & 1 else "NaN") + " 100"
    if top == 30:
        return sign + "Inf 001"
    if value >> 61 & 3 == 3:
        power, coefficient = value >> 51 & 1023, value & (2**51 - 1) | 2**53
    else:
        power, coefficient = value >> 53 & 1023, value & (2**53 - 1)
    if coefficient >= 10**16:
        coefficient = 0  # not canonical
    return f"{sign}{coefficient}E{power - 398:+d} 010"


# ---- Strings ------------------------------------------------------------------------------------

def string_hash(text):
    result = 0
    for byte in bytes.fromhex(text):
        result = (result + (byte - 256 if byte > 127 else byte)) * 0x9e3779b9 % 2**32
    return f"{result:08x}"


def order(a, b):
    return str((a > b) - (a < b))


def string_order(arguments):
    a, b = arguments.split(" ")
    return order(bytes.fromhex(a), bytes.fromhex(b))


def escape(text, table):
    return "".join(table.get(text[i:i + 2], text[i:i + 2]) for i in range(0, len(text), 2))


def table(**pairs):
    return {key[1:]: value.encode().hex() for key, value in pairs.items()}


PLAIN = table(x0a="\\n", x0d="\\r", x22='\\"', x5c="\\\\")
SEMICOLON = table(x0a="\\n", x0d="\\r", x22='\\"', x3b="\\\\;", x5c="\\\\\\\\")
XML = table(x26="&amp;", x27="&apos;", x22="&quot;", x3c="&lt;", x3e="&gt;")
XML.update({f"{c:02x}": f"%{c:02x}".encode().hex() for c in range(1, 32) if c not in (9, 10, 13)})


def integer(text, sign, bounds, top):
    found = re.match(rb"[ \t]*" + sign + rb"(0[xX]([0-9a-fA-F]*)|\d+)", bytes.fromhex(text))
    if not found:
        return "0 0 22"
    if found.group(2) is not None:
        digits = found.group(2)
        if not digits:
            return "0 0 22"
        value = int(digits, 16)
        if value >= 2**64:
            return "0 0 34"
        value -= 2**64 if value > top else 0
    else:
        value = int(found.group().strip(b" \t"))
        if not bounds[0] <= value <= bounds[1]:
            return "0 0 34"
    return f"{value} {found.end()} 0"


def signed(text):
    """A minus sign takes decimal digits only."""
    raw = bytes.fromhex(text)
    if re.match(rb"[ \t]*-", raw):
        found = re.match(rb"[ \t]*(-\d+)", raw)
        if not found:
            return "0 0 22"
        value = int(found.group(1))
        return f"{value} {found.end()} 0" if value >= LOWEST else "0 0 34"
    return integer(text, b"", (LOWEST, HIGHEST), HIGHEST)


def unsigned(text):
    return integer(text, rb"\+?", (0, 2**64 - 1), 2**64 - 1)


def boolean_word(text):
    return "1" if bytes.fromhex(text).lower() in (b"true", b"t", b"yes", b"y", b"1") else "0"


# ---- Unicode ------------------------------------------------------------------------------------

def validation(text):
    raw = bytes.fromhex(text)
    try:
        raw.decode("utf-8", "surrogatepass")
        valid = "1"
    except UnicodeDecodeError:
        valid = "0"
    return valid + ("1" if raw.isascii() else "0")


def to_utf16(text):
    try:
        wide = bytes.fromhex(text).decode("utf-8").encode("utf-16-be")
    except UnicodeDecodeError:
        return "(null)"
    return f"{wide.hex()} {len(wide) // 2}"


def to_utf8(units):
    try:
        return bytes.fromhex(units).decode("utf-16-be").encode().hex()
    except UnicodeDecodeError:
        return "(null)"


def stepping(arguments):
    raw, at, count = arguments.split(" ")
    raw, at, count = bytes.fromhex(raw), int(at), int(count)
    text = raw.decode()
    starts = [i for i, byte in enumerate(raw) if byte & 0xc0 != 0x80] + [len(raw)]
    skipped = starts[min(count, len(text)) if count >= 0 else len(text)]
    lead = max(start for start in starts if start <= at)
    character = raw[lead:].decode()[0].encode()
    letter = "1" if len(character) == 1 and character.isalpha() else "0"
    begun = sum(1 for start in starts if start < at)
    return f"{len(text)} {begun} {skipped} {lead} {len(character)} {character.hex()}{letter}"


SPACES = {chr(c) for first, last in (
    (0x9, 0xd), (0x1c, 0x20), (0xa0, 0xa0), (0x1680, 0x1680), (0x180e, 0x180e), (0x2000, 0x200a),
    (0x2028, 0x2029), (0x202f, 0x202f), (0x205f, 0x205f), (0x3000, 0x3000))
    for c in range(first, last + 1)}


def white_space(text):
    text = bytes.fromhex(text).decode()
    first = next((i for i, c in enumerate(text) if c not in SPACES), len(text))
    last = next((i for i in range(len(text), 0, -1) if text[i - 1] not in SPACES), 0)
    return f"{len(text[:first].encode())} {len(text[:last].encode())}"


def folded(text):
    decomposed = unicodedata.normalize("NFD", text)
    return unicodedata.normalize("NFD", decomposed.casefold()).encode("utf-16-be")


def caseless(arguments):
    a, b = (bytes.fromhex(word).decode() for word in arguments.split(" "))
    if a.isascii() and b.isascii():
        return order(a.lower(), b.lower())
    return order(folded(a), folded(b))


# ---- Events -------------------------------------------------------------------------------------

def event_string(raw):
    if b'"' in raw or b"\\" in raw:
        for byte, text in ((b"\\", b"\\\\"), (b'"', b'\\"'), (b"\t", b"\\t"), (b"\n", b"\\n")):
            raw = raw.replace(byte, text)
    return b'"' + raw + b'"'


def plain_value(word):
    if word.startswith("any"):
        return b"any(integer,%s)" % word[3:].encode()
    if word.startswith("optional"):
        return b"optional(%s)" % word[8:].encode()
    kind, rest = word[0], word[1:]
    return {
        "i": rest.encode,
        "s": lambda: event_string(bytes.fromhex(rest)),
        "c": lambda: b'"' + bytes.fromhex(rest) + b'"',
        "f": lambda: shortest(double(rest)).encode(),
        "d": lambda: decimal_text(rest).split(" ")[0].encode(),
        "b": lambda: b"true" if int(rest) % 256 else b"false",
        "u": lambda: bytes.fromhex(rest),
    }[kind]()


def event_text(description):
    words = description.split(" ") if description else []
    fields = []
    while words:
        word = words.pop(0)
        if word in ("[", "{"):
            end = words.index("]" if word == "[" else "}")
            values = [plain_value(each) for each in words[:end]]
            del words[:end + 1]
            if word == "[":
                fields.append(b"[" + b",".join(values) + b"]")
            else:
                pairs = zip(values[::2], values[1::2])
                fields.append(b"{" + b",".join(k + b":" + v for k, v in pairs) + b"}")
        else:
            fields.append(plain_value(word))
    return (b"Tick(" + b",".join(fields) + b")").hex()


# ---- All of them --------------------------------------------------------------------------------

def unary(function):
    return lambda arguments, _: function(double(arguments))


def of_text(function):
    return lambda arguments, _: function(arguments)


def sized(function):
    def answer(arguments, _):
        x, precision, size = arguments.split(" ")
        return function(double(x), int(precision), int(size))
    return answer


def pair(function, second):
    def answer(arguments, _):
        x, y = arguments.split(" ")
        return function(double(x), second(y))
    return answer


ORACLES = {
    "erf": lambda arguments, result: erf(double(arguments), result),
    "gammal": lambda arguments, result: gammal(double(arguments), result),
    "signgam": unary(sign_of_gamma), "nextafter": pair(nextafter, double),
    "scalbn": pair(scalbn, int), "ilogb": unary(ilogb), "int": unary(integral),
    "frac": unary(frac), "exponent": unary(exponent), "mantissa": unary(mantissa),
    "bankerRound": unary(bankers), "shortest_text": unary(shortest), "fixed_text": sized(fixed),
    "scientific_text": sized(scientific), "reading": of_text(reading),
    "decimal_text": of_text(decimal_text), "string_hash": of_text(string_hash),
    "string_order": of_text(string_order), "escape": lambda text, _: escape(text, PLAIN),
    "escape_semicolon": lambda text, _: escape(text, SEMICOLON),
    "escape_xml": lambda text, _: escape(text, XML), "signed_integer": of_text(signed),
    "unsigned_integer": of_text(unsigned), "hexadecimal": lambda text, _: f"{int(text):08x}",
    "boolean_word": of_text(boolean_word), "utf8_validation": of_text(validation),
    "utf8_to_utf16": of_text(to_utf16), "utf16_to_utf8": of_text(to_utf8),
    "utf8_stepping": of_text(stepping), "white_space": of_text(white_space),
    "caseless_order": of_text(caseless), "event_text": of_text(event_text),
}


def run(command, text=None):
    return subprocess.run(command, input=text, check=True, text=True, capture_output=True).stdout


def calls_of(group, options):
    lines = run([options.bits_test, "--dump", group]).split("\n")[:-1]
    return [line.split("\t") for line in lines[::options.every]]


def strictmath(calls, options):
    """The results of StrictMath, by group."""
    if not options.java:
        return {}
    questions = [f"{group} {arguments}\n" for group in STRICTMATH
                 for arguments, _ in calls.get(group, ())]
    results = iter(run([options.java, "-cp", options.classes, "StrictMathAnswers"],
                       "".join(questions)).split("\n"))
    return {group: [next(results) for _ in calls[group]] for group in STRICTMATH if group in calls}


def icu(calls, options):
    """The results of ICU, by group."""
    return {group: run([options.icu], "".join(f"{group} {arguments}\n" for arguments, _
                                              in calls[group])).splitlines()
            for group in ICU if group in calls}


def agree(group, calls, wanted, oracle):
    """Returns whether all results are the oracle's; prints the first few differences."""
    wrong = [(*call, right) for call, right in zip(calls, wanted, strict=True) if call[1] != right]
    print(f"{group}: {len(calls)} calls, {len(wrong)} other than {oracle}'s", flush=True)
    for arguments, result, right in wrong[:5]:
        print(f"  ({arguments}) is {result}, expected {right}")
    return bool(calls) and not wrong


def prove(group, calls, strict, of_icu):
    """Returns whether every oracle of the group agrees with all calls."""
    right = True
    if group in of_icu:
        right = agree(group, calls, of_icu[group], "ICU")
    if group in ORACLES:
        wanted = [ORACLES[group](arguments, result) for arguments, result in calls]
        return agree(group, calls, wanted, "python") and right
    if group in strict:
        return agree(group, calls, strict[group], "StrictMath")
    print(f"{group}: not compared, no JDK")
    return True


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("--group", help="this one only")
    parser.add_argument("bits_test")
    parser.add_argument("java")
    parser.add_argument("classes")
    parser.add_argument("icu")
    options = parser.parse_args()
    groups = [line.split(" ")[0] for line in run([options.bits_test, "--print"]).splitlines()]
    assert set(ORACLES) | set(STRICTMATH) == set(groups)
    groups = [group for group in groups if options.group in (None, group)]
    calls = {group: calls_of(group, options) for group in groups}
    strict = strictmath(calls, options)
    of_icu = icu(calls, options)
    proven = [prove(group, calls[group], strict, of_icu) for group in groups]
    print(f"{sum(proven)} of {len(proven)} groups proven")
    return 0 if all(proven) else 1


if __name__ == "__main__":
    sys.exit(main())
