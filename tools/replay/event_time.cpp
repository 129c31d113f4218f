#include "tools/replay/event_time.h"

namespace orvel::replay {

namespace {

constexpr unsigned kFirstYear = 1601;
constexpr unsigned kLastYear = 30827; // SYSTEMTIME's

/// Takes between `least` and `most` digits off the text's front.
bool TakeNumber(std::wstring_view& text, size_t least, size_t most, unsigned& number)
{
    size_t count = 0;
    number = 0;
    while (count < most && count < text.size() && text[count] >= L'0' && text[count] <= L'9') {
        number = number * 10 + static_cast<unsigned>(text[count++] - L'0');
    }
    text.remove_prefix(count);
    return count >= least;
}

bool Take(std::wstring_view& text, wchar_t character)
{
    const bool found = !text.empty() && text.front() == character;
    text.remove_prefix(found ? 1 : 0);
    return found;
}

bool IsLeapYear(unsigned year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

} // namespace

std::optional<uint64_t> ParseEventTime(std::wstring_view text)
{
    constexpr unsigned kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!(TakeNumber(text, 4, 5, year) && Take(text, L'-') && TakeNumber(text, 2, 2, month) && Take(text, L'-') &&
          TakeNumber(text, 2, 2, day) && Take(text, L'T') && TakeNumber(text, 2, 2, hour) && Take(text, L':') &&
          TakeNumber(text, 2, 2, minute) && Take(text, L':') && TakeNumber(text, 2, 2, second))) {
        return std::nullopt;
    }
    if (year < kFirstYear || year > kLastYear || month < 1 || month > 12 || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    const unsigned leapDay = IsLeapYear(year) ? 1 : 0;
    const unsigned daysInMonth = kDaysBefore[month] - kDaysBefore[month - 1] + (month == 2 ? leapDay : 0);
    if (day < 1 || day > daysInMonth) {
        return std::nullopt;
    }

    uint64_t fraction = 0;
    if (Take(text, L'.')) {
        uint64_t unit = 1'000'000;
        unsigned digit = 0;
        if (!TakeNumber(text, 1, 1, digit)) {
            return std::nullopt;
        }
        do {
            fraction += digit * unit;
            unit /= 10;
        } while (TakeNumber(text, 1, 1, digit));
    }
    if (!Take(text, L'Z') || !text.empty()) {
        return std::nullopt;
    }

    const unsigned past = year - 1;
    const uint64_t days = uint64_t{past} * 365 + past / 4 - past / 100 + past / 400 + kDaysBefore[month - 1] +
                          (month > 2 ? leapDay : 0) + day - 1;
    constexpr uint64_t kDaysTo1601 = 584'388;
    return (((days - kDaysTo1601) * 24 + hour) * 60 + minute) * 60 * 10'000'000 + uint64_t{second} * 10'000'000 +
           fraction;
}

} // namespace orvel::replay
