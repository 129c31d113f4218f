#include "host/format.h"
#include "tools/console/terminal.h"
#include "tools/console/writers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace orvel::console {

namespace {

struct Timestamp {
    const wchar_t* key;
    const wchar_t* label;
};

constexpr std::array<Timestamp, 4> kTimestamps = {{{L"lamina|logon_timestamp", L"logon"},
                                                   {L"lamina|logon_response_timestamp", L"manager response"},
                                                   {L"lamina|volumes_ready_timestamp", L"volumes ready"},
                                                   {L"lamina|all_done_timestamp", L"all done"}}};
using Times = std::array<std::optional<ULONGLONG>, kTimestamps.size()>; // in milliseconds since 1970

/// Formats the date or the time of day, in UTC, of a time in milliseconds since 1970.
std::wstring TimeText(ULONGLONG milliseconds, bool isDate)
{
    constexpr ULONGLONG kLatest = 900000000000000; // beyond it the system's calendar ends
    const ULONGLONG ticks = milliseconds * 10000 + 116444736000000000;
    const FILETIME fileTime{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    SYSTEMTIME utc{};
    if (milliseconds > kLatest || !FileTimeToSystemTime(&fileTime, &utc)) {
        return L"?";
    }
    return isDate ? FormatString(L"%d-%02d-%02d", utc.wYear, utc.wMonth, utc.wDay)
                  : FormatString(L"%02d:%02d:%02d.%03d", utc.wHour, utc.wMinute, utc.wSecond, utc.wMilliseconds);
}

/// Draws one row per timestamp, with the step from the one before as a bar on a common axis, or as a mark if it took no
/// time.
std::wstring DrawBars(const Times& times, size_t width)
{
    constexpr size_t kBarWidth = 40;
    constexpr size_t kBarColumn = 65; // columns before a bar
    const size_t barWidth =
        width == 0 ? kBarWidth : std::clamp(width, kBarColumn + 8, kBarColumn + kBarWidth) - kBarColumn;
    std::array<double, kTimestamps.size()> since{}; // milliseconds after the logon; can be negative
    std::ranges::transform(times, since.begin(), [&](const auto& time) {
        return static_cast<double>(static_cast<long long>(*time - *times[0]));
    });
    const auto range = std::ranges::minmax(since);
    const auto column = [&](double at) {
        const double share = range.max == range.min ? 0 : (at - range.min) / (range.max - range.min);
        return static_cast<size_t>(std::lround(share * static_cast<double>(barWidth)));
    };
    std::wstring rows = FormatString(L"    %-16s  %-12s  %12s  %12s\n", L"", L"time", L"since logon", L"step");
    for (size_t i = 0; i < kTimestamps.size(); ++i) {
        const double previous = since[i == 0 ? 0 : i - 1];
        const std::wstring step = i == 0 ? L"" : FormatString(L"%.3f s", (since[i] - previous) / 1000);
        const auto [left, right] = std::minmax({column(previous), column(since[i])});
        rows += FormatString(L"    %-16s  %-12s  %+10.3f s  %12s  |", kTimestamps[i].label,
                             TimeText(*times[i], false).c_str(), since[i] / 1000, step.c_str()) +
                std::wstring(left, L' ') + (left == right ? L"o" : std::wstring(right - left, L'#')) + L"\n";
    }
    return rows;
}

} // namespace

std::wstring DrawTimeline(const Collection& collection, size_t width)
{
    Times times;
    std::wstring plinths;
    bool isLamina = false;
    for (const MetricValue& value : collection.values) {
        isLamina |= value.key.starts_with(L"lamina|");
        for (size_t i = 0; i < kTimestamps.size(); ++i) {
            if (value.key == kTimestamps[i].key && value.type == VT_UI8) {
                times[i] = value.number;
            }
        }
        if (value.key == L"lamina|instances|*") {
            const std::wstring plinth = Printable(value.instance) + L"  " + Printable(value.text);
            plinths += L"    " + Wrapped(plinth, width > 20 ? width - 4 : 0, 6) + L"\n";
        }
    }
    if (!isLamina) {
        return {};
    }
    const bool isComplete = std::find(times.begin(), times.end(), std::nullopt) == times.end();
    return (isComplete ? L"\n  Logon on " + TimeText(*times[0], true) + L", times in UTC\n" + DrawBars(times, width)
                       : L"\n  no timeline\n" + Reasons(collection)) +
           (plinths.empty() ? L"  no plinths\n" : L"  plinths\n" + plinths);
}

} // namespace orvel::console
