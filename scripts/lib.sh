# shellcheck shell=bash
# What the scripts share; each sources it first. It sets strict mode, goes to the top of the source
# tree, and answers --help with the comment at the head of the script.
set -euo pipefail
program=${0##*/}
caller=$PWD   # where the script was started: relative file names refer to it
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# fail MESSAGE [STATUS]: the message says what failed, then what to do.
fail() {
    echo "$program: $1" >&2
    exit "${2:-1}"
}

usage() {
    sed -n '1d; /^#/!q; s/^# \{0,1\}//p' "scripts/$program"
}

# misused MESSAGE: for arguments that the script does not take.
misused() {
    fail "$1; see scripts/$program --help" 2
}

unknown() {
    misused "unknown argument '$1'"
}

# need TOOL...
need() {
    local tool
    for tool in "$@"; do
        command -v "$tool" > /dev/null || fail "$tool is missing; run scripts/setup"
    done
}

# step TEXT: shows how far the script is.
step() {
    echo "== $1"
}

# in_range TEXT FIRST LAST: whether the text is a number in that range.
in_range() {
    [[ $1 =~ ^[0-9]{1,10}$ ]] && ((10#$1 >= $2 && 10#$1 <= $3))
}

# from_caller FILE: the absolute name of a file that the caller named.
from_caller() {
    case $1 in /*) echo "$1" ;; *) echo "$caller/$1" ;; esac
}

# configure FOLDER OPTION...: runs CMake with its output in FOLDER.log.
configure() {
    local folder=$1
    shift
    step "configure $folder"
    mkdir -p "$folder"
    cmake -S . -B "$folder" -G Ninja "$@" > "$folder.log" 2>&1 || {
        tail -n 30 "$folder.log" >&2
        fail "configure failed; see $folder.log, and run scripts/setup if a tool is missing"
    }
}

# configure_preset NAME [OPTION...]: the build of a preset, in build/NAME.
configure_preset() {
    configure "build/$1" --preset "$@"
}

# build FOLDER [TARGET...]
build() {
    local folder=$1
    shift
    step "build $folder"
    cmake --build "$folder" -j "$(nproc)" ${1:+--target "$@"} ||
        fail "build failed; see the compiler errors above"
}

# run_suite PRESET [OPTION...]: its tests.
run_suite() {
    step "test build/$1"
    ctest --preset "$1" -j "$(nproc)" "${@:2}" ||
        fail "tests failed; repeat one with: ctest --preset $1 -R NAME"
}

for argument in "$@"; do
    case "$argument" in --help|-h) usage; exit 0 ;; esac
done
unset argument
