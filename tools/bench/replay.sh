#!/bin/bash
# Replays large exports, generated from the sample's three events, and prints a line per case as bench.exe does:
#   tools/bench/replay.sh [--json] [--case NAME]
# The exit code is 1 if a case exceeds its bound three times in a row.
# shellcheck disable=SC2317 # case_of calls functions by their names
set -euo pipefail
cd "$(dirname "$0")/../.."
bin=$PWD/build/x64/bin
sample=$PWD/samples/application-error
json=
wanted=
while [ $# -gt 0 ]; do
    case "$1" in
    --json) json=1 ;;
    --case) wanted=$2 && shift ;;
    esac
    shift
done
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# The sample's events 10,000 and 40,000 times, in a root element.
sed 's/<\/*Events>//g' "$sample.export.xml" >"$folder/10"
for _ in 1 2 3 4; do
    for _ in 1 2 3 4 5 6 7 8 9 10; do cat "$folder/10"; done >"$folder/next"
    mv "$folder/next" "$folder/10"
done
{ echo '<Events>' && cat "$folder/10" && echo '</Events>'; } >"$folder/export"
{ echo '<Events>' && cat "$folder"/{10,10,10,10} && echo '</Events>'; } >"$folder/larger"
rm "$folder/10"
sed 's/EventID=1000/EventID=1/' "$sample.config.xml" >"$folder/none"
size=$(wc -c <"$folder/export")

# elapsed COMMAND...: prints the milliseconds that the command takes
elapsed() {
    local start
    start=$(date +%s%3N)
    ("$@") >"$folder/output" 2>"$folder/log" || { cat "$folder/log" >&2; exit 3; }
    echo $(($(date +%s%3N) - start))
}
# replay CONFIG EXPORT: replaces this shell by the console
replay() {
    exec cmake/wine.sh "$bin/eventlog_console.exe" run --config "$1" --replay "$folder/$2" --module "$bin/Orvel_eventlog.dll" \
        --format jsonl
}
# peak CONFIG EXPORT: prints the peak working set in bytes
peak() {
    local peak=0
    replay "$1" "$2" >"$folder/output" 2>"$folder/log" &
    while kill -0 $! 2>/dev/null; do
        # replay has replaced the shell, so its process id is the program's.
        peak=$(awk -v peak="$peak" '/^VmHWM:/ && $2 > peak { peak = $2 } END { print peak }' /proc/$!/status 2>/dev/null ||
            echo "$peak")
        sleep 0.02
    done
    wait $! || { cat "$folder/log" >&2; exit 3; }
    echo $((peak * 1024))
}

failed=0
# case_of NAME BOUND MEASURED FLOOR: prints the ratio of the results of two commands
case_of() {
    [ -z "$wanted" ] || [ "$wanted" = "$1" ] || return 0
    local ratio measured floor
    for _ in 1 2 3; do
        measured=$($3) floor=$($4)
        ratio=$(awk "BEGIN { printf \"%.3f\", $measured / $floor }")
        awk "BEGIN { exit !($ratio <= $2) }" && break
    done
    if [ -n "$json" ]; then
        printf '{"name":"%s","ratio":%s,"bound":%s}\n' "$1" "$ratio" "$2"
    else
        printf '%-48s %8s %8s\n' "$1" "$ratio" "$2"
    fi
    awk "BEGIN { exit !($ratio <= $2) }" || { echo "regression: $1: the ratio is $ratio, above its bound $2" >&2 && failed=1; }
}
selected() { elapsed replay "$sample.config.xml" export; }
larger() { elapsed replay "$sample.config.xml" larger; }
none() { elapsed replay "$folder/none" export; }
lint() { elapsed xmllint --stream --noout "$folder/export"; }
memory() { peak "$sample.config.xml" export; }
bytes() { echo "$size"; }

case_of "replay of 51 MB, two thirds written, to xmllint" 10.000 selected lint
case_of "replay of 51 MB, nothing selected, to xmllint" 5.000 none lint
case_of "replay of 202 MB, to one of 51 MB" 4.600 larger selected
case_of "replay: peak memory, to the bytes of the export" 3.000 memory bytes
exit $failed
