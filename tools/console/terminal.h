#pragma once

#include <string>
#include <string_view>

namespace orvel::console {

/// Marks within a text that is written: what follows is shown in a colour where the output is a terminal and NO_COLOR
/// is not set, else the mark vanishes. `Printable` leaves none of them in foreign text.
constexpr wchar_t kPlain = 1;
constexpr wchar_t kHeading = 2;
constexpr wchar_t kGood = 3;
constexpr wchar_t kBad = 4;

/// Text between two marks.
std::wstring Marked(wchar_t mark, std::wstring_view text);

/// Columns of standard output: the window's, else those that COLUMNS names, else 0 for no limit.
size_t TerminalWidth();

/// Columns that a text without line breaks takes: none for marks and combining characters, two for wide ones.
size_t Width(std::wstring_view text);

/// A text with blanks up to a width.
std::wstring Padded(const std::wstring& text, size_t width);

/// Breaks each line that is wider than `width` (0: none), at a blank where there is one; what does not stand in the
/// first line is indented.
std::wstring Wrapped(std::wstring_view text, size_t width, size_t indent);

/// A text for a terminal: line breaks of all kinds become "\n", a tab a blank, other control characters a mark.
std::wstring Printable(std::wstring text);

} // namespace orvel::console
