"""The copy of the working tree that is mutated. The tree itself is never changed."""
import contextlib
import shutil
import subprocess

from families import ROOT

WORK = ROOT / "build/mutate"
TREE = WORK / "tree"


def listed():
    """Tracked and new files, uncommitted changes included."""
    names = subprocess.run(["git", "ls-files", "-coz", "--exclude-standard"], cwd=ROOT, check=True,
                           capture_output=True, text=True).stdout.split("\0")
    return {name for name in names if name and (ROOT / name).is_file()}


def refresh():
    """Copies only files that changed, so that builds stay incremental, and removes the others."""
    names = listed()
    for name in names:
        source, target = ROOT / name, TREE / name
        if not (target.is_file() and target.read_bytes() == source.read_bytes()):
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, target)
            shutil.copymode(source, target)
    for path in [path for path in TREE.rglob("*") if path.is_file()]:
        if path.relative_to(TREE).as_posix() not in names:
            path.unlink()


@contextlib.contextmanager
def mutated(mutation):
    """The copy has the mutation inside the with statement."""
    target = TREE / mutation.source
    original = target.read_text()
    lines = original.split("\n")
    if lines[mutation.number - 1] != mutation.before:
        raise RuntimeError(f"{mutation.source}:{mutation.number} is not what was listed")
    lines[mutation.number - 1] = mutation.after
    target.write_text("\n".join(lines))
    try:
        yield
    finally:
        target.write_text(original)
