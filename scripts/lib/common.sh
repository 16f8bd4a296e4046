# shellcheck shell=bash
# What every script here starts from: strict mode, the project's folders, one way to speak.
set -euo pipefail

LINKVANE_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
export LINKVANE_ROOT

# A heading for a step that the reader will wait for.
step() { printf '\n==> %s\n' "$*"; }

# A line of detail below a heading.
say() { printf '    %s\n' "$*"; }

# Ends the script with a reason.
die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}
