"""docs/mutation.json: the selected mutations, and of each one that was run the newest verdict."""
import datetime
import json
import sys

from families import ROOT
from operators import digest

sys.path.append(str(ROOT / "tests/quality"))
from tree import commit  # noqa: E402

RESULTS = ROOT / "docs/mutation.json"


def read(path=RESULTS):
    if not path.is_file():
        return {"commit": "", "date": "", "mutations": []}
    return json.loads(path.read_text(encoding="utf-8"))


def load(path=RESULTS):
    """Id -> entry of the mutations that were run."""
    return {entry["id"]: entry for entry in read(path)["mutations"] if "verdict" in entry}


def save(mutations, results, path=RESULTS):
    """Verdicts of mutations that the sources have no longer are dropped."""
    entries = [{**results.get(mutation.id, {}), **describe(mutation)} for mutation in mutations]
    lines = ",\n".join(json.dumps(entry) for entry in entries)
    path.write_text(f'{{"commit": "{commit()}", "date": "{today()}", "mutations": [\n{lines}\n]}}\n',
                    encoding="utf-8")


def today():
    return datetime.date.today().isoformat()


def key_of(mutation, family, root=ROOT):
    """Changes with the source and with the family's tests."""
    parts = [(root / mutation.source).read_text(), mutation.id]
    for test in family.tests:
        parts += [path.read_text() for path in sorted((root / "tests").rglob(f"{test}.cpp"))]
    return digest(*parts)[:16]


def describe(mutation):
    return {"id": mutation.id, "family": mutation.family, "source": mutation.source,
            "operator": mutation.operator, "from": mutation.before.strip(),
            "to": mutation.after.strip()}


def result(mutation, key, verdict, by, stages):
    return {**describe(mutation), "verdict": verdict, "by": by, "stages": stages, "key": key,
            "commit": commit(), "date": today()}
