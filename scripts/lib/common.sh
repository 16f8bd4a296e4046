# shellcheck shell=bash
# What every script here starts from: strict mode, the project's folders, one way to speak.
set -euo pipefail

LINKVANE_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
export LINKVANE_ROOT

# A heading for a step that the reader will wait for.
step() { printf '\n==> %s\n' "$*"; }

# A line of detail below a heading.
say() { printf '    %s\n' "$*"; }

# What the comment at the script's top says, and the end, where the first argument asks for it.
help_when_asked() {
    [[ ${1:-} == -h || ${1:-} == --help ]] || return 0
    sed -n '2,/^[^#]/{/shellcheck/d;s/^# \{0,1\}//p}' "$0"
    exit 0
}

# Ends the script with a reason.
die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# build_preset PRESET [TARGET...]: configures what was never configured (the build files renew
# themselves afterwards) and builds.
build_preset() {
    local preset=$1
    shift
    cd "$LINKVANE_ROOT" || return
    if [[ ! -f build/$preset/build.ninja ]]; then
        step "Configure ($preset)"
        cmake --preset "$preset" >/dev/null || return
        say "Build files are in build/$preset."
    fi
    step "Build ($preset)"
    cmake --build --preset "$preset" ${1+--target "$@"}
}

# run_test_program PRESET PROGRAM ARGUMENT...: sets up, builds and becomes a program of tests/. Files among the
# arguments are the caller's.
run_test_program() {
    local preset=$1 program=$2 caller_folder=$PWD
    "$LINKVANE_ROOT/scripts/setup"
    build_preset "$preset" "$(basename "$program")"
    step "$(basename "$program")"
    cd "$caller_folder"
    exec "$LINKVANE_ROOT/scripts/run-wine" "$LINKVANE_ROOT/build/$preset/tests/$program.exe" "${@:3}"
}
