#include "tools/replay/event_value.h"

#include "tools/replay/event_time.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace orvel::replay {

namespace {

constexpr std::wstring_view kBlanks = L" \t\r\n";

bool IsDigit(wchar_t c)
{
    return c >= L'0' && c <= L'9';
}

/// The value of a digit; 16 or more for other characters.
unsigned DigitValue(wchar_t c)
{
    return IsDigit(c)               ? static_cast<unsigned>(c - L'0')
           : c >= L'a' && c <= L'f' ? static_cast<unsigned>(c - L'a') + 10
           : c >= L'A' && c <= L'F' ? static_cast<unsigned>(c - L'A') + 10
                                    : 16;
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

/// The part of `text` before the next hyphen, which is removed together with it.
std::wstring_view TakePart(std::wstring_view& text)
{
    const size_t end = std::min(text.find(L'-'), text.size());
    const std::wstring_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

} // namespace

std::optional<WholeNumber> ParseWholeNumber(std::wstring_view text)
{
    WholeNumber number;
    if (text.starts_with(L'-')) {
        number.isNegative = true;
        text.remove_prefix(1);
    }
    const bool isHexadecimal = !number.isNegative && text.starts_with(L"0x");
    const auto magnitude = isHexadecimal ? ParseDigits(text.substr(2), 16) : ParseDigits(text, 10);
    if (!magnitude) {
        return std::nullopt;
    }
    number.magnitude = *magnitude;
    number.isNegative = number.isNegative && *magnitude != 0;
    return number;
}

std::optional<Number> ParseNumber(std::wstring_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    text.remove_suffix(text.size() - (text.find_last_not_of(kBlanks) + 1)); // npos + 1 is 0
    const size_t point = text.find(L'.');
    std::wstring_view digits = point != text.npos ? text.substr(point + 1) : std::wstring_view();
    std::wstring_view before = text.substr(0, point);
    const bool isNegative = before.starts_with(L'-');
    if (point != text.npos && before.size() == (isNegative ? 1 : 0)) {
        if (digits.empty()) {
            return std::nullopt;
        }
        before = isNegative ? L"-0" : L"0";
    }
    const auto whole = ParseWholeNumber(before);
    const bool isHexadecimal = before.starts_with(L"0x");
    if (!whole || !std::all_of(digits.begin(), digits.end(), IsDigit) || (point != text.npos && isHexadecimal)) {
        return std::nullopt;
    }
    Number number{isNegative, whole->magnitude, 0};
    for (uint64_t unit = 1'000'000'000'000'000'000; unit != 0 && !digits.empty(); unit /= 10, digits.remove_prefix(1)) {
        number.fraction += unit * static_cast<unsigned>(digits.front() - L'0');
    }
    number.isNegative = isNegative && (number.whole != 0 || number.fraction != 0);
    return number;
}

bool operator==(const Number& left, const Number& right)
{
    return (left <=> right) == 0;
}

std::strong_ordering operator<=>(const Number& left, const Number& right)
{
    if (left.isNegative != right.isNegative) {
        return left.isNegative ? std::strong_ordering::less : std::strong_ordering::greater;
    }
    const Number& low = left.isNegative ? right : left;
    const Number& high = left.isNegative ? left : right;
    return std::tie(low.whole, low.fraction) <=> std::tie(high.whole, high.fraction);
}

std::optional<Guid> ParseGuid(std::wstring_view text)
{
    constexpr std::wstring_view kPattern = L"00000000-0000-0000-0000-000000000000"; // 0 stands for any digit
    if (text.size() == kPattern.size() + 2 && text.front() == L'{' && text.back() == L'}') {
        text = text.substr(1, kPattern.size());
    }
    if (text.size() != kPattern.size()) {
        return std::nullopt;
    }
    Guid guid;
    size_t digits = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned digit = DigitValue(text[i]);
        if (kPattern[i] == L'-' ? text[i] != L'-' : digit >= 16) {
            return std::nullopt;
        }
        if (kPattern[i] != L'-') {
            uint64_t& half = digits++ < 16 ? guid.high : guid.low;
            half = half * 16 + digit;
        }
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
    if (!authority || authority->isNegative || authority->magnitude >= uint64_t{1} << 48 || text.empty()) {
        return std::nullopt;
    }
    Sid sid{authority->magnitude};
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
