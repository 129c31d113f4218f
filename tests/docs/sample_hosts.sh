#!/bin/sh
# Checks that each sample host writes the same values as the console, one per line.
#   sample_hosts.sh BUILD-FOLDER
set -eu
# shellcheck source=tests/support/checks.sh
. "$(dirname "$0")/../support/checks.sh"
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "$1")
work=$(mktemp -d)
module=$(windows_path "$work/Orvel_eventlog.dll")
trap '"$wine" regsvr32 /s /u "$module" || true; rm -rf "$work"' EXIT
cp "$build/bin/Orvel_eventlog.dll" "$build/bin/replay/wevtapi.dll" "$build/samples/eventlog_host.exe" "$work"
(cd "$here/../../samples" && cp hosts/eventlog_host.js application-error.config.xml application-error.export.xml "$work")
cd "$work"
sed 's/<query>/<other>/; s/<.query>/<\/other>/' application-error.config.xml >no-query.xml

# writes CODE FILE PROGRAM...: succeeds with this exit code and if the program writes the file's text
writes() {
    code=$1 expected=$2
    shift 2
    actual=0
    ORVEL_REPLAY=application-error.export.xml "$wine" "$@" >output 2>&1 || actual=$?
    tr -d '\r' <output | diff -u --label expected --label actual "$expected" - && [ "$actual" -eq "$code" ]
}
console=$build/bin/eventlog_console.exe
"$wine" "$console" run --format jsonl --module "$module" --config application-error.config.xml \
    --replay application-error.export.xml >values.jsonl
sed -E 's/.*"key":"([^"]*)","instance":"([^"]*)".*"value":"(.*)"\}$/\1 [\2] = \3/; s/\\(.)/\1/g' values.jsonl >values
expect "the console writes three values" [ "$(wc -l <values)" -eq 3 ]
{ echo 'eventlog|eventlog_appcrash is accepted' && cat values; } >script
"$wine" regsvr32 /s "$module"
expect "the C++ host writes them too" writes 0 values eventlog_host.exe application-error.config.xml 2
expect "the script writes them too" writes 0 script cscript //nologo eventlog_host.js "$(windows_path "$console")" \
    application-error.config.xml --replay application-error.export.xml
echo 'failed: eventlog|eventlog_appcrash is refused with 0x80070490' >refused
expect "the script reports a configuration without a query" writes 1 refused cscript //nologo eventlog_host.js none.exe no-query.xml
exit $failed
