#!/bin/sh
# Runs a Windows program under Wine in the project's own prefix, which is made on first use.
#   cmake/wine.sh PROGRAM.exe [ARGUMENT...]     cmake/wine.sh --start     cmake/wine.sh --stop
# WINEPREFIX chooses another prefix; it must be an absolute path.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX="${WINEPREFIX:-$root/build/wine-prefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
# No crash dialogs and no downloads; the stand-in for the Event Log must be found, never Wine's own stub.
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=;winedbg.exe=d;wevtapi=n}"
export LC_ALL=C.UTF-8
command -v wine >/dev/null || { echo "wine is not installed; run ./cmake/setup.sh" >&2; exit 1; }

# Wine's background processes inherit the caller's pipes and would keep them open for ever: nothing of the caller's
# is handed to them, and the persistent server is started before the first program.
start_server() {
    mkdir -p "$WINEPREFIX"
    (
        exec 9>"$WINEPREFIX/.lock"
        flock 9
        [ -e "$WINEPREFIX/.ready" ] && [ "${1:-}" != again ] && exit 0
        exec >/dev/null 2>&1 </dev/null
        wineserver -p 9>&- || true
        wine wineboot 9>&-
        touch "$WINEPREFIX/.ready"
    )
}

case "${1:-}" in
--start) start_server again ;;
--stop) wineserver -k >/dev/null 2>&1 || true ;;
*)
    [ -e "$WINEPREFIX/.ready" ] || start_server
    exec wine "$@"
    ;;
esac
