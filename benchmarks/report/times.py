"""How times are written."""


def text(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{three_digits(nanoseconds / size)} {unit}"
    return f"{three_digits(nanoseconds)} ns"


def three_digits(number):
    return f"{number:#.3g}".rstrip(".") if number < 999.5 else f"{number:.0f}"
