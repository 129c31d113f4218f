#pragma once

#include <string>
#include <string_view>

namespace orvel::console {

/// Marks in a text for output: the text after a mark is coloured if the output is a terminal and NO_COLOR is not set;
/// otherwise marks are left out. `Printable` removes them from other programs' text.
constexpr wchar_t kPlain = 1;
constexpr wchar_t kHeading = 2;
constexpr wchar_t kGood = 3;
constexpr wchar_t kBad = 4;

/// Returns a text that begins with a mark and ends with kPlain.
std::wstring Marked(wchar_t mark, std::wstring_view text);

/// Returns the columns of the terminal, or else of the variable COLUMNS, or else 0: no limit.
size_t TerminalWidth();

/// Returns the columns of a text without line breaks: none for marks and combining characters, two for wide characters.
size_t Width(std::wstring_view text);

/// Appends blanks up to a width.
std::wstring Padded(const std::wstring& text, size_t width);

/// Breaks lines that are wider than `width` (0: none), at a blank if there is one. All lines but the first are
/// indented.
std::wstring Wrapped(std::wstring_view text, size_t width, size_t indent);

/// Makes a text safe for a terminal: line breaks of all kinds become "\n", tabs blanks, control characters U+FFFD.
std::wstring Printable(std::wstring text);

} // namespace orvel::console
