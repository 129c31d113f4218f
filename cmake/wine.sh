#!/bin/sh
# Runs a Windows program under Wine, in the project's prefix, which is created on first use.
#   cmake/wine.sh PROGRAM.exe [ARGUMENT...]     cmake/wine.sh --start | --stop | --running
# --start creates the prefix and starts Wine's server, as does running a program; --stop ends the server; --running returns
# 0 if it runs. WINEPREFIX selects another prefix; it must be an absolute path.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
# ORVEL_WINE_SYSTEM is the root of another system whose Wine is used; it must have the same paths.
if [ -n "${ORVEL_WINE_SYSTEM:-}" ]; then
    exec chroot "$ORVEL_WINE_SYSTEM" env -u ORVEL_WINE_SYSTEM sh -c 'cd "$0" && exec "$@"' "$PWD" "$root/cmake/wine.sh" "$@"
fi
export WINEPREFIX="${WINEPREFIX:-$root/build/wine-prefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
# No crash dialogs and no downloads; wevtapi=n loads the replay log instead of Wine's stub.
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=;winedbg.exe=d;wevtapi=n}"
export LC_ALL="${ORVEL_LOCALE:-C.UTF-8}" # some tests set another one
command -v wine >/dev/null || { echo "wine is not installed; run cmake/setup.sh" >&2; exit 1; }

# Starts Wine's background processes before any program. Otherwise they would inherit the caller's pipes and keep them
# open.
start_server() (
    mkdir -p "$WINEPREFIX"
    exec 9>"$WINEPREFIX/.lock"
    flock 9
    # wineserver -p returns 0 if it started and 2 if it was already running.
    exec >/dev/null 2>&1 </dev/null
    if wineserver -p 9>&- || [ ! -e "$WINEPREFIX/.ready" ]; then
        # Without its timestamp, Wine completes a prefix whose creation was interrupted.
        [ -e "$WINEPREFIX/.ready" ] || rm -f "$WINEPREFIX/.update-timestamp"
        wine wineboot 9>&- && touch "$WINEPREFIX/.ready"
    fi
)

fail_prefix() {
    echo "Wine cannot create its prefix in $WINEPREFIX; WINEPREFIX=$WINEPREFIX wine wineboot shows why" >&2
    exit 1
}

case "${1:-}" in
--start)
    start_server || fail_prefix
    ;;
--running)
    [ -d "$WINEPREFIX" ] && wineserver -k0 >/dev/null 2>&1
    ;;
--stop)
    wineserver -k >/dev/null 2>&1 || exit 0
    timeout 60 wineserver -w || true
    ;;
*)
    start_server || fail_prefix
    exec wine "$@"
    ;;
esac
