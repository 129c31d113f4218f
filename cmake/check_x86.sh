#!/bin/sh
# Builds everything for x86 and runs the tests in a 32-bit Debian system of the same release, which is installed below
# build/i386 on first use. Needs root.
set -eu
cd "$(dirname "$0")/.."
system=$PWD/build/i386
skip() {
    echo "== Skipped the tests for x86: $*"
    exit 0
}
[ "$(id -u)" -eq 0 ] || skip "installing a 32-bit system needs root"
echo "== Building for x86"
cmake --preset x86 -D CMAKE_COMPILE_WARNING_AS_ERROR=OFF
cmake --build --preset x86

log=$PWD/build/i386.log
if [ ! -e "$system/.ready" ]; then
    echo "== Installing a 32-bit system in build/i386 (details in build/i386.log)"
    command -v debootstrap >/dev/null ||
        DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends debootstrap >"$log" 2>&1 ||
        { cat "$log"; skip "debootstrap cannot be installed"; }
    release=$(. /etc/os-release && echo "$VERSION_CODENAME")
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | head -n 1)
    rm -rf "$system"
    debootstrap --arch=i386 --variant=minbase --include=ca-certificates "$release" "$system" "$mirror" >"$log" 2>&1 ||
        { tail -n 20 "$log"; skip "debootstrap failed"; }
    cp -a /etc/apt/apt.conf.d/. "$system/etc/apt/apt.conf.d/" # such as proxies
    cp -L /etc/resolv.conf /etc/hosts "$system/etc/"
    chroot "$system" sh -c 'apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends wine wine32' \
        >>"$log" 2>&1 || { tail -n 20 "$log"; skip "Wine cannot be installed in the 32-bit system"; }
    touch "$system/.ready"
fi

# The paths are the same inside and outside.
export ORVEL_WINE_SYSTEM=$system WINEPREFIX=$PWD/build/wine-prefix-x86
mounts="/proc /sys /dev /tmp $PWD"
leave() {
    cmake/wine.sh --stop || true # the mounts must go in any case
    for mount in $mounts; do umount -l "$system$mount" 2>/dev/null || true; done
}
trap leave EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP
for mount in $mounts; do
    mkdir -p "$system$mount"
    mount --bind "$mount" "$system$mount" || skip "directories cannot be bound into the 32-bit system"
done
cmake/wine.sh --start
echo "== Testing for x86"
# tests/CMakeLists.txt says what is not built for x86, and why.
ctest --preset x86 --parallel "$(nproc)"
