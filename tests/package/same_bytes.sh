#!/bin/bash
# Builds the module from a copy of the sources in another directory, packs it there, and compares everything with the
# first build. The programs, which would take a minute more and are built with the same options, are taken from there.
#   same_bytes.sh BUILD-FOLDER
set -euo pipefail
build=$(realpath "$1")
sources=$(cd "$(dirname "$0")/../.." && pwd)
if grep -q '^CMAKE_CXX_COMPILER_LAUNCHER:.*=.' "$build/CMakeCache.txt"; then
    echo "Skipped: the first build went through a compiler cache, which may change directories in debug information"
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export WINEPREFIX=${WINEPREFIX:-$sources/build/wine-prefix} # making another one takes longer than all the rest
cmake --build "$build" --target package >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }

copy="$work/a directory of another length"
mkdir "$copy"
tar -C "$sources" --exclude=./build --exclude=./.git -c . | tar -C "$copy" -xm
cd "$copy"
umask 027
export TZ=Asia/Tokyo
{ cmake --preset x64 && nice cmake --build --preset x64 --target Orvel_eventlog; } >"$work/log" 2>&1 ||
    { cat "$work/log"; exit 1; }
cp "$build/bin/eventlog_console.exe" build/x64/bin/
mkdir -p build/x64/bin/replay
cp "$build/bin/replay/wevtapi.dll" build/x64/bin/replay/
cpack --config build/x64/CPackConfig.cmake -B build/x64 >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }

failed=0
for file in bin/OrvelAgent.tlb bin/EventLogProviderLib.tlb bin/Orvel_eventlog.dll bin/Orvel_eventlog.dll.debug \
    "$(cd build/x64 && echo OrvelEventLog-*.zip)" "$(cd build/x64 && echo OrvelEventLog-*.msi)"; do
    if cmp "$build/$file" "build/x64/$file"; then echo "same: $file"; else failed=1; fi
done
exit $failed
