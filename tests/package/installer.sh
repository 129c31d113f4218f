#!/bin/bash
# Installs, upgrades and removes the built installer: what it writes into the registry is compared with what regsvr32
# writes, and what is left of either with what there was before.
#   installer.sh BUILD-FOLDER
set -euo pipefail
# shellcheck source=tests/support/checks.sh
. "$(dirname "$0")/../support/checks.sh"
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "$1")
# As on a desktop: with the system's own wevtapi.dll, of which Wine has a stub.
export WINEDLLOVERRIDES='mscoree,mshtml=;winedbg.exe=d'
work=$(mktemp -d)
cmake --build "$build" --target package >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
package=$(ls -t "$build"/OrvelEventLog-*.msi | head -n 1)
cp "$package" "$work/installed.msi"
pack() { # VERSION: the same files as another version
    cpack --config "$build/CPackConfig.cmake" -B "$work" -D "CPACK_PACKAGE_VERSION=$1" \
        -D "CPACK_PACKAGE_FILE_NAME=$1" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
}
pack 0.9.0
pack 99.0.0
installer() { "$wine" msiexec "$1" "$(windows_path "$work/$2.msi")" /qn; }
clean() {
    installer /x 99.0.0 || true
    installer /x installed || true
    "$wine" regsvr32 /s /u "$(windows_path "$build/bin/Orvel_eventlog.dll")" || true
    rm -rf "$work"
}
trap 'clean >/dev/null 2>&1' EXIT

# snapshot NAME: HKLM\Software as lines of key and value. Keys without values that only Wine's installer leaves are not in
# it, nor a directory's last backslash, which the installer cannot leave away.
snapshot() {
    "$wine" reg export 'HKLM\Software' "$(windows_path "$work/$1.reg")" /y >/dev/null
    iconv -f UTF-16 -t UTF-8 "$work/$1.reg" | tr -d '\r' | awk '
        /^\[/ { key = $0; if (key !~ /\\Installer(\\|\])/) print key; next }
        /./ { sub(/\\\\"$/, "\""); print key " " $0 }' >"$work/$1"
}
# added NAME DIRECTORY: what was registered besides the installer's own entries, with the directory as "@".
added() {
    local lines
    lines=$(comm -13 <(LC_ALL=C sort "$work/before") <(LC_ALL=C sort "$work/$1") | grep -vE '\\(Installer|Uninstall)\\')
    printf '%s\n' "${lines//"$2"/@}"
}
installed_versions() { grep -oP '\\Uninstall\\\{[-0-9A-F]+\}\] "DisplayVersion"="\K[^"]+' "$work/$1"; }
script() { # TEXT
    echo "$1" >"$work/script.js"
    (cd "$work" && "$wine" cscript //nologo script.js)
}
provider='new ActiveXObject("OrvelAgent.EventLogProvider").UnsubscribeAll();'

script '' # at its first run, Wine's script host registers itself
snapshot before
"$wine" regsvr32 /s "$(windows_path "$build/bin/Orvel_eventlog.dll")"
snapshot registered
"$wine" regsvr32 /s /u "$(windows_path "$build/bin/Orvel_eventlog.dll")"
added registered "$(windows_path "$build/bin" | sed 's/\\/\\\\/g')" >"$work/by-regsvr32"

expect "msiexec /i" installer /i installed
snapshot installed
folder=$(grep -m 1 -oP '\\InprocServer32\] @="\K[A-Z]:.*Orvel.*(?=\\\\Orvel_eventlog\.dll")' "$work/installed")
added installed "$folder" >"$work/by-installer"
expect "  writes what regsvr32 writes" diff "$work/by-regsvr32" "$work/by-installer"
expect "  which is something" [ "$(wc -l <"$work/by-regsvr32")" -gt 20 ]
expect "  installs under Program Files" test "${folder#C:\\\\Program Files}" != "$folder"
expect "  lets scripts create the provider" script "$provider"
sample=$(windows_path "$(realpath "$here/../../samples")/application-error")
expect "  lets the console check a query with an export" "$wine" "${folder//'\\\\'/'\\'}\\eventlog_console.exe" check \
    --config "$sample.config.xml" --replay "$sample.export.xml"
expect "  refuses an older version" eval '! installer /i 0.9.0'
expect "msiexec /i of a newer version" installer /i 99.0.0
snapshot upgraded
expect "  replaces the older one" [ "$(installed_versions upgraded)" = 99.0.0 ]
expect "  and registers the same" diff "$work/by-regsvr32" <(added upgraded "$folder")
expect "  and lets scripts create the provider" script "$provider"
expect "msiexec /x" installer /x 99.0.0
snapshot removed
expect "  removes everything from the registry" diff "$work/before" "$work/removed"
left=$(cd "$work" && "$wine" cmd /c "if exist \"$(sed 's/\\\\/\\/g; s/\\[^\\]*$//' <<<"$folder")\" echo left" | tr -d '\r')
expect "  removes all files" [ -z "$left" ]
exit $failed
