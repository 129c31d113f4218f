#include "tools/replay/event_value.h"

#include "tools/replay/event_time.h"

#include <algorithm>
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

/// Removes the part of `text` up to the next hyphen, and returns it without the hyphen.
std::wstring_view TakePart(std::wstring_view& text)
{
    const size_t end = std::min(text.find(L'-'), text.size());
    const std::wstring_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
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
    std::wstring_view digits = text.substr(point + 1);
    const auto whole = before.empty() && !digits.empty() ? std::optional(uint64_t{0}) : ParseDigits(before, 10);
    if (!whole || !std::all_of(digits.begin(), digits.end(), IsDigit)) {
        return std::nullopt;
    }
    Number number{false, *whole};
    for (uint64_t unit = 1'000'000'000'000'000'000; unit != 0 && !digits.empty(); unit /= 10, digits.remove_prefix(1)) {
        number.fraction += unit * static_cast<unsigned>(digits.front() - L'0');
    }
    number.isNegative = isNegative && number != Number{};
    return number;
}

std::optional<Guid> ParseGuid(std::wstring_view text)
{
    constexpr size_t kSize = 36;
    constexpr std::array<size_t, 5> kDigits = {8, 4, 4, 4, 12};
    if (text.size() == kSize + 2 && text.front() == L'{' && text.back() == L'}') {
        text = text.substr(1, kSize);
    }
    if (text.size() != kSize) {
        return std::nullopt;
    }
    Guid guid;
    for (size_t i = 0; i < kDigits.size(); ++i) {
        const std::wstring_view digits = TakePart(text);
        const auto number = ParseDigits(digits, 16);
        if (!number || digits.size() != kDigits[i]) {
            return std::nullopt;
        }
        guid.parts[i] = *number;
    }
    return guid;
}

std::optional<Sid> ParseSid(std::wstring_view text)
{
    if (!text.starts_with(L"S-1-") && !text.starts_with(L"s-1-")) {
        return std::nullopt;
    }
    text.remove_prefix(4);
    const bool endsInHyphen = text.ends_with(L'-');
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
    return endsInHyphen ? std::nullopt : std::optional(sid);
}

Literal::Literal(std::wstring literalText, bool isQuotedText) : text(std::move(literalText)), isQuoted(isQuotedText)
{
    if (const auto number = ParseNumber(text)) {
        value = *number;
    } else if (const auto time = ParseEventTime(text)) {
        value = EventTime{*time};
    } else if (const auto guid = ParseGuid(text)) {
        value = *guid;
    } else if (const auto sid = ParseSid(text)) {
        value = *sid;
    }
}

} // namespace orvel::replay
