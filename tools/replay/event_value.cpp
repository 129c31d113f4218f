#include "tools/replay/event_value.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <tuple>

namespace orvel::replay {

namespace {

constexpr std::wstring_view kBlanks = L" \t\r\n";

/// Returns the value of a digit, or 16 for other characters.
unsigned DigitValue(wchar_t c)
{
    constexpr std::wstring_view kDigits = L"0123456789abcdef0123456789ABCDEF";
    const size_t index = kDigits.find(c);
    return index != kDigits.npos ? static_cast<unsigned>(index % 16) : 16;
}

std::optional<uint64_t> ParseDigits(std::wstring_view digits, unsigned base)
{
    uint64_t number = 0;
    for (const wchar_t c : digits) {
        const unsigned digit = DigitValue(c);
        if (digit >= base || number > (std::numeric_limits<uint64_t>::max() - digit) / base) {
            return std::nullopt;
        }
        number = number * base + digit;
    }
    return digits.empty() ? std::nullopt : std::optional(number);
}

/// Removes the digits at the start of `text`, and returns them as a fraction in units of 10^-19.
uint64_t TakeFraction(std::wstring_view& text)
{
    uint64_t fraction = 0;
    for (uint64_t unit = 1'000'000'000'000'000'000; !text.empty() && IsDigit(text.front()); unit /= 10) {
        fraction += unit * static_cast<unsigned>(text.front() - L'0');
        text.remove_prefix(1);
    }
    return fraction;
}

/// Reads the numbers in a text of the form of `pattern`, in which 0 stands for a digit.
template <size_t Count>
std::optional<std::array<uint64_t, Count>> ParseFields(std::wstring_view text, std::wstring_view pattern, unsigned base)
{
    if (text.size() != pattern.size()) {
        return std::nullopt;
    }
    std::array<uint64_t, Count> fields{};
    size_t field = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned digit = DigitValue(text[i]);
        const bool isDigit = pattern[i] == L'0';
        if (isDigit ? digit >= base : text[i] != pattern[i]) {
            return std::nullopt;
        }
        if (isDigit) {
            fields[field] = fields[field] * base + digit;
        } else {
            ++field;
        }
    }
    return fields;
}

std::optional<Guid> ParseGuid(std::wstring_view text)
{
    constexpr std::wstring_view kPattern = L"00000000-0000-0000-0000-000000000000";
    if (text.size() == kPattern.size() + 2 && text.front() == L'{' && text.back() == L'}') {
        text = text.substr(1, kPattern.size());
    }
    return ParseFields<std::tuple_size_v<Guid>>(text, kPattern, 16);
}

/// Removes the part of `text` up to the next hyphen, and returns it without the hyphen.
std::wstring_view TakePart(std::wstring_view& text)
{
    const size_t end = std::min(text.find(L'-'), text.size());
    const std::wstring_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

std::optional<Sid> ParseSid(std::wstring_view text)
{
    if (!(text.starts_with(L"S-1-") || text.starts_with(L"s-1-")) || text.ends_with(L'-')) {
        return std::nullopt;
    }
    text.remove_prefix(4);
    const auto authority = ParseWholeNumber(TakePart(text));
    if (!authority || authority->whole >= uint64_t{1} << 48 || text.empty()) {
        return std::nullopt;
    }
    Sid sid{authority->whole};
    for (; !text.empty(); ++sid.count) {
        const auto part = ParseDigits(TakePart(text), 10);
        if (!part || *part > std::numeric_limits<uint32_t>::max() || sid.count == sid.parts.size()) {
            return std::nullopt;
        }
        sid.parts[sid.count] = static_cast<uint32_t>(*part);
    }
    return sid;
}

} // namespace

std::strong_ordering Number::operator<=>(const Number& other) const
{
    if (isNegative != other.isNegative) {
        return other.isNegative <=> isNegative;
    }
    const auto magnitudes = std::tie(whole, fraction) <=> std::tie(other.whole, other.fraction);
    return isNegative ? 0 <=> magnitudes : magnitudes;
}

std::optional<Number> ParseWholeNumber(std::wstring_view text)
{
    const bool isNegative = text.starts_with(L'-');
    const unsigned base = text.starts_with(L"0x") ? 16 : 10;
    const auto magnitude = ParseDigits(text.substr(base == 16 ? 2 : size_t{isNegative}), base);
    return magnitude ? std::optional(Number{isNegative && *magnitude != 0, *magnitude}) : std::nullopt;
}

std::optional<Number> ParseNumber(std::wstring_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    text.remove_suffix(text.size() - (text.find_last_not_of(kBlanks) + 1)); // npos + 1 is 0
    const size_t point = text.find(L'.');
    if (point == text.npos) {
        return ParseWholeNumber(text);
    }
    const bool isNegative = text.starts_with(L'-');
    const std::wstring_view before = text.substr(0, point).substr(isNegative ? 1 : 0);
    std::wstring_view after = text.substr(point + 1);
    const auto whole = before.empty() && !after.empty() ? std::optional(uint64_t{0}) : ParseDigits(before, 10);
    const uint64_t fraction = TakeFraction(after);
    if (!whole || !after.empty()) {
        return std::nullopt;
    }
    return Number{isNegative && (*whole != 0 || fraction != 0), *whole, fraction};
}

std::optional<uint64_t> ParseEventTime(std::wstring_view text)
{
    constexpr std::wstring_view kPattern = L"0000-00-00T00:00:00";
    const auto fields = ParseFields<6>(text.substr(0, kPattern.size()), kPattern, 10);
    if (!fields) {
        return std::nullopt;
    }
    text.remove_prefix(kPattern.size());
    uint64_t fraction = 0;
    if (text.size() > 1 && text[0] == L'.' && IsDigit(text[1])) {
        text.remove_prefix(1);
        fraction = TakeFraction(text) / 1'000'000'000'000;
    }

    const auto [year, month, day, hour, minute, second] = *fields;
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(year)),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    constexpr std::chrono::sys_days kEpoch = std::chrono::year(1601) / 1 / 1;
    const bool isUtc = text == L"Z" || text.empty(); // what a time without Z means is not documented
    if (!isUtc || !date.ok() || date < kEpoch || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    const auto days = static_cast<uint64_t>((std::chrono::sys_days{date} - kEpoch).count());
    return (((days * 24 + hour) * 60 + minute) * 60 + second) * 10'000'000 + fraction;
}

bool HasOrder(const Value& value)
{
    return std::holds_alternative<Number>(value) || std::holds_alternative<EventTime>(value);
}

Value ParseValue(std::wstring_view text)
{
    if (const auto number = ParseNumber(text)) {
        return *number;
    }
    if (const auto time = ParseEventTime(text)) {
        return EventTime{*time};
    }
    if (const auto guid = ParseGuid(text)) {
        return *guid;
    }
    if (const auto sid = ParseSid(text)) {
        return *sid;
    }
    return {};
}

} // namespace orvel::replay
