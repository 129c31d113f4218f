#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace orvel::replay {

constexpr bool IsDigit(wchar_t c)
{
    return c >= L'0' && c <= L'9';
}

/// A number. Exact: no value of 64 bits is rounded, and 19 fraction digits count.
struct Number {
    bool isNegative = false; ///< false for zero
    uint64_t whole = 0;
    uint64_t fraction = 0; ///< in units of 10^-19

    bool operator==(const Number&) const = default;
    std::strong_ordering operator<=>(const Number& other) const;
};

/// Reads a decimal number, with or without a minus sign, or a hexadecimal one that begins with 0x. Returns nothing for
/// other texts and for numbers of more than 64 bits.
std::optional<Number> ParseWholeNumber(std::wstring_view text);

/// Reads what ParseWholeNumber reads and decimals ("3.5", ".5", "3."), with blanks around them.
std::optional<Number> ParseNumber(std::wstring_view text);

/// Reads a time in the Event Log's format, "2026-01-22T02:01:56.1870423Z", with any number of fraction digits. Returns
/// 100-ns units since 1601-01-01 UTC, or nothing for other texts. Digits after the seventh are ignored.
std::optional<uint64_t> ParseEventTime(std::wstring_view text);

enum class EventTime : uint64_t {}; ///< as ParseEventTime returns it

using Guid = std::array<uint64_t, 5>; ///< the numbers between the hyphens

struct Sid {
    uint64_t authority = 0;
    size_t count = 0;
    std::array<uint32_t, 15> parts{};
    auto operator<=>(const Sid&) const = default;
};

/// The value of a text, whose syntax decides its type ([MS-EVEN6] 2.2.15.2); std::monostate is any other text.
using Value = std::variant<std::monostate, Number, EventTime, Guid, Sid>;

/// Returns whether values of this type are ordered: numbers and times.
bool HasOrder(const Value& value);

/// Reads a number, a time, a GUID in either case, with or without braces, or a SID.
Value ParseValue(std::wstring_view text);

} // namespace orvel::replay
