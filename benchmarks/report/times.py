"""Formats times."""

UNITS = (("s", "seconds", 1e9), ("ms", "milliseconds", 1e6), ("µs", "microseconds", 1e3))


def text(nanoseconds):
    for short, _, size in UNITS:
        if nanoseconds >= size:
            return f"{three_digits(nanoseconds / size)} {short}"
    return f"{three_digits(nanoseconds)} ns"


def unit(nanoseconds):
    """Returns (short, name, nanoseconds) of the unit for an axis that ends at this time."""
    return next((unit for unit in UNITS if nanoseconds >= 2 * unit[2]), ("ns", "nanoseconds", 1))


def three_digits(number):
    return f"{number:#.3g}".rstrip(".") if number < 999.5 else f"{number:.0f}"
