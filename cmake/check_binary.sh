#!/bin/sh
# Checks that a shipped binary is hardened, imports only system DLLs and exports exactly the given names.
#   check_binary.sh OBJDUMP FILE [EXPORT...]
set -eu
objdump=$1 file=$2
shift 2
system='advapi32 kernel32 msvcrt ole32 oleaut32 shell32 shlwapi user32 wevtapi'
headers=$("$objdump" -p "$file")

fail() {
    echo "$file: $*" >&2
    exit 1
}

flags='DYNAMIC_BASE NX_COMPAT'
case "$headers" in *pei-x86-64*) flags="$flags HIGH_ENTROPY_VA" ;; esac
for flag in $flags; do
    printf '%s\n' "$headers" | grep -qw "$flag" || fail "is not linked with $flag"
done

imports=$(printf '%s\n' "$headers" | sed -n 's/^[[:space:]]*DLL Name: \(.*\)\.dll$/\1/Ip' | tr '[:upper:]' '[:lower:]')
[ -n "$imports" ] || fail "imports cannot be read"
for import in $imports; do
    case " $system " in *" $import "*) ;; *) fail "imports $import.dll, which is not a system DLL" ;; esac
done

# Counting the address table finds exports by ordinal, which have no name below.
addresses=$(printf '%s\n' "$headers" | sed -n '/^Export Address Table -- /,/^$/p' | grep -c 'Export RVA' || true)
names=$(printf '%s\n' "$headers" | sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/p' |
    awk '/^[[:space:]]*\[ *[0-9]+\] / { print $NF }' | LC_ALL=C sort | xargs) # newer binutils print numbers before the name
expected=$(printf '%s\n' "$@" | LC_ALL=C sort | xargs)
[ "$names" = "$expected" ] || fail "exports '$names', expected '$expected'"
[ "$addresses" -eq $# ] || fail "has $addresses exports for $# names"
