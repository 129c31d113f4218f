#include "lamina/lamina_log_collector.h"
#include "tools/bench/agent_service.h"
#include "tools/bench/rig.h"

#include <fstream>
#include <stdexcept>

namespace orvel::bench {

namespace {

constexpr size_t kBytes = size_t{512} * 1024;
constexpr std::wstring_view kMarker = L"MOUNTED-READ;";

/// A log as the agent writes it, with a plinth in every eighth line.
std::wstring LogText(size_t bytes)
{
    std::wstring text;
    for (int line = 0; text.size() < bytes / sizeof(wchar_t); ++line) {
        const std::wstring number = std::to_wstring(line);
        text += L"[2024-03-05 07:08:09.123] [svservice:P1234:T5678] ";
        text += line % 8 == 0
                    ? L"MOUNTED-READ;C:\\SnapVolumes\\plinth" + number + L".vhd;{7d2f1c3e-" + number + L"}\r\n"
                    : L"Volume driver: mapped entry " + number + L" of the writable layer, status 0\r\n";
    }
    text.resize(bytes / sizeof(wchar_t));
    return text;
}

size_t CountMarkers(std::wstring_view text)
{
    size_t count = 0;
    for (size_t at = text.find(kMarker); at != text.npos; at = text.find(kMarker, at + kMarker.size())) {
        ++count;
    }
    return count;
}

size_t CountEntries(std::wstring_view text)
{
    size_t count = 0;
    for (auto entry = FindNextMountedEntry(text, 0); entry; entry = FindNextMountedEntry(text, entry->next)) {
        ++count;
    }
    return count;
}

void WriteFile(const std::wstring& path, size_t bytes)
{
    const std::wstring text = LogText(bytes);
    std::ofstream file(std::string(path.begin(), path.end()), std::ios::binary);
    file.write(reinterpret_cast<const char*>(text.data()), static_cast<std::streamsize>(bytes));
    if (!file) {
        throw std::runtime_error("a log cannot be written");
    }
}

} // namespace

void RunLogCases(const std::wstring& agentFolder, Report& report)
{
    volatile size_t found = 0;
    const std::wstring text = LogText(kBytes);
    report.Add(Compare("mounted entries in 512 KiB of text", 1.5, 300,
                       {[&] { found = CountEntries(text); }, [&] { found = CountMarkers(text); }, nullptr}));
    std::wstring endless;
    while (endless.size() < 32 * kBytes / sizeof(wchar_t)) {
        endless += kMarker;
    }
    for (const size_t times : {size_t{8}, size_t{32}, size_t{256}}) {
        const size_t part = size_t{64} * 1024 / sizeof(wchar_t);
        report.Add(Compare("endless markers, " + std::to_string(times * 64) + " KiB, per 64 KiB", 1.10, 30,
                           {[&] { found = CountEntries(std::wstring_view(endless).substr(0, times * part)); },
                            [&] {
                                for (size_t i = 0; i < times; ++i) {
                                    found = CountEntries(std::wstring_view(endless).substr(i * part, part));
                                }
                            },
                            nullptr}));
    }

    // The log grows behind `begin`, moves to the backup and starts anew; each of the two then has half of the gain.
    const size_t begin = kBytes;
    const std::wstring current = agentFolder + L"\\Logs\\korvex.log";
    const std::wstring backup = agentFolder + L"\\Logs\\korvex_bak.log";
    const AgentService service(agentFolder);
    CLaminaLogCollector collector(nullptr);
    WriteFile(current, begin);
    if (!collector.PrepareCollectLog()) {
        throw std::runtime_error("the agent's log is not found");
    }
    WriteFile(backup, begin + kBytes / 2);
    WriteFile(current, kBytes / 2);
    report.Add(Compare("512 KiB of log across a rotation", 1.10, 300,
                       {[&] { collector.CollectLog(); },
                        [&] { ReadRotatedLog(current, backup, static_cast<DWORD>(begin)); }, nullptr}));
}

} // namespace orvel::bench
