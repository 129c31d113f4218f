// What the module costs beyond the platform's own calls; docs/performance.md says how to read it.

#include "tools/bench/rig.h"

#include <objbase.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

/// Room on the heap that stays with the process, so that no case pays for getting pages from the system while the case
/// it is compared with finds them there.
void WarmHeap()
{
    std::vector<std::unique_ptr<char[]>> blocks(100000);
    for (auto& block : blocks) {
        block = std::make_unique<char[]>(1000);
    }
    static const auto last = std::make_unique<char[]>(1000); // what lies below it is kept
}

} // namespace

int wmain(int argc, wchar_t** argv)
try {
    using namespace orvel::bench;
    const bool isJson = argc == 2 && std::wstring(argv[1]) == L"--json";
    if (argc > 1 && !isJson) {
        std::fputs("usage: bench [--json]\n", stderr);
        return 2;
    }
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const std::filesystem::path bin = std::filesystem::path(argv[0]).parent_path();
    const std::filesystem::path agent = std::filesystem::temp_directory_path() / L"orvel_bench";
    std::filesystem::create_directories(agent / L"Logs");
    WarmHeap();
    Report report(isJson);
    {
        Rig rig((bin / L"").wstring(), (agent / L"Logs" / L"korvex.log").wstring());
        RunLogCases(agent.wstring(), report);
        RunEventCases(rig, agent.wstring(), report);
    }
    std::filesystem::remove_all(agent);
    if (!report.IsWithinGoals() && !isJson) {
        std::puts("docs/performance.md tells what a line above its goal spends, and why it cannot come below.");
    }
    return report.IsWithinGoals() ? 0 : 1;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return 3;
}
