#!/bin/bash
# The console's verify command: without and with an installed provider, with the replay log and, as far as Wine goes, with
# the live Event Log.
#   verify.sh BUILD-FOLDER
set -euo pipefail
build=$(realpath "$1")
wine=$(cd "$(dirname "$0")/../.." && pwd)/cmake/wine.sh
export WINEDLLOVERRIDES='mscoree,mshtml=;winedbg.exe=d'
module=$(printf 'Z:%s' "$build/bin/Orvel_eventlog.dll" | tr / '\\')
trap '"$wine" regsvr32 /s /u "$module" >/dev/null 2>&1 || true' EXIT
failed=0
# expect CODE TEXT ARGUMENT...: the exit code, and texts that must be printed in this order
expect() {
    local code=$1 texts=$2 actual=0 output
    shift 2
    output=$("$wine" "$build/bin/eventlog_console.exe" verify "$@" 2>&1) || actual=$?
    if [ $actual -ne "$code" ] || ! grep -qE -- "$texts" <<<"$(tr '\r\n' '  ' <<<"$output")"; then
        printf 'expected code %s and %s, got %s:\n%s\n' "$code" "$texts" $actual "$output"
        failed=1
    fi
}

# Wine does not merge the user's classes into HKCR, so the ProgID is not found.
expect 13 'registered the module.*nothing is left.*is not registered' --replay
! "$wine" reg query 'HKCU\Software\Classes\OrvelAgent.EventLogProvider' >/dev/null 2>&1 ||
    { echo "verify left its registration"; failed=1; }

"$wine" regsvr32 /s "$module"
expect 0 'is installed.*created by its ProgID.*replayed.*Crash Time: .*Host Name: .*value matches the event.*released everything.*provider works' --replay
expect 6 'created by its ProgID.*no live Event Log'
"$wine" reg query 'HKLM\Software\Classes\OrvelAgent.EventLogProvider' >/dev/null ||
    { echo "verify removed the installed provider"; failed=1; }
exit $failed
