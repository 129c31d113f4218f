#!/bin/sh
# Plays one golden case through the console and the real module:
#   tests/golden/run.sh CONSOLE.exe CASE          e.g. build/x64/bin/eventlog_console.exe tests/golden/texts
# CASE.export.xml is played with CASE.config.xml; standard output must be CASE.expected.jsonl, and, where there is a
# CASE.expected.log, standard error must be that. @HOST@ stands for the computer's name in both. CASE.options, where there
# is one, holds further options of the console.
set -eu
wine=$(cd "$(dirname "$0")/../../cmake" && pwd)/wine.sh
console=$(realpath "$1")
cd "$(dirname "$2")"
case=$(basename "$2")
actual=$(mktemp -d)
# Removes what exports with actions leave behind: the layering agent's registry key and folder.
clean() {
    ! grep -q '<replay:registry' "$case.export.xml" ||
        "$wine" cmd /c 'reg delete HKLM\System\CurrentControlSet\Services\korvex /f & rd /s /q C:\Korvex' \
            >"$actual/clean" 2>&1 || true
}
trap 'clean; rm -rf "$actual"' EXIT
clean

# The name in the registry, independent of the module.
host=$("$wine" reg query 'HKLM\System\CurrentControlSet\Control\ComputerName\ActiveComputerName' /v ComputerName |
    tr -d '\r' | sed -n 's/.*REG_SZ *//p')
options=
[ ! -e "$case.options" ] || options=$(cat "$case.options")
code=0
# shellcheck disable=SC2086 # the options are words
"$wine" "$console" run $options --config "$case.config.xml" --replay "$case.export.xml" \
    --module "$(dirname "$console")/Orvel_eventlog.dll" --format jsonl --log info \
    >"$actual/jsonl" 2>"$actual/log" || code=$?

failed=0
for kind in jsonl log; do
    expected=$case.expected.$kind
    [ "$kind" = jsonl ] || [ -e "$expected" ] || continue
    sed "s/@HOST@/$host/g" "$expected" | diff -u --label "$expected" --label actual - "$actual/$kind" || failed=1
done
if [ "$code" -ne 0 ] || [ "$failed" -ne 0 ]; then
    echo "golden case $case failed, exit code $code; standard error was:"
    cat "$actual/log"
    exit 1
fi
