#!/bin/sh
# Builds the fuzzers and runs them, or those named, once over their corpus.
#   fuzz_regression.sh [--build | TARGET...]      --build: only build
set -eu
cd "$(dirname "$0")/.."
[ -f build/fuzz/build.ninja ] || cmake -S tools/fuzz -B build/fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build build/fuzz
[ "${1-}" != --build ] || exit 0

for target in ${*:-$(ls -d tools/fuzz/corpus/*/)}; do
    target=$(basename "$target")
    count=$(ls "tools/fuzz/corpus/$target" | wc -l)
    [ "$count" -gt 0 ] || { echo "$target has no inputs" >&2; exit 1; }
    if ! output=$("build/fuzz/$target" -timeout=10 "tools/fuzz/corpus/$target"/* 2>&1); then
        printf '%s\n' "$output" >&2
        exit 1
    fi
    echo "$target: $count inputs pass"
done
