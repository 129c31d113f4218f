// Measures the module's cost per event and per collected value. docs/performance.md explains the output.

#include "tools/bench/rig.h"

#include <objbase.h>

#include <cstdio>
#include <exception>
#include <optional>

namespace {

struct Options {
    bool isJson = false;
    bool countsOnly = false;
    std::string wanted;
};

std::optional<Options> ReadOptions(int argc, char** argv)
{
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
            return std::nullopt;
        }
    }
    return options;
}

} // namespace

int main(int argc, char** argv)
try {
    using namespace orvel::bench;
    const std::optional<Options> options = ReadOptions(argc, argv);
    if (!options) {
        std::fputs("usage: bench [--json] [--counts] [--case NAME]\n", stderr);
        return 2;
    }
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Report report(options->isJson, options->countsOnly, options->wanted);
    const std::filesystem::path agent = std::filesystem::temp_directory_path() / L"orvel_bench";
    std::filesystem::create_directories(agent / L"Logs");
    {
        Rig rig{std::filesystem::path(argv[0]).parent_path()};
        RunModuleCases(rig, agent, report);
    }
    std::filesystem::remove_all(agent);
    if (!report.HasRun()) {
        std::fprintf(stderr, "bench: there is no case '%s'; the cases are:\n", options->wanted.c_str());
        for (const std::string& name : report.Names()) {
            std::fprintf(stderr, "  %s\n", name.c_str());
        }
        return 2;
    }
    for (const std::string& regression : report.Regressions()) {
        std::fprintf(stderr, "regression: %s\n", regression.c_str());
    }
    return report.Regressions().empty() ? 0 : 1;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return 3;
}
