#!/bin/bash
# Lints the sources: clang-format for all files, clang-tidy for the module's directories and, with --all, for tools, tests
# and samples, which doubles the time. Needs a built x64 preset. Clean results of clang-tidy are cached until the file, a
# header or an option changes.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/x64
stamps=$build/tidy

. cmake/developed_with.sh
if ! is_development_clang; then
    echo "Skipped the lint: it needs clang-format and clang-tidy 14; installed is:"
    clang-format --version
    exit 0
fi

mapfile -t sources < <(find . -path ./build -prune -o \( -name '*.cpp' -o -name '*.h' \) -print | LC_ALL=C sort)
if ! clang-format --dry-run -Werror "${sources[@]}"; then
    echo "The layout differs from .clang-format. To fix it, run:" >&2
    echo "    find . -path ./build -prune -o \\( -name '*.cpp' -o -name '*.h' \\) -exec clang-format -i {} +" >&2
    exit 1
fi

# clang targets mingw-w64 and uses the standard library of its g++.
library=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-libgcc-file-name)")/include/c++
export build library
tidy() {
    clang-tidy -p "$build" --quiet --extra-arg-before=--target=x86_64-w64-mingw32 --extra-arg=-nostdinc++ \
        "--extra-arg=-isystem$library" "--extra-arg=-isystem$library/x86_64-w64-mingw32" \
        "--extra-arg=-isystem$library/backward" "$1" 2>&1
}
tidy_and_stamp() {
    if findings=$(tidy "$1"); then
        touch "$2"
    else
        # The count includes hidden warnings in system headers.
        printf '%s\n' "$findings" | grep -vE '^[0-9]+ warnings? ' >&2
        return 1
    fi
}
export -f tidy tidy_and_stamp

# The inputs that all results depend on.
common=$({
    declare -f tidy
    clang-tidy --version
    cat .clang-tidy ./*/.clang-tidy cmake/options.cmake
    find . "$build/host" -path ./build -prune -o -name '*.h' -print0 | LC_ALL=C sort -z | xargs -0 cat
} | sha256sum)
mkdir -p "$stamps"
todo=()
for source in "${sources[@]}"; do
    [ "${1-}" = --all ] || [[ ! "$source" =~ ^./(tools|tests|samples)/ ]] || continue
    grep -qF "\"$PWD/${source#./}\"" "$build/compile_commands.json" || continue # a header
    stamp=$stamps/$({ echo "$common $source" && cat "$source"; } | sha256sum | cut -c1-40)
    [ -e "$stamp" ] || todo+=("$source" "$stamp")
done
if [ ${#todo[@]} -gt 0 ]; then
    echo "Running clang-tidy on $((${#todo[@]} / 2)) files"
    printf '%s\0' "${todo[@]}" | xargs -0 -n 2 -P "$(nproc)" bash -c 'tidy_and_stamp "$@"' tidy
fi
echo "The lint found no problems"
