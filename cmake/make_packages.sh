#!/bin/sh
# Builds PACKAGE.zip and PACKAGE.msi from the files below STAGED, with the time SOURCE_DATE_EPOCH. Called by
# make_packages.cmake.
#   make_packages.sh STAGED PACKAGE VERSION WIXL-ARGUMENT...
set -eu
staged=$1 package=$2 version=$3
shift 3
export TZ=UTC
cd "$staged"
chmod -R u=rwX,go=rX .
find . -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
rm -f "$package.zip" "$package.msi"

# -X: without users and groups; only files: without directory entries.
(cd .. && find "$(basename "$staged")" -type f | LC_ALL=C sort | zip -X -q -@ "$package.zip")

wixl "$@" -o "$package.msi"
# wixl reads no version resources. Without a version in its table, Windows Installer never replaces a file that has one.
for file in Module Console ReplayLog; do
    msibuild "$package.msi" -q "UPDATE \`File\` SET \`Version\` = '$version.0', \`Language\` = '1033' WHERE \`File\` = '$file'" \
        -q "DELETE FROM \`MsiFileHash\` WHERE \`File_\` = '$file'"
done
# wixl and msibuild write the current time and a random package code into the summary. For reproducible builds, both are
# replaced; the code is derived from the contents.
summarize() {
    perl -0777 -pi -e '
        BEGIN { our $code = shift; our $time = pack "Q<", ((shift) + 11644473600) * 10_000_000 }
        s/(\x1e\0\0\0\x27\0\0\0\{)[0-9A-F-]{36}(\}\0+\x40\0\0\0).{8}(\x40\0\0\0).{8}/$1$code$2$time$3$time/s
            or die "no summary found\n"' "$1" "$SOURCE_DATE_EPOCH" "$package.msi"
}
summarize 00000000-0000-0000-0000-000000000000
summarize "$(sha1sum <"$package.msi" | sed -E 's/^(.{8})(.{4}).(.{3}).(.{3})(.{12}).*/\U\1-\2-5\3-8\4-\5/')"
