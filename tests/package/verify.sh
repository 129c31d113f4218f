#!/bin/bash
# The console's verify command: without and with an installed provider, with the replay log and, as far as Wine goes, with
# the live Event Log.
#   verify.sh BUILD-FOLDER
set -euo pipefail
# shellcheck source=tests/support/checks.sh
. "$(dirname "$0")/../support/checks.sh"
build=$(realpath "$1")
export WINEDLLOVERRIDES='mscoree,mshtml=;winedbg.exe=d'
module=$(windows_path "$build/bin/Orvel_eventlog.dll")
trap '"$wine" regsvr32 /s /u "$module" >/dev/null 2>&1 || true' EXIT

# verifies CODE TEXTS ARGUMENT...: succeeds with this exit code and if these texts are printed in this order
verifies() {
    local code=$1 texts=$2 actual=0 output
    shift 2
    output=$("$wine" "$build/bin/eventlog_console.exe" verify "$@" 2>&1) || actual=$?
    if [ $actual -ne "$code" ] || ! grep -qE -- "$texts" <<<"$(tr '\r\n' '  ' <<<"$output")"; then
        printf 'expected code %s and %s, got %s:\n%s\n' "$code" "$texts" $actual "$output"
        return 1
    fi
}

# Wine does not merge the user's classes into HKCR, so the ProgID is not found.
expect "verify without an installed provider" verifies 13 'registered the module.*nothing is left.*is not registered' \
    --replay
expect "  leaves nothing registered" eval '! has_class HKCU'
"$wine" regsvr32 /s "$module"
expect "verify of the installed provider" verifies 0 \
    'is installed.*created by its ProgID.*replayed.*Crash Time: .*Host Name: .*value matches the event.*released everything.*provider works' \
    --replay
expect "verify with the live Event Log" verifies 6 'created by its ProgID.*no live Event Log'
expect "  leaves the installed provider" has_class HKLM
exit $failed
