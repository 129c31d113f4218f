#!/bin/sh
# Runs a Windows program under Wine in the project's own prefix, which is made on first use.
#   cmake/wine.sh PROGRAM.exe [ARGUMENT...]     cmake/wine.sh --start | --stop | --running
# --start makes the prefix ready and leaves Wine's server running, which is done by itself before a program, too; --stop
# ends the server; --running tells by its code whether there is one. WINEPREFIX chooses another prefix; it must be an
# absolute path.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
# With ORVEL_WINE_SYSTEM, in the Wine of the system below that directory, which sees the same paths.
if [ -n "${ORVEL_WINE_SYSTEM:-}" ]; then
    exec chroot "$ORVEL_WINE_SYSTEM" env -u ORVEL_WINE_SYSTEM sh -c 'cd "$0" && exec "$@"' "$PWD" "$root/cmake/wine.sh" "$@"
fi
export WINEPREFIX="${WINEPREFIX:-$root/build/wine-prefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
# No crash dialogs and no downloads; the stand-in for the Event Log must be found, never Wine's own stub.
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=;winedbg.exe=d;wevtapi=n}"
export LC_ALL="${ORVEL_LOCALE:-C.UTF-8}" # the tests name another
command -v wine >/dev/null || { echo "wine is not installed; run ./cmake/setup.sh" >&2; exit 1; }

# Wine's background processes inherit what the program that starts them holds, and would keep the caller's pipes open
# for ever. So they are started here, with nothing of the caller's, before any program.
start_server() (
    mkdir -p "$WINEPREFIX"
    exec 9>"$WINEPREFIX/.lock"
    flock 9
    # The persistent server says by its code whether it is new (0) or was running already (2).
    exec >/dev/null 2>&1 </dev/null
    if wineserver -p 9>&- || [ ! -e "$WINEPREFIX/.ready" ]; then
        # A prefix that was left half made is made anew; Wine itself would take it for finished.
        [ -e "$WINEPREFIX/.ready" ] || rm -f "$WINEPREFIX/.update-timestamp"
        wine wineboot 9>&- && touch "$WINEPREFIX/.ready"
    fi
)

case "${1:-}" in
--start)
    start_server || { echo "Wine cannot make its prefix in $WINEPREFIX; 'wine wineboot' there shows why" >&2; exit 1; }
    ;;
--running)
    [ -d "$WINEPREFIX" ] && wineserver -k0 >/dev/null 2>&1
    ;;
--stop)
    wineserver -k >/dev/null 2>&1 || exit 0
    timeout 60 wineserver -w || true
    ;;
*)
    start_server || { echo "Wine cannot make its prefix in $WINEPREFIX" >&2; exit 1; }
    exec wine "$@"
    ;;
esac
