#!/bin/bash
# Runs the commands in the pages: blocks marked sh in the root of the sources, each once, then blocks marked bat in the
# unpacked package, with Wine's cmd. The output of the command before a block marked text must contain its lines, each up
# to "...". Fails if a command fails, or is neither run nor listed in not-run.txt, including commands in running text.
#   commands.sh BUILD-FOLDER [--list]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "$1")
cd "$here/../.."
work=$(mktemp -d)
# Registers with Wine's wevtapi.dll, as an administrator would with Windows' own.
export WINEDLLOVERRIDES='mscoree,mshtml=;winedbg.exe=d'
bat() { (cd "$work"/OrvelEventLog-* && "$here/../../cmake/wine.sh" cmd /c "$1"); }
clean() {
    bat 'regsvr32 /s /u Orvel_eventlog.dll & regsvr32 /s /u /n /i:user Orvel_eventlog.dll' || true
    rm -rf "$work"
}
trap 'clean >/dev/null 2>&1' EXIT

# Prints lines of KIND, PLACE and COMMAND: sh and bat for marked blocks, without comments and with continued lines joined;
# out for a line of output; text for a command in running text.
extract() {
    awk -v OFS='\t' '
        function begins(text) {
            return text ~ /^\.\/(check|demo|bench|fuzz)( |$)/ || text ~ /^(cmake|build)\/[a-z0-9_\/]+\.(sh|exe) / ||
                   text ~ /^(cmake|ctest|cpack|regsvr32|msiexec|eventlog_console [a-z]+|cscript|wevtutil) [^ ]/
        }
        function mention(text) { if (begins(text)) print "text", FILENAME ":" FNR, text }
        FNR == 1 { block = ""; inside = 0 }
        /^```/ { inside = !inside; block = inside ? "```" substr($0, 4) : ""; next }
        block == "```sh" || block == "```bat" {
            sub(/ *(  |^)(#|rem ).*/, "")
            joined = joined $0
            if (sub(/ *\\$/, " ", joined)) next
            if (joined != "") print substr(block, 4), FILENAME ":" FNR, joined
            joined = ""
            next
        }
        block == "```text" { print "out", FILENAME ":" FNR, $0 }
        block != "" { next }
        /^    / { text = $0; sub(/^ +/, "", text); sub(/  +#.*/, "", text); mention(text) }
        { n = split($0, spans, "`"); for (i = 2; i <= n; i += 2) mention(spans[i]) }
    ' README.md CONTRIBUTING.md "${pages[@]}"
}
# tests/console/screens.sh compares the screens of docs/console.md.
mapfile -t pages < <(ls docs/*.md | grep -vx docs/console.md)
extract >"$work/commands"
if [ "${2-}" = --list ]; then
    cat "$work/commands"
    exit
fi

declare -A known=() used=()
failed=0
fail() {
    echo "$1: $2: $3"
    failed=1
}
mapfile -t exceptions < <(grep -v '^#' "$here/not-run.txt")
listed() {
    local exception
    for exception in "${exceptions[@]}"; do
        # shellcheck disable=SC2053 # a pattern
        if [[ $1 == ${exception%% -- *} ]]; then
            used[$exception]=1
            return 0
        fi
    done
    return 1
}
run() { # KIND
    local kind place command log=$work/log page=
    while IFS=$'\t' read -r kind place command; do
        # A block of output belongs to the page's last command, if that was run just now.
        if [ "$kind" = out ] && [ "$page" = "${place%:*}" ]; then
            command=${command%%...*}
            [ -z "${command// /}" ] || grep -qF -- "$command" "$log" || fail "$place" "was not printed" "$command"
        elif [ "$kind" = sh ] || [ "$kind" = bat ]; then
            page=
            [ "$kind" = "$1" ] || continue
            # A bat command can be undone by the next one, so it runs each time.
            [ "$kind" = bat ] || [ -z "${known[$command]-}" ] || continue
            known[$command]=1
            ! listed "$command" || continue
            page=${place%:*}
            local start=${EPOCHREALTIME/./}
            if [ "$kind" = bat ]; then bat "$command"; else bash -ec "$command"; fi >"$log" 2>&1 </dev/null || {
                fail "$place" "ends with $?" "$command"
                cat "$log"
            }
            ! grep -qE '^\[=+\] 0 tests ' "$log" || fail "$place" "no test matches" "$command"
            printf '%6d ms  %s\n' $(((${EPOCHREALTIME/./} - start) / 1000)) "$command"
        fi
    done <"$work/commands"
}

run sh
cmake --build "$build" --target package >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
package=$(ls -t "$build"/OrvelEventLog-*.zip)
(cd "$work" && cmake -E tar xf "${package%%$'\n'*}")
run bat
while IFS=$'\t' read -r kind place command; do
    [ "$kind" != text ] || [ -n "${known[$command]-}" ] || listed "$command" ||
        fail "$place" "neither run nor listed in tests/docs/not-run.txt" "$command"
done <"$work/commands"
for exception in "${exceptions[@]}"; do
    [ -n "${used[$exception]-}" ] || fail tests/docs/not-run.txt "no page has this command" "$exception"
done
[ ${#known[@]} -gt 0 ] || fail README.md "no command was found" ""
exit $failed
