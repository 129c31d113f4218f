# What the test scripts share; they source it.
# shellcheck shell=sh disable=SC2034
wine=$(cd "$(dirname "$0")/../.." && pwd)/cmake/wine.sh
failed=0

# windows_path PATH: prints a path as Windows programs take it
windows_path() { printf 'Z:%s' "$1" | tr / '\\'; }

# expect TEXT COMMAND...: runs a command that must succeed
expect() {
    what=$1
    shift
    if "$@"; then echo "ok      $what"; else
        echo "FAILED  $what"
        failed=1
    fi
}

# has_class ROOT: succeeds if the provider is registered in HKLM or HKCU
has_class() { "$wine" reg query "$1\\Software\\Classes\\OrvelAgent.EventLogProvider\\CLSID" >/dev/null 2>&1; }
