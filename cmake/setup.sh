#!/bin/sh
# Installs the missing Debian packages for building and testing.
set -eu
packages="cmake ninja-build g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix libwine-dev wine64-tools wine wine64
googletest libcli11-dev libxml2-utils clang libclang-rt-dev clang-format clang-tidy wixl msitools zip
locales"

missing=
for package in $packages; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
    as_root=
elif command -v sudo >/dev/null; then
    as_root=sudo
else
    echo "Installing these packages needs root; run this as root, or install sudo:$missing" >&2
    exit 1
fi

echo "Installing$missing"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# Non-interactive, and without the caller's standard input.
apt_get() {
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0 "$@" </dev/null >>"$log" 2>&1
}
# Updates the package lists only if the installation fails without.
# shellcheck disable=SC2086
if ! apt_get install -y --no-install-recommends $missing; then
    if ! { apt_get update && apt_get install -y --no-install-recommends $missing; }; then
        cat "$log" >&2
        echo "apt-get could not install$missing" >&2
        exit 1
    fi
fi
