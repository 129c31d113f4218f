// Measures the module's cost per event and per collected value. docs/performance.md explains the output.

#include "tools/bench/rig.h"

#include <objbase.h>

#include <cstdio>
#include <exception>

int main(int argc, char** argv)
try {
    using namespace orvel::bench;
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view option = argv[i];
        if (option == "--json") {
            options.isJson = true;
        } else if (option == "--counts") {
            options.countsOnly = true;
        } else if (option == "--case" && i + 1 < argc) {
            options.wanted = argv[++i];
        } else {
            std::fputs("usage: bench [--json] [--counts] [--case NAME]\n", stderr);
            return 2;
        }
    }
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Report report(options);
    const std::filesystem::path agent = std::filesystem::temp_directory_path() / L"orvel_bench";
    std::filesystem::create_directories(agent / L"Logs");
    {
        Rig rig{std::filesystem::path(argv[0]).parent_path()};
        RunModuleCases(rig, agent, report, options.countsOnly);
    }
    std::filesystem::remove_all(agent);
    return report.ExitCode();
} catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return 3;
}
