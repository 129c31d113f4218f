#!/bin/bash
# Checks that Ctrl+C ends a waiting console at once and in order, with a correct summary.
#   tests/console/interrupt.sh CONSOLE.exe
set -u
here=$(cd "$(dirname "$0")" && pwd)
console=$(realpath "$1")
cd "$(mktemp -d)" || exit 1
trap 'rm -rf "$PWD"' EXIT
cat >config.xml <<'EOF'
<metrics><metric name="eventlog|eventlog_appcrash"><channel>Application</channel><query>*</query></metric></metrics>
EOF
# event MINUTE PUBLISHER RENDERING
event() {
    echo "<Event><System><Provider Name='$2'/><TimeCreated SystemTime='2026-03-01T10:$1:00Z'/>" \
        "<Channel>Application</Channel></System>$3</Event>"
}
text='<RenderingInfo><Message>crash</Message></RenderingInfo>'
{
    echo "<Events xmlns:replay='urn:orvel:replay'>"
    event 00 'Application Error' "$text"
    event 00 'Application Error' ''
    event 00 'Other' "$text"
    event 00 'Application Error' "$text"
    echo "<replay:write file='Z:$PWD/played'/>"
} >start.xml
{ cat start.xml; event 59 'Application Error' "$text"; echo '</Events>'; } >paced.xml
{ cat start.xml; echo "<replay:wait milliseconds='600000'/></Events>"; } >waiting.xml

failed=0
command=run
# interrupt CONDITION CODE TEXT INPUT OPTION...: sends Ctrl+C when the command CONDITION succeeds; CODE is the expected exit
# code, TEXT must be in standard error
interrupt() {
    local condition=$1 code=$2 text=$3 input=$4 actual=0 started
    shift 4
    : >log
    rm -f played
    "$here/../../cmake/wine.sh" "$console" $command --config config.xml --module "$(dirname "$console")/Orvel_eventlog.dll" "$@" \
        --log info <"$input" >output 2>log &
    for ((tries = 0; tries < 600; ++tries)); do
        $condition && break
        sleep 0.05
    done
    started=$SECONDS
    kill -INT $!
    wait $! || actual=$?
    if [ $actual -ne "$code" ] || ! grep -qF -- "$text" log || [ $((SECONDS - started)) -gt 5 ]; then
        echo "expected exit code $code and '$text' at once, got $actual after $((SECONDS - started)) s from: $*"
        cat log
        failed=1
    fi
}
is_played() { [ -e played ]; }
is_subscribed() { grep -q '^info: Subscribed' log; }
# Writes more than the pipe's capacity, so it returns only after the console has started to read.
is_reading() { head -c 70000 /dev/zero | tr '\0' ' ' >&3; }
sums='    4 delivered = 2 recorded + 1 without a message + 1 of other kinds
    2 recorded = 2 written + 0 dropped + 0 still pending
    3 values written, 0 refused'
# check_sums PLAYED
check_sums() {
    if ! diff <(printf 'Stopped by Ctrl+C: %s, 1 collection\n  eventlog|eventlog_appcrash\n%s\n' "$1" "$sums") <(sed -n '/^Stopped/,$p' log); then
        echo "the summary is wrong"
        failed=1
    fi
}
interrupt is_played 0 Stopped /dev/null --replay paced.xml --speed 1x
check_sums '5 of 6 entries played'
interrupt is_played 0 Stopped paced.xml --replay - --speed 60x
check_sums '5 of 6 entries played'
interrupt is_played 0 Stopped /dev/null --replay waiting.xml
check_sums '5 of 6 entries played'
{ echo '<Events>'; for ((i = 0; i < 60000; ++i)); do event 00 'Application Error' "$text"; done; echo '</Events>'; } >long.xml
command=check
interrupt is_subscribed 11 'error: stopped by Ctrl+C before' /dev/null --replay long.xml --expect config.xml
command=run
mkfifo pipe
exec 3<>pipe # open for writing, too, so that it never ends
interrupt is_reading 4 'stdin: stopped by Ctrl+C' pipe --replay -
exit $failed
