#include "host/format.h"
#include "tools/console/terminal.h"
#include "tools/console/writers.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace orvel::console {

namespace {

struct Moment {
    const wchar_t* key;
    const wchar_t* label;
};

constexpr std::array<Moment, 4> kTimestamps = {{{L"lamina|logon_timestamp", L"logon"},
                                                {L"lamina|logon_response_timestamp", L"manager response"},
                                                {L"lamina|volumes_ready_timestamp", L"volumes ready"},
                                                {L"lamina|all_done_timestamp", L"all done"}}};
constexpr size_t kBarWidth = 40;
constexpr size_t kBarColumn = 65; // columns before a bar

// Formats the date or the time of day, in UTC, of a time in milliseconds since 1970.
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

std::wstring Seconds(double milliseconds, const wchar_t* format)
{
    return FormatString(format, milliseconds / 1000);
}

// Draws the step from one time to the next as a bar on the axis, or as a mark if it took no time.
std::wstring Bar(double from, double to, double first, double span, double width)
{
    const auto column = [&](double at) {
        return span == 0 ? 0 : static_cast<size_t>(std::lround((at - first) / span * width));
    };
    const auto [left, right] = std::minmax({column(from), column(to)});
    return std::wstring(left, L' ') + (left == right ? std::wstring(L"o") : std::wstring(right - left, L'#'));
}

} // namespace

std::wstring DrawTimeline(const Collection& collection, size_t width)
{
    std::array<const MetricValue*, kTimestamps.size()> found{};
    std::wstring plinths;
    bool isLamina = false;
    for (const MetricValue& value : collection.values) {
        isLamina |= value.key.starts_with(L"lamina|");
        for (size_t i = 0; i < kTimestamps.size(); ++i) {
            if (value.key == kTimestamps[i].key && value.type == VT_UI8) {
                found[i] = &value;
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
    std::wstring picture = L"\n";
    if (std::find(found.begin(), found.end(), nullptr) != found.end()) {
        picture += L"  no timeline\n" + Reasons(collection);
    } else {
        std::array<double, kTimestamps.size()>
            since{}; // milliseconds after the logon; the wrapped difference has a sign
        for (size_t i = 0; i < since.size(); ++i) {
            since[i] = static_cast<double>(static_cast<long long>(found[i]->number - found[0]->number));
        }
        const auto [first, last] = std::minmax_element(since.begin(), since.end());
        const double span = *last - *first;
        const size_t columns = std::clamp(width, kBarColumn + 8, kBarColumn + kBarWidth) - kBarColumn;
        const auto barWidth = static_cast<double>(width == 0 ? kBarWidth : columns);
        picture += L"  Logon on " + TimeText(found[0]->number, true) + L", times in UTC\n" +
                   FormatString(L"    %-16s  %-12s  %12s  %12s\n", L"", L"time", L"since logon", L"step");
        for (size_t i = 0; i < kTimestamps.size(); ++i) {
            const double previous = since[i == 0 ? 0 : i - 1];
            const std::wstring time = TimeText(found[i]->number, false);
            picture += FormatString(L"    %-16s  %-12s  %12s  %12s  |", kTimestamps[i].label, time.c_str(),
                                    Seconds(since[i], L"%+.3f s").c_str(),
                                    i == 0 ? L"" : Seconds(since[i] - previous, L"%.3f s").c_str()) +
                       Bar(previous, since[i], *first, span, barWidth) + L"\n";
        }
    }
    return picture + (plinths.empty() ? L"  no plinths\n" : L"  plinths\n" + plinths);
}

} // namespace orvel::console
