"""Lists the project's own files."""
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
