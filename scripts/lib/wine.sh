# shellcheck shell=bash
# Wine prefixes for tests and demonstrations.
#
# A prefix is made once (the template) and copied for every user after that, because a copy is
# several times faster than a new one. A pool of copies serves tests that run at the same time: each
# test takes one that nobody else uses, marked by a file lock. The server of a prefix stays alive
# between tests, so that a test starts in milliseconds.
#
# Wine's own programs are called directly: the wrappers that distributions install in the path
# change settings (such as how long a server lives).

LINKVANE_WINE_HOME=${LINKVANE_WINE_HOME:-$LINKVANE_ROOT/build/wine}
WINE_LIB=${LINKVANE_WINE_LIB:-/usr/lib/wine}
WINE_LOADER=$WINE_LIB/wine64
WINE_SERVER=$WINE_LIB/wineserver64

# Making or booting a prefix takes seconds on an idle machine; a loaded one gets much longer before
# the prefix is called broken.
readonly WINE_BOOT_TIMEOUT=180
readonly WINE_POOL_LIMIT=64

# How a program is started. The kernel chooses at random where the loader's heap begins: once in some
# thousand starts on the page that Wine must have for the data shared by all processes, and Wine gives
# up with status 1 and no word. Everything that the program starts inherits the switch. (Where it is
# refused, as in some containers, programs start without it.)
WINE_START=("$WINE_LOADER")
if setarch --addr-no-randomize true 2>/dev/null; then
    WINE_START=(setarch --addr-no-randomize "$WINE_LOADER")
fi
readonly WINE_START

# The environment of every Wine process. Crash dialogues, .NET and HTML are switched off: a crash
# must end the process with its exit code at once, and nothing here needs the other two.
wine_environment() {
    export WINEDEBUG=${LINKVANE_WINEDEBUG:--all}
    export WINEDLLOVERRIDES='winedbg.exe,explorer.exe,winemenubuilder.exe,mscoree,mshtml=d'
    export WINEARCH=win64 WINELOADER=$WINE_LOADER WINESERVER=$WINE_SERVER
    # The server is found through this folder: another value would be another server.
    export TMPDIR=/tmp
    export LC_ALL=C.UTF-8
    # The profile folder is named after it, whoever calls. (\u is the shell's own user name.)
    local user='\u'
    export USER=${user@P}
    unset DISPLAY WAYLAND_DISPLAY
}

# wine_quiet PREFIX PROGRAM ARGS...: the same, for a process that may start others which stay:
# those inherit its input and output, and whoever reads from a pipe would wait for them. They also
# inherit its environment, which therefore holds only what they need, and no file locks of ours.
wine_quiet() {
    local prefix=$1
    shift
    # Descriptors 7 to 9 are this library's locks.
    timeout --foreground "$WINE_BOOT_TIMEOUT" env -i \
        HOME="$LINKVANE_WINE_HOME/home" USER="$USER" PATH=/usr/bin:/bin \
        TMPDIR="$TMPDIR" LC_ALL="$LC_ALL" WINEPREFIX="$prefix" WINEDEBUG="$WINEDEBUG" \
        WINEDLLOVERRIDES="$WINEDLLOVERRIDES" WINEARCH="$WINEARCH" \
        WINELOADER="$WINELOADER" WINESERVER="$WINESERVER" \
        "${WINE_START[@]}" "$@" </dev/null >/dev/null 2>&1 7>&- 8>&- 9>&-
}

# The time at which a process started, from the kernel; a failure when it is gone. With it a process
# number that was given out again is not taken for the old process. A dead process that nobody has
# waited for counts as gone.
process_start_time() {
    local stat fields
    { read -r stat <"/proc/$1/stat"; } 2>/dev/null || return 1
    read -ra fields <<<"${stat##*) }"
    [[ ${fields[0]} != Z ]] || return 1
    PROCESS_START_TIME=${fields[19]}
}

# wine_server_alive PREFIX: whether the server that wine_boot started there still runs.
wine_server_alive() {
    local pid started
    { read -r pid started <"$1.server"; } 2>/dev/null || return 1
    process_start_time "$pid" && [[ $PROCESS_START_TIME == "$started" ]]
}

# wine_stop PREFIX: ends every process of the prefix, its server included.
wine_stop() {
    rm -f "$1.server"
    [[ -d $1 ]] || return 0
    WINEPREFIX=$1 "$WINE_SERVER" -k >/dev/null 2>&1 7>&- 8>&- 9>&- || true
    WINEPREFIX=$1 timeout 30 "$WINE_SERVER" -w >/dev/null 2>&1 7>&- 8>&- 9>&- || true
}

# wine_boot PREFIX: starts a server that stays, and with it the prefix's own services.
wine_boot() {
    local prefix=$1 pid
    wine_stop "$prefix"
    WINEPREFIX=$prefix setsid "$WINE_SERVER" --foreground --persistent \
        </dev/null >/dev/null 2>&1 7>&- 8>&- 9>&- &
    pid=$!
    wine_first_program "$prefix" || return 1
    process_start_time "$pid" || return 1
    echo "$pid $PROCESS_START_TIME" >"$prefix.server"
}

# The first program of a prefix; one that comes while the server is not listening yet may give up.
wine_first_program() {
    local attempt
    for attempt in {1..5}; do
        wine_quiet "$1" cmd.exe /c exit && return 0
        sleep 0.5
    done
    return 1
}

# wine_make_template: makes the prefix that all others are copied from, unless it is there.
wine_make_template() {
    local template=$LINKVANE_WINE_HOME/template wanted
    wanted="$(dpkg-query -W -f '${Version}' wine64 2>/dev/null || true) layout 1"
    # Others wait here for the one that makes it.
    exec 8>"$LINKVANE_WINE_HOME/template.lock"
    flock 8
    if [[ ! -f $template.ready || $(<"$template.ready") != "$wanted" ]]; then
        wine_stop "$template"
        rm -f "$template.ready"
        wine_remove "$template"
        mkdir -p "$template" "$LINKVANE_WINE_HOME/home"
        wine_quiet "$template" wineboot.exe --init || return 1
        # Otherwise the system calls itself 6.1.
        wine_quiet "$template" winecfg.exe -v win10 || return 1
        # Only a prefix at rest has all of its registry on disk.
        wine_settle "$template" || return 1
        echo "$wanted" >"$template.ready"
    fi
    exec 8>&-
}

# wine_settle PREFIX: waits until everything in it has ended by itself.
wine_settle() {
    WINEPREFIX=$1 timeout "$WINE_BOOT_TIMEOUT" "$WINE_SERVER" -w >/dev/null 2>&1 7>&- 8>&- 9>&-
}

# wine_remove PREFIX: deletes what is there. A process that is just ending may still write a last
# file into a folder while that is being deleted.
wine_remove() {
    local attempt
    for attempt in {1..50}; do
        rm -rf "$1" 2>/dev/null && return 0
        sleep 0.2
    done
    rm -rf "$1"
}

# wine_make_prefix PREFIX: a fresh copy of the template in place of whatever is there.
wine_make_prefix() {
    local prefix=$1 template=$LINKVANE_WINE_HOME/template
    wine_make_template || return 1
    wine_stop "$prefix"
    wine_remove "$prefix" || return 1
    rm -rf "$prefix.new" && mkdir -p "$prefix.new/drive_c" || return 1
    # Windows' own files, most of a prefix, are never written to: links cost no space and no time.
    cp -al "$template/drive_c/windows" "$prefix.new/drive_c/" || return 1
    find "$template/drive_c" -mindepth 1 -maxdepth 1 ! -name windows \
        -exec cp -a -t "$prefix.new/drive_c" {} + || return 1
    # Everything else but the note of where the template's server had its socket.
    find "$template" -mindepth 1 -maxdepth 1 ! -name drive_c ! -name wineserver \
        -exec cp -a -t "$prefix.new" {} + || return 1
    # Renamed only when whole, so that an interrupted copy is never taken for a prefix.
    mv "$prefix.new" "$prefix"
}

# wine_ready PREFIX: makes and boots the prefix where that is still to do. A prefix that does not
# boot is made anew once: the first program, when it comes before the server listens, brings up
# another one. The caller holds the prefix's lock.
wine_ready() {
    local prefix=$1
    [[ ! -d $prefix ]] || ! wine_server_alive "$prefix" || return 0
    { [[ -d $prefix ]] || wine_make_prefix "$prefix"; } && wine_boot "$prefix" && return 0
    echo "Wine prefix $prefix does not boot: making it anew" >&2
    wine_make_prefix "$prefix" && wine_boot "$prefix"
}

# wine_lock PREFIX [FLOCK-OPTION]: takes the prefix on descriptor 9 until the script ends or
# wine_unlock.
wine_lock() {
    local prefix=$1
    shift
    [[ -d ${prefix%/*} ]] || mkdir -p "${prefix%/*}"
    exec 9>"$prefix.lock"
    flock "$@" 9
}

wine_unlock() { exec 9>&-; }

# wine_unused PREFIX: whether no notebook or test has marked it as its own (notebook/runner/prefix.py).
wine_unused() { [[ ! -f $1.use ]] || flock --nonblock "$1.use" true; }

# wine_take_free: locks a prefix of the pool that nobody uses; its path is left in WINE_TAKEN.
wine_take_free() {
    local number
    for ((number = 0; number < WINE_POOL_LIMIT; number++)); do
        WINE_TAKEN=$LINKVANE_WINE_HOME/pool-$number
        wine_lock "$WINE_TAKEN" --nonblock && return 0
    done
    wine_unlock
    return 1
}

wine_require() {
    [[ -x $WINE_LOADER && -x $WINE_SERVER ]] || die "Wine is not installed in $WINE_LIB (run scripts/setup)"
    [[ -d $LINKVANE_WINE_HOME ]] || mkdir -p "$LINKVANE_WINE_HOME"
    wine_environment
}
