"""The small mistakes, and where a source has room for one."""
import collections
import hashlib
import pathlib
import re

Mutation = collections.namedtuple("Mutation", "id family source number operator before after")

COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
RETURNS = {"true": "false", "false": "true", "0": "1", "1": "0", "-1": "0"}
CALL = r"^ {4,}((?!return\b|va_end\b)[\w:]+(?:(?:\.|->)\w+)*\(.*\);)$"   # a whole statement
NO_CODE = re.compile(r"\s*(#|static_assert|template|using|asm|VN_ASSERT|\")")

# name, pattern (group 1 is replaced), replacement
OPERATORS = [
    ("comparison", r" (<|>|<=|>=|==|!=) ", lambda text: COMPARISONS[text]),
    ("off by one", r" [+-] (1)\b(?![.'])", lambda text: "0"),
    ("constant", r"(?<![\w.\[])(\d+)(?![\w.'\]])",
     lambda text: str(int(text) + 1) if int(text) > 1 else None),
    ("negation", r"(!)(?=[\w(])", lambda text: ""),
    ("and/or", r" (&&|\|\|)(?: |$)", lambda text: {"&&": "||", "||": "&&"}[text]),
    ("returned constant", r"\breturn (true|false|0|1|-1);", lambda text: RETURNS[text]),
    ("dropped unlock", rf"(?=.*[uU]nlock){CALL}", lambda text: ";"),
    ("dropped call", rf"(?!.*[uU]nlock){CALL}", lambda text: ";"),
    ("direction", r"(\+\+|--)(?=\w)|(?: )(\+=|-=) ",
     lambda text: {"++": "--", "--": "++", "+=": "-=", "-=": "+="}[text]),
]


def digest(*parts):
    return hashlib.sha256("\0".join(parts).encode()).hexdigest()


def masked(line):
    """The line without comment and with blanked literals. Columns stay the same."""
    line = re.sub(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])\'', lambda m: '"' * len(m[0]), line)
    return re.sub(r"//.*$", "", line)


def code_lines(text):
    """(number, line, masked line, whether it continues a statement) of each line with code."""
    previous = ""
    for number, line in enumerate(text.splitlines(), 1):
        code = masked(line)
        continued, previous = not re.search(r"(^|[;{}:])\s*$", previous), code
        if not NO_CODE.match(code) and not code.endswith("\\"):
            yield number, line, code, continued


def changes(line, code, continued):
    """(operator, position, changed line) of each mistake that a line has room for."""
    for operator, pattern, replacement in OPERATORS:
        if continued and operator.startswith("dropped"):
            continue
        for match in re.finditer(pattern, code):
            start, end = match.span(1 if match[1] is not None else 2)
            new = replacement(code[start:end])
            if new is not None:
                yield operator, start, line[:start] + new + line[end:]


def candidates(family, source, text):
    """Every mutation of a source. An id depends on the line's text only, not on its number."""
    seen = collections.Counter()
    for number, line, code, continued in code_lines(text):
        for operator, start, after in changes(line, code, continued):
            key = (source, operator, line.strip(), str(start - len(line)))
            seen[key] += 1
            name = f"{pathlib.Path(source).stem}-{digest(*key, str(seen[key]))[:6]}"
            yield Mutation(name, family, source, number, operator, line, after)


def select(pool, count):
    """A fixed selection, spread over sources and operators: at least one for each source."""
    pool = sorted(pool, key=lambda mutation: digest(mutation.id))
    count = max(count, len({mutation.source for mutation in pool})) if count else 0
    chosen, used = [], collections.Counter()
    while pool and len(chosen) < count:
        best = min(pool, key=lambda m: (used[m.source], used[m.operator], used[m.number]))
        pool.remove(best)
        chosen.append(best)
        used.update([best.source, best.operator, best.number])
    return chosen
