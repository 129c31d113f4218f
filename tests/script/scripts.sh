#!/bin/sh
# Registers the module with regsvr32, from a path with blanks, and calls it from a script.
#   scripts.sh BUILD-FOLDER
set -eu
# shellcheck source=tests/support/checks.sh
. "$(dirname "$0")/../support/checks.sh"
binaries=$1/bin here=$(cd "$(dirname "$0")" && pwd)
folder=$(mktemp -d "${TMPDIR:-/tmp}/orvel scripts.XXXXXX")
trap 'rm -rf "$folder"' EXIT
module=$(windows_path "$folder/Orvel eventlog/Orvel_eventlog.dll")
mkdir "$folder/Orvel eventlog"
cp "$binaries/Orvel_eventlog.dll" "$binaries/replay/wevtapi.dll" "$here/dispatch.js" "$folder/Orvel eventlog/"
# cscript loads wevtapi.dll from the current directory, and takes a path that begins with a slash for an option.
cd "$folder/Orvel eventlog"

# has_only [HKLM|HKCU]: succeeds if the class is registered there only, or, without an argument, nowhere.
has_only() {
    for root in HKLM HKCU; do
        if [ "$root" = "${1:-}" ]; then has_class "$root" || return 1; else ! has_class "$root" || return 1; fi
    done
}

expect "regsvr32" "$wine" regsvr32 /s "$module"
expect "  registers machine-wide alone" has_only HKLM
expect "cscript dispatch.js" "$wine" cscript //nologo dispatch.js
expect "regsvr32 /u" "$wine" regsvr32 /s /u "$module"
expect "  removes it" has_only
expect "regsvr32 /n /i:user" "$wine" regsvr32 /s /n /i:user "$module"
expect "  registers for the user alone" has_only HKCU
expect "regsvr32 /u /n /i:user" "$wine" regsvr32 /s /u /n /i:user "$module"
expect "  removes it" has_only
exit $failed
