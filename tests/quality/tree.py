"""Lists the project's own files, and their commit."""
import pathlib
import subprocess

SOURCE = pathlib.Path(__file__).resolve().parents[2]
LIBRARY = ("platform", "containers", "text", "config", "logging", "events")


def tracked_files():
    """Returns the paths of all files that git tracks, and of new files that it does not ignore."""
    listed = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=SOURCE,
        check=True, stdout=subprocess.PIPE, text=True).stdout
    paths = sorted(set(listed.split("\0")) - {""})
    return [path for path in paths if (SOURCE / path).is_file()]


def code_files():
    return [path for path in tracked_files() if path.endswith((".c", ".cpp", ".h", ".hpp"))]


def commit():
    """The commit that is checked out, with + if the tree differs from it. The records that the
    checks write themselves do not count."""
    def git(*arguments):
        return subprocess.run(["git", *arguments], cwd=SOURCE, check=True, capture_output=True,
                              text=True).stdout.strip()
    changed = git("status", "--porcelain", "--", ".", ":!docs/mutation.*", ":!docs/proof.*")
    return git("rev-parse", "--short=10", "HEAD") + ("+" if changed else "")
