# To be sourced. The tools that the project is developed with are those of Debian 12. Other versions warn about other
# things and lay out some lines differently, so only these decide whether ./check passes.
is_development_gcc() {
    case $(x86_64-w64-mingw32-g++-posix -dumpversion) in 12 | 12[.-]*) ;; *) return 1 ;; esac
}
is_development_clang() {
    clang-format --version | grep -q 'version 14\.'
}
