"""gdb pretty-printers: shows the contents of the library's records.

gdb loads this file with the library: it is installed as share/gdb/auto-load/LIBRARY-gdb.py, where
LIBRARY is the full path of the shared object. Elsewhere: source tools/gdb/libvncommon-gdb.py

A record may hold arbitrary data when it is shown. No printer raises an exception because of it, and
none calls a function of the program.
"""
import gdb
import gdb.printing

NOT_INITIALISED = "not initialised"
NOT_READABLE = "not readable"
MOST_SHOWN = 200    # characters and values, where gdb does not count them itself
DEEPEST = 32        # event in event


def unsigned_long_at(address, index=0):
    return int(address.cast(gdb.lookup_type("unsigned long").pointer())[index])


def double_at(address):
    return float(address.cast(gdb.lookup_type("double").pointer()).dereference())


def char_pointer(word):
    return word.cast(gdb.lookup_type("char").pointer())


def text_at(word):
    text = char_pointer(word).string(errors="backslashreplace")
    return text if len(text) <= MOST_SHOWN else text[:MOST_SHOWN] + "..."


def elements_of(vector):
    """The elements of a Vector; none if it is not valid."""
    if is_vector(vector):
        for index in range(int(vector["size"])):
            yield vector["data"][index]


def is_vector(vector):
    has_storage = vector["data"] != 0
    return vector["size"] <= vector["capacity"] and has_storage == (vector["capacity"] != 0)


class Printer:
    """The base class: describe() and parts() may raise the exceptions of reading memory."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        try:
            return self.describe()
        except (gdb.error, ArithmeticError, ValueError):
            return NOT_READABLE

    def children(self):
        try:
            yield from self.parts()
        except (gdb.error, ArithmeticError, ValueError):
            yield "[?]", NOT_READABLE

    def parts(self):
        return ()


class ListPrinter(Printer):
    @staticmethod
    def display_hint():
        return "array"


class MapPrinter(Printer):
    """parts() returns keys and values alternately."""

    @staticmethod
    def display_hint():
        return "map"


class VectorPrinter(ListPrinter):
    def describe(self):
        if not is_vector(self.value):
            return NOT_INITIALISED
        return f"Vector of {int(self.value['size'])}, capacity {int(self.value['capacity'])}"

    def parts(self):
        for index, element in enumerate(elements_of(self.value)):
            yield f"[{index}]", element


class HashMapPrinter(MapPrinter):
    """Entries in the order of iteration. Keys are shown as texts if the hash is vn_String_hash."""

    def valid(self):
        value = self.value
        return (0 < value["initialSize"] and value["count"] <= value["entryFill"] and
                value["entryFill"] <= value["entryCapacity"] and value["buckets"] != 0)

    def describe(self):
        if not self.valid():
            return NOT_INITIALISED
        return f"HashMap of {int(self.value['count'])}"

    def parts(self):
        left = int(self.value["count"]) if self.valid() else 0
        texts = "<vn_String_hash" in str(self.value["hash"])
        bucket = 0
        while left > 0 and bucket <= int(self.value["mask"]):
            for element in elements_of(self.value["buckets"][bucket]):
                entry = element.cast(self.value["entries"].type)
                key = entry["key"]
                yield "key", char_pointer(key).lazy_string() if texts else key
                yield "value", entry["value"]
                left -= 1
            bucket += 1


class StringBufferPrinter(Printer):
    """Shows the text up to its terminator if vn_strbufAppendVA has left a size beyond the block."""

    def describe(self):
        size, capacity = int(self.value["size"]), int(self.value["capacity"])
        if capacity == 0 or self.value["data"] == 0:
            return NOT_INITIALISED
        return self.value["data"].lazy_string(length=size if size < capacity else -1)

    def display_hint(self):
        return None if self.to_string() == NOT_INITIALISED else "string"


class ByteBufferPrinter(Printer):
    def describe(self):
        size, capacity = int(self.value["size"]), int(self.value["capacity"])
        if size > capacity or self.value["data"] == 0:
            return NOT_INITIALISED
        shown = min(size, MOST_SHOWN)
        data = self.value["data"]
        digits = " ".join(f"{int(data[index]):02x}" for index in range(shown))
        more = " ..." if shown < size else ""
        return f"{size} bytes, capacity {capacity}" + (f": {digits}{more}" if size else "")


class QueuePrinter(ListPrinter):
    """The elements in the order in which they will be removed."""

    def valid(self):
        value = self.value
        return (value["slots"] != 0 and value["count"] <= value["capacity"] and
                value["head"] < value["capacity"])

    def describe(self):
        if not self.valid():
            return NOT_INITIALISED
        count, capacity, most = (int(self.value[name]) for name in ["count", "capacity", "maxSize"])
        limit = f"at most {most}" if most else "no maximum"
        return f"queue of {count}, capacity {capacity}, {limit}"

    def parts(self):
        capacity, head = int(self.value["capacity"]), int(self.value["head"])
        for index in range(int(self.value["count"]) if self.valid() else 0):
            yield f"[{index}]", self.value["slots"][(head + index) % capacity]["words"]


class TimestampSetPrinter(MapPrinter):
    """Stage and time of every entry, in the order added."""

    def describe(self):
        entries = self.value["entries"]
        if entries == 0 or not is_vector(entries.dereference()):
            return NOT_INITIALISED
        return f"timestamp set of {int(entries['size'])}"

    def parts(self):
        if self.value["entries"] != 0:
            for entry in elements_of(self.value["entries"].dereference()):
                yield "stage", unsigned_long_at(entry)
                yield "time", f"{double_at(entry + 8):.6f}"


def decimal_text(bits):
    """A decimal64 number in BID encoding."""
    sign = "-" if bits >> 63 else "+"
    if bits >> 58 & 31 == 31:
        return sign + "NaN"
    if bits >> 58 & 31 == 30:
        return sign + "Inf"
    if bits >> 61 & 3 == 3:
        exponent, coefficient = bits >> 51 & 0x3FF, bits & (1 << 51) - 1 | 1 << 53
    else:
        exponent, coefficient = bits >> 53 & 0x3FF, bits & (1 << 53) - 1
    return f"{sign}{coefficient if coefficient < 10 ** 16 else 0}E{exponent - 398:+d}"


def float_text(value):
    """Almost the same as in the event text: .25 and 100, but 1000000 instead of 1e+06."""
    sign, digits = ("-", repr(-value)) if value < 0 else ("", repr(value))
    return sign + digits.removesuffix(".0").removeprefix("0" if value else "")


class EventText:
    """The text of a writer, as from VN_EventWriter_toString, with at most MOST_SHOWN values."""

    BRACKETS = {6: "[]", 7: "{}", 8: "()", 10: "()"}

    def __init__(self, writer_type):
        self.writer_type = writer_type
        self.left = MOST_SHOWN

    def of_writer(self, writer, depth=0):
        kind = int(writer["kind"])
        if kind not in self.BRACKETS or writer["values"] == 0:
            return NOT_INITIALISED
        if depth > DEEPEST:
            return "..."
        name = text_at(writer["name"]) if kind in (8, 10) and writer["name"] != 0 else ""
        begin, end = self.BRACKETS[kind]
        return name + begin + ",".join(self.entries(writer, kind, depth)) + end

    def entries(self, writer, kind, depth):
        keys = list(self.of_vector(writer["keys"], depth)) if kind == 7 else []
        for index, text in enumerate(self.of_vector(writer["values"], depth)):
            key = (keys[index] if index < len(keys) else "") + ":" if kind == 7 else ""
            yield key + text

    def of_vector(self, vector, depth):
        if vector == 0:
            return
        for element in elements_of(vector.dereference()):
            if self.left == 0:
                yield "..."
                return
            self.left -= 1
            yield self.of_value(element, depth)

    def of_value(self, element, depth):
        """element: the address of a payload of one word and a 32-bit kind."""
        if element == 0:
            return NOT_INITIALISED
        kind = int(element.cast(gdb.lookup_type("unsigned int").pointer())[2])
        word = element.cast(self.writer_type.pointer().pointer()).dereference()
        bits = unsigned_long_at(element)
        if kind in (6, 7, 8):
            return self.of_writer(word.dereference(), depth + 1) if bits else NOT_INITIALISED
        if kind in (1, 9):
            text = text_at(word) if bits else ""
            return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"' if kind == 1 else text
        simple = {0: lambda: str(bits - (bits >> 63 << 64)), 2: lambda: f'"{chr(bits & 255)}"',
                  3: lambda: float_text(double_at(element)), 4: lambda: decimal_text(bits),
                  5: lambda: "true" if bits & 255 else "false"}
        return simple[kind]() if kind in simple else f"<kind {kind}>"


class EventWriterPrinter(Printer):
    def describe(self):
        return EventText(self.value.type.strip_typedefs().unqualified()).of_writer(self.value)


# Selected by the name of the type; the fields distinguish it from other types with that name.
PRINTERS = [
    ("Vector", "size capacity initialCapacity shrink data onRemove", VectorPrinter),
    ("HashMap", "count mask initialSize buckets entries entryFill", HashMapPrinter),
    ("CStringBuffer", "size capacity data", StringBufferPrinter),
    ("CByteBuffer", "size capacity data", ByteBufferPrinter),
    ("vn_qtsQueue", "head count maxSize capacity slots", QueuePrinter),
    ("VN_TimestampSet", "entries functions", TimestampSetPrinter),
    ("VN_EventWriter", "kind name keys values", EventWriterPrinter),
]


def with_fields(fields, printer):
    def make(value):
        found = {field.name for field in value.type.strip_typedefs().fields()}
        return printer(value) if found.issuperset(fields.split()) else None
    return make


def all_printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("libvncommon")
    for name, fields, printer in PRINTERS:
        collection.add_printer(name, f"^{name}$", with_fields(fields, printer))
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), all_printers(), replace=True)
