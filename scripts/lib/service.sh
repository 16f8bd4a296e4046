# shellcheck shell=bash
# The service in a Wine prefix: installed, started, looked at, removed. Every function says what it
# does and what came of it, and ends the script when that is not what should have come.
#
# The caller sets:
#   SERVICE_PREFIX   the prefix
#   SERVICE_EXE      the executable, as a Windows path in the prefix
#   SERVICE_SCMCTL   the tool that asks the service control manager, as a path on this machine

readonly SERVICE_NAME=LinkvaneService

# service_wine PROGRAM ARGS...: runs a Windows program in the prefix; Unix line ends.
service_wine() {
    LINKVANE_WINEPREFIX=$SERVICE_PREFIX "$LINKVANE_ROOT/scripts/run-wine" "$@" </dev/null | tr -d '\r'
}

# service_prefix_make: a prefix of the service's own, new each time.
service_prefix_make() {
    "$LINKVANE_ROOT/scripts/wine-prefix" fresh "$SERVICE_PREFIX"
    say "A new Wine prefix is up in ${SERVICE_PREFIX#"$LINKVANE_ROOT/"}."
}

service_prefix_end() { "$LINKVANE_ROOT/scripts/wine-prefix" end "$SERVICE_PREFIX"; }

# service_copy_in FILE: puts the executable where SERVICE_EXE says.
service_copy_in() {
    local target=${SERVICE_EXE#C:\\}
    target=$SERVICE_PREFIX/drive_c/${target//\\//}
    mkdir -p "$(dirname "$target")"
    cp "$1" "$target"
}

# service_says EXPECTED PROGRAM ARGS...: runs a program, shows what it prints, and compares the end
# of that.
service_says() {
    local expected=$1 printed
    shift
    printed=$(service_wine "$@") || die "failed: $*: $printed"
    while IFS= read -r line; do say "| $line"; done <<<"$printed"
    [[ $printed == *"$expected" ]] || die "expected: $expected"
}

service_install() { service_says "$SERVICE_NAME is installed." "$SERVICE_EXE" -install; }

service_remove() { service_says "$SERVICE_NAME is removed." "$SERVICE_EXE" -remove; }

# service_state: prints the state that the service control manager reports.
service_state() { service_wine "$SERVICE_SCMCTL" state "$SERVICE_NAME"; }

# service_reaches STATE MILLISECONDS: waits for a state and says how long it took.
service_reaches() {
    local answer
    answer=$(service_wine "$SERVICE_SCMCTL" wait "$SERVICE_NAME" "$1" "$2") || die "the service is $answer"
    say "state: $answer"
}

# service_start MILLISECONDS, service_stop MILLISECONDS: how long it may take to get there.
service_start() {
    service_wine "$SERVICE_SCMCTL" start "$SERVICE_NAME" || die "the service could not be started"
    service_reaches RUNNING "$1"
}

service_stop() {
    service_wine "$SERVICE_SCMCTL" stop "$SERVICE_NAME" || die "the service could not be stopped"
    service_reaches STOPPED "$1"
}

# service_log_path: where the log that the service writes lies on this machine.
service_log_path() {
    local logs=("$SERVICE_PREFIX"/drive_c/users/*/AppData/Roaming/orvkLog/"$SERVICE_NAME.log")
    [[ -f ${logs[0]} ]] || return 1
    echo "${logs[0]}"
}

# service_show_log: prints the log, with Unix line ends and without its byte-order mark.
service_show_log() {
    local log
    log=$(service_log_path) || die "the service wrote no log"
    sed -e '1s/^\xef\xbb\xbf//' -e 's/\r$//' -e 's/^/    | /' "$log"
}

# service_log_has TEXT: whether some line of the log contains it.
service_log_has() {
    local log
    log=$(service_log_path) && grep -qF -- "$1" "$log"
}
