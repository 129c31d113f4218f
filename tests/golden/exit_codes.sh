#!/bin/sh
# Wrong use of the console: what it ends with, and that the message names what is wrong and where.
#   tests/golden/exit_codes.sh CONSOLE.exe
set -u
here=$(cd "$(dirname "$0")" && pwd)
console=$(realpath "$1")
dll=$(dirname "$console")/Orvel_eventlog.dll
cd "$(mktemp -d)" || exit 1
trap 'rm -rf "$PWD"' EXIT
failed=0

# expect CODE TEXT ARGUMENT...: the exit code, and a text that standard output or standard error holds
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
# config FILE TEXT: a configuration around the inside of its root element
config() { printf '<metrics>\n%s\n</metrics>\n' "$2" >"$1"; }

good='<metric name="eventlog|eventlog_appcrash"><channel>Application</channel><query>*</query></metric>'
export=$here/left-out.export.xml
config good.xml "$good"
config näme-日本.xml "$good"
config twice.xml "$good$good<metric name='eventlog|other'/>"
config less-than.xml '  <metric name="eventlog|eventlog_appcrash"><query>*[System[Level<3]]</query></metric>'
config nameless.xml '  <metric><channel>Application</channel></metric>'
config structured.xml '  <metric name="a"><query><QueryList/></query></metric>'
config empty.xml ''
config no-query.xml '<metric name="eventlog|eventlog_appcrash"><channel>Application</channel></metric>'
printf '<Events>\n<Event></Wrong>' >broken.export.xml

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
expect 0 "no metric 'eventlog|other'" run --config twice.xml --replay "$export" --module "$dll"
exit $failed
