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

struct Guid {
    std::array<uint64_t, 5> parts{}; ///< the numbers between the hyphens
    bool operator==(const Guid&) const = default;
};

/// Reads a GUID in either case, with or without braces.
std::optional<Guid> ParseGuid(std::wstring_view text);

struct Sid {
    uint64_t authority = 0;
    size_t count = 0;
    std::array<uint32_t, 15> parts{};
    bool operator==(const Sid&) const = default;
};

/// Reads a SID, "S-1-5-18".
std::optional<Sid> ParseSid(std::wstring_view text);

/// 100-ns units since 1601-01-01 UTC.
struct EventTime {
    uint64_t ticks = 0;
    auto operator<=>(const EventTime&) const = default;
};

/// A literal of a query. Its syntax decides its type ([MS-EVEN6] 2.2.15.2); std::monostate is a text.
struct Literal {
    Literal(std::wstring literalText, bool isQuotedText);

    std::wstring text;
    bool isQuoted;
    std::variant<std::monostate, Number, EventTime, Guid, Sid> value;
};

} // namespace orvel::replay
