#!/usr/bin/env bash
# The build's private Wine prefix.
#   wine.sh run PREFIX PROGRAM [ARGS...]  run a Windows program in PREFIX (the CTest emulator)
#   wine.sh start PREFIX                  create PREFIX on first use and start its persistent wineserver
#   wine.sh stop PREFIX                   shut the prefix's wineserver (and every process in it) down
#
# Wine's helper services (services.exe, winedevice.exe, ...) inherit the standard handles of the
# process that happens to start them. If that is a test run by ctest, ctest waits on its pipes
# until they exit, which can take minutes. So the server is always started here, with its output
# going nowhere, and the services are brought up by a wineboot whose output goes nowhere too.
set -euo pipefail

WINE64=${WINE64:-/usr/lib/wine/wine64}
WINESERVER=${WINESERVER:-/usr/lib/wine/wineserver}

setup_environment() {
    export WINEPREFIX=$1
    export WINEDEBUG=-all
    # No Mono or Gecko: nothing here needs them, and their installers would ask for a display.
    export WINEDLLOVERRIDES="mscoree,mshtml=${WINEDLLOVERRIDES:+;$WINEDLLOVERRIDES}"
    export WINEDLLOVERRIDES=${WINEDLLOVERRIDES%;}
}

# Runs one step of the prefix's creation with its output kept in PREFIX.log, so that a failure
# can say which step failed and what Wine printed.
prefix_step() {
    echo "== $*" >>"$WINEPREFIX.log"
    "$@" </dev/null >>"$WINEPREFIX.log" 2>&1
}

disable_crash_debugger() {
    # A crashing program must just end: no debugger, no dialog.
    prefix_step "$WINE64" reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' \
        /v Debugger /t REG_SZ /d '' /f &&
        prefix_step "$WINE64" reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' \
            /v Auto /t REG_SZ /d 1 /f
}

create_prefix() {
    mkdir -p "$WINEPREFIX"
    : >"$WINEPREFIX.log"
    prefix_step "$WINE64" wineboot -i || true
    # On a slow or busy machine the first registry write can meet a prefix that is still being
    # set up: wait for Wine to settle and try once more before giving up.
    if ! disable_crash_debugger; then
        prefix_step "$WINESERVER" -w || true
        prefix_step "$WINE64" wineboot -u || true
        if ! disable_crash_debugger; then
            echo "wine.sh: the prefix $WINEPREFIX could not be set up; what Wine printed:" >&2
            cat "$WINEPREFIX.log" >&2
            return 1
        fi
    fi
    prefix_step "$WINESERVER" -w || true
    touch "$WINEPREFIX/.prefix-ready"
}

start_server() {
    mkdir -p "$WINEPREFIX"
    exec 9>"$WINEPREFIX.lock"
    flock 9
    if [ ! -f "$WINEPREFIX/.prefix-ready" ]; then
        create_prefix || exit 1
    fi
    # Exit status 2 means a server for this prefix is running already.
    if "$WINESERVER" -p </dev/null >/dev/null 2>&1; then
        "$WINE64" wineboot -u </dev/null >/dev/null 2>&1 || true
    fi
    flock -u 9
}

command=${1:?usage: wine.sh run|start|stop PREFIX ...}
prefix=${2:?usage: wine.sh run|start|stop PREFIX ...}
shift 2
setup_environment "$prefix"
case $command in
    run)
        start_server
        started=$(date +%s.%N)
        status=0
        "$WINE64" "$@" || status=$?
        # A program that dies before it prints anything leaves no trace in a test's output: say
        # how it ended and how soon.
        if [ "$status" -ne 0 ]; then
            echo "wine.sh: ${1##*/} exited with status $status after" \
                "$(awk -v s="$started" -v e="$(date +%s.%N)" 'BEGIN { printf "%.2f", e - s }') s" >&2
        fi
        exit "$status"
        ;;
    start) start_server ;;
    stop) [ -d "$WINEPREFIX" ] && "$WINESERVER" -k 2>/dev/null || true ;;
    *)
        echo "wine.sh: unknown command '$command'" >&2
        exit 2
        ;;
esac
