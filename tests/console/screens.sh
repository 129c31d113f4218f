#!/bin/bash
# Compares the screens of a page. An indented block that begins with "$ " has commands and their expected output. A
# "$ cat FILE" creates the file from that output if it does not exist.
#   tests/console/screens.sh CONSOLE.exe PAGE.md
# The commands run in a new directory with the samples, 100 columns wide. The computer's name is shown as "DESKTOP-7Q1".
# --write updates the page.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
wine=$here/../../cmake/wine.sh
console=$(realpath "$1")
page=$(realpath "$2")
work=$(mktemp -d)
# Removes what the actions of the logon samples leave behind.
clean() {
    "$wine" cmd /c 'reg delete HKLM\System\CurrentControlSet\Services\korvex /f & rd /s /q C:\Korvex' >/dev/null 2>&1 || :
}
trap 'clean; rm -rf "$work"' EXIT
cp "$here"/../../samples/*.xml "$here"/../../samples/*.jsonl "$work"
cd "$work"
export COLUMNS=100 NO_COLOR=1
host=$("$wine" reg query 'HKLM\System\CurrentControlSet\Control\ComputerName\ActiveComputerName' /v ComputerName |
    tr -d '\r' | sed -n 's/.*REG_SZ *//p')
eventlog_console() {
    local command=$1
    shift
    if [ "$command" = --help ]; then
        "$wine" "$console" --help
    else
        "$wine" "$console" "$command" --module "$(dirname "$console")/Orvel_eventlog.dll" "$@"
    fi
}

actual=$work/.page
block=() # the lines of a screen, without their indentation
play() {
    local file i=0 line status=0
    while [ $i -lt ${#block[@]} ]; do
        line=${block[i]} file=${line#\$ cat }
        [ $i -eq 0 ] || [ -n "${block[i - 1]}" ] || echo
        printf '    %s\n' "$line"
        local shown=() # the command's output in the page
        while i=$((i + 1)) && [ $i -lt ${#block[@]} ] && [[ ${block[i]} != '$ '* ]]; do
            shown+=("${block[i]}")
        done
        if [ "$line" = "\$ cat $file" ] && [ ! -e "$file" ]; then
            printf '%s\n' "$(printf '%s\n' "${shown[@]}")" >"$file"
        fi
        eval "(exit $status); ${line#\$ }" >.output 2>&1 && status=0 || status=$?
        [ ! -s .output ] ||
            printf '%s\n' "$(sed "s/$host/DESKTOP-7Q1/g; s/^/    /; s/[[:space:]]*\$//" .output)" # no blank lines at the end
    done
}
emit() {
    [ ${#block[@]} -eq 0 ] || play
    block=()
}
blank=0
while IFS= read -r line || { emit && false; }; do
    if [[ $line == '    $ '* || (${#block[@]} -gt 0 && $line == '    '*) ]]; then
        for (( ; blank > 0; --blank)); do
            [ ${#block[@]} -gt 0 ] && block+=('') || echo
        done
        block+=("${line:4}")
    elif [[ -z $line && ${#block[@]} -gt 0 ]]; then
        blank=$((blank + 1))
    else
        emit
        for (( ; blank > 0; --blank)); do echo; done
        printf '%s\n' "$line"
    fi
done <"$page" >"$actual"

if [ "${3-}" = --write ]; then
    cat "$actual" >"$page"
else
    diff -u --label "$page" --label "what is printed" "$page" "$actual"
fi
