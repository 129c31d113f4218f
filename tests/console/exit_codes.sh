#!/bin/sh
# Checks the console's exit code and message for each kind of wrong input.
#   tests/console/exit_codes.sh CONSOLE.exe
set -u
here=$(cd "$(dirname "$0")" && pwd)
golden=$here/../golden
console=$(realpath "$1")
dll=$(dirname "$console")/Orvel_eventlog.dll
cd "$(mktemp -d)" || exit 1
trap 'rm -rf "$PWD"' EXIT
failed=0

# expect CODE TEXT ARGUMENT...: the expected exit code, and a text that standard output or standard error must contain
expect() {
    code=$1 text=$2
    shift 2
    "$here/../../cmake/wine.sh" "$console" "$@" >output 2>&1
    actual=$?
    if [ "$actual" -ne "$code" ] || ! grep -qF -- "$text" output; then
        echo "expected exit code $code and '$text', got $actual from: $*"
        cat output
        failed=1
    fi
}
# config FILE TEXT: writes a configuration with TEXT inside its root element
config() { printf '<metrics>\n%s\n</metrics>\n' "$2" >"$1"; }

good='<metric name="eventlog|eventlog_appcrash"><channel>Application</channel><query>*</query></metric>'
export=$golden/left-out.export.xml
config good.xml "$good"
config näme-日本.xml "$good"
config twice.xml "$good$good<metric name='eventlog|other'/>"
config less-than.xml '  <metric name="eventlog|eventlog_appcrash"><query>*[System[Level<3]]</query></metric>'
config nameless.xml '  <metric><channel>Application</channel></metric>'
config structured.xml '  <metric name="a"><query><QueryList/></query></metric>'
config empty.xml ''
config no-query.xml '<metric name="eventlog|eventlog_appcrash"><channel>Application</channel></metric>'
printf '<Events>\n<Event></Wrong>' >broken.export.xml
config no-channel.xml '<metric name="eventlog|eventlog_appcrash"><query>*</query></metric>'
config no-such-channel.xml '<metric name="eventlog|eventlog_appcrash"><channel>Lost</channel><query>*</query></metric>'
config wrong-query.xml '<metric name="eventlog|eventlog_appcrash"><channel>Setup</channel><query>*[a</query></metric>'
config open.xml '<metric name="eventlog|eventlog_appcrash"><channel>Setup</channel><query>*[not(a)]</query></metric>'
config open-and-wrong.xml "$(cat wrong-query.xml open.xml | grep '<metric ' | sed '2s/appcrash/lamina/')"
config lost-list.xml '<metric name="eventlog|eventlog_appcrash"><channel/><query><![CDATA[<QueryList><Query>
<Select Path="Application">*</Select><Select Path="Lost">*</Select></Query></QueryList>]]></query></metric>'
config select.xml '<metric name="eventlog|eventlog_appcrash"><channel/><query><![CDATA[<QueryList><Query Path="a">
<Select>*[System[Level=]]</Select></Query></QueryList>]]></query></metric>'
config blank.xml '<metric name="eventlog|eventlog_appcrash"><channel>Application</channel><query> </query></metric>'
: >empty.export.xml
printf '<Events/>' >root.export.xml
printf '\211PNG\r\n\0\0' >binary.export.xml
printf 'ElfFile\0' >binary.evtx
iconv -f utf-8 -t utf-16le "$export" >utf-16.export.xml

expect 0 'Exit codes:' --help
expect 0 '--interval SECONDS' run --help
expect 0 'eventlog_console ' --version
expect 2 'subcommand'
expect 2 '--config is required' run
expect 2 'xml' run --config good.xml --format xml
expect 2 '--interval' run --config good.xml --interval 0
expect 2 '--collect-after' run --config good.xml --collect-after 1,x
expect 3 'missing.xml: ' run --config missing.xml
expect 3 'less-than.xml:2:' run --config less-than.xml
expect 3 'nameless.xml:2:' run --config nameless.xml
expect 3 'structured.xml:2:' run --config structured.xml
expect 3 'empty.xml:' run --config empty.xml
expect 4 'missing.export.xml' run --config good.xml --replay missing.export.xml --module "$dll"
expect 4 'broken.export.xml' run --config good.xml --replay broken.export.xml --module "$dll"
expect 5 'no such file' run --config good.xml --replay "$export" --module missing.dll
expect 5 'is not a COM server' run --config good.xml --replay "$export" --module "$(dirname "$dll")/replay/wevtapi.dll"
expect 6 'no-query.xml:2:' run --config no-query.xml --replay "$export" --module "$dll"
expect 0 'appcrash|contained' run --config näme-日本.xml --replay "$export" --module "$dll"
expect 0 'appcrash|contained' run --config good.xml --replay utf-16.export.xml --module "$dll"
expect 0 "no metric 'eventlog|other'" run --config twice.xml --replay "$export" --module "$dll"

# The likeliest mistakes, with both commands.
for command in run check; do
    # bad_export FILE TEXT: the exit code of a bad export and a message of one line
    bad_export() {
        expect 4 "$2" $command --config good.xml --replay "$1" --module "$dll"
        [ "$(wc -l <output)" -eq 1 ] || { echo "more than one line from $command with $1:"; cat output; failed=1; }
    }
    bad_export empty.export.xml 'empty.export.xml: line 1, column 1: the export is empty'
    bad_export root.export.xml 'root.export.xml: the export has no event'
    bad_export binary.export.xml 'this is a binary file'
    bad_export binary.evtx 'turn it into an export with: wevtutil qe FILE.evtx'
done
expect 6 'no-channel.xml:2:2: ' run --config no-channel.xml --replay "$export" --module "$dll"
expect 9 "has no <channel>; add one" check --config no-channel.xml
expect 9 "has no <query>; add one" check --config no-query.xml
expect 9 'is already subscribed' check --config twice.xml
expect 9 'at character 4)' check --config wrong-query.xml
expect 0 'no event will come' run --config wrong-query.xml --replay "$export" --module "$dll"
expect 9 '            *[System[Level=]]' check --config select.xml
expect 9 "has events of 'Application'" check --config no-such-channel.xml --replay "$export" --module "$dll"
expect 0 'which has no events in the export; the export has' check --config no-such-channel.xml --replay "$export" \
    --module "$dll" --channel LOST
expect 9 'declare it with' check --config lost-list.xml --replay "$export" --module "$dll"
! grep -q 'selected' output || { echo 'a refused subscription is reported as selecting events'; cat output; failed=1; }
expect 18 'the replay log does not support the query' check --config open.xml --replay "$export" --module "$dll"
expect 18 '"verdict":"not understood","problem":"' check --config open.xml --format jsonl
expect 9 'unknown ' check --config open-and-wrong.xml
expect 0 ' 0 recorded + ' check --config good.xml --replay "$export" --module "$dll" \
    --missing-publisher 'application error' --missing-publisher 'Application Hang'
expect 0 'empty, selects every event' check --config blank.xml
grep -q 'channel   Application' output || { echo 'a blank query is taken for a list'; failed=1; }
expect 0 'complete, and the query is valid' check --config - <good.xml
sed 's/<metrics>/<metrics xmlns="urn:other">/' good.xml >namespace.xml
expect 0 'complete, and the query is valid' check --config namespace.xml
expect 0 ' of the export' check --config good.xml --replay - --module "$dll" <"$export"
expect 0 'entries played' run --config - --replay "$export" --speed 1000000000x --module "$dll" <good.xml
expect 2 'only one of' check --config - --replay -
expect 2 'such as 60x' run --config good.xml --replay "$export" --speed fast
expect 2 '--replay' check --config good.xml --explain
expect 4 'missing.jsonl' check --config good.xml --replay "$export" --expect missing.jsonl
"$here/../../cmake/wine.sh" "$console" run --config good.xml --replay "$export" --module "$dll" --format jsonl \
    >expected.jsonl 2>/dev/null
expect 0 '"selected":' check --config good.xml --replay "$export" --module "$dll" --expect expected.jsonl --format jsonl
cat >actions.export.xml <<'EOF'
<Events xmlns:replay='urn:orvel:replay'><replay:wait milliseconds='600000'/><replay:write file='made.txt'/>
<Event><System><Provider Name='a'/><Channel>Application</Channel></System></Event></Events>
EOF
expect 0 'note: 2 replay actions skipped' check --config good.xml --replay actions.export.xml --module "$dll"
[ ! -e made.txt ] || { echo "a check has written a file without being asked to"; failed=1; }
expect 0 '3 of 3 entries played' check --config good.xml --replay actions.export.xml --module "$dll" --actions
[ -e made.txt ] || { echo "a check with --actions has not carried them out"; failed=1; }
sed 1d expected.jsonl >less.jsonl
expect 10 '+ {"collection":1' check --config good.xml --replay "$export" --module "$dll" --expect less.jsonl
iconv -f utf-8 -t utf-16 expected.jsonl >utf16.jsonl
expect 0 '' check --config good.xml --replay "$export" --module "$dll" --expect utf16.jsonl
{ printf '\357\273\277{"check":"a"}\n\n' && cat expected.jsonl; } >report.jsonl
expect 0 '' check --config good.xml --replay "$export" --module "$dll" --expect report.jsonl
sed 's/日/年/' "$golden/texts.expected.jsonl" | sed '1s/^/{"check":"a"}\n\n/' >other.jsonl
expect 10 'at line 7 of' check --config "$golden/texts.config.xml" --replay "$golden/texts.export.xml" --module "$dll" \
    --expect other.jsonl
grep -q 'at character 168:' output || { echo 'the lines differ at another character:'; cat output; failed=1; }
{ cat expected.jsonl && echo '{"more":1}'; } >more.jsonl
expect 10 '- {"more":1}' check --config good.xml --replay "$export" --module "$dll" --expect more.jsonl
exit $failed
