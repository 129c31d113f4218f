#!/bin/sh
# notices.sh x86_64|i686: prints the third-party code in the binaries, with the versions and licences of the installed
# packages.
set -eu
architecture=$(printf %s "$1" | tr _ -)
documents=/usr/share/doc

# part TITLE PACKAGE: prints a heading with the package's version.
part() {
    printf '\n%s\n%s, Debian package %s %s\n%s\n\n' "$line" "$1" "$2" "$(dpkg-query -W -f '${Version}' "$2")" "$line"
}
line=$(printf '%080d' 0 | tr 0 =)

cat <<'TEXT'
THIRD-PARTY NOTICES

The binaries of the Orvel Event Log Provider are linked statically with the libraries below. The module and the
replay log contain those of the compiler and of mingw-w64, the console contains all.
TEXT
part 'libstdc++ and libgcc, the runtime libraries of GCC' "gcc-mingw-w64-$architecture-posix-runtime"
cat <<'TEXT'
Copyright (C) Free Software Foundation, Inc.
Licensed under the GNU General Public License, version 3 or later, with the GCC Runtime Library Exception, version 3.1.
The exception permits conveying the binaries under terms of your choice. Both texts follow.

TEXT
exception=$(sed -n '/^GCC RUNTIME LIBRARY EXCEPTION/,/^requirements of the license of GCC\./p' "$documents/gcc-mingw-w64-base/copyright")
[ -n "$exception" ] || { echo "The text of GCC's runtime library exception was not found" >&2; exit 1; }
printf '%s\n\n' "$exception"
cat /usr/share/common-licenses/GPL-3
part 'The runtime of mingw-w64, winpthreads among it' "mingw-w64-$architecture-dev"
cat "$documents/mingw-w64-$architecture-dev/copyright"
part 'CLI11, a library for command lines' libcli11-dev
cat "$documents/libcli11-dev/copyright"
