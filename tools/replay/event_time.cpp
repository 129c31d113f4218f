#include "tools/replay/event_time.h"

#include "tools/replay/event_value.h"

#include <array>
#include <chrono>

namespace orvel::replay {

std::optional<uint64_t> ParseEventTime(std::wstring_view text)
{
    constexpr std::wstring_view kPattern = L"0000-00-00T00:00:00"; // 0 stands for any digit
    if (text.size() < kPattern.size()) {
        return std::nullopt;
    }
    std::array<unsigned, 6> fields{};
    size_t field = 0;
    for (size_t i = 0; i < kPattern.size(); ++i) {
        if (kPattern[i] == L'0' ? !IsDigit(text[i]) : text[i] != kPattern[i]) {
            return std::nullopt;
        }
        if (IsDigit(text[i])) {
            fields[field] = fields[field] * 10 + static_cast<unsigned>(text[i] - L'0');
        } else {
            ++field;
        }
    }
    text.remove_prefix(kPattern.size());

    uint64_t fraction = 0;
    if (text.starts_with(L'.')) {
        size_t digits = 1;
        for (uint64_t unit = 1'000'000; digits < text.size() && IsDigit(text[digits]); ++digits, unit /= 10) {
            fraction += unit * static_cast<unsigned>(text[digits] - L'0');
        }
        text.remove_prefix(digits > 1 ? digits : 0);
    }

    const auto [year, month, day, hour, minute, second] = fields;
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                                           std::chrono::day(day)};
    constexpr std::chrono::sys_days kEpoch = std::chrono::year(1601) / 1 / 1;
    const bool isUtc = text == L"Z" || text.empty(); // what a time without Z means is not documented
    if (!isUtc || !date.ok() || date < kEpoch || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    const auto days = static_cast<uint64_t>((std::chrono::sys_days{date} - kEpoch).count());
    return (((days * 24 + hour) * 60 + minute) * 60 + second) * 10'000'000 + fraction;
}

} // namespace orvel::replay
