# Sourced by ./check and lint.sh. Only the tool versions of Debian 12 can fail ./check, because others warn and format
# differently.
is_development_gcc() {
    case $(x86_64-w64-mingw32-g++-posix -dumpversion) in 12 | 12[.-]*) ;; *) return 1 ;; esac
}
is_development_clang() {
    clang-format --version | grep -q 'version 14\.'
}
