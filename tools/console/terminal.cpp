#include "tools/console/terminal.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace orvel::console {

namespace {

struct Range {
    uint32_t first, last;
    size_t width;
};

// The blocks of combining characters, and the scripts and symbols of Unicode's East Asian Wide and Fullwidth.
constexpr Range kRanges[] = {{0x0300, 0x036F, 0},   {0x0483, 0x0489, 0},   {0x0591, 0x05BD, 0},   {0x0610, 0x061A, 0},
                             {0x064B, 0x065F, 0},   {0x0900, 0x0902, 0},   {0x093C, 0x093C, 0},   {0x0941, 0x0948, 0},
                             {0x0E31, 0x0E31, 0},   {0x0E34, 0x0E3A, 0},   {0x0E47, 0x0E4E, 0},   {0x1100, 0x115F, 2},
                             {0x1AB0, 0x1AFF, 0},   {0x1DC0, 0x1DFF, 0},   {0x200B, 0x200F, 0},   {0x20D0, 0x20FF, 0},
                             {0x2E80, 0x303E, 2},   {0x3041, 0xA4CF, 2},   {0xA960, 0xA97F, 2},   {0xAC00, 0xD7A3, 2},
                             {0xF900, 0xFAFF, 2},   {0xFE00, 0xFE0F, 0},   {0xFE20, 0xFE2F, 0},   {0xFE30, 0xFE6F, 2},
                             {0xFF01, 0xFF60, 2},   {0xFFE0, 0xFFE6, 2},   {0x1F300, 0x1F64F, 2}, {0x1F680, 0x1F6FF, 2},
                             {0x1F900, 0x1F9FF, 2}, {0x20000, 0x3FFFD, 2}, {0xE0100, 0xE01EF, 0}, {kPlain, kBad, 0}};

/// Returns the columns of the character at `at`, and moves `at` to the next one.
size_t TakeWidth(std::wstring_view text, size_t& at)
{
    uint32_t character = text[at++];
    if (IS_HIGH_SURROGATE(character) && at < text.size() && IS_LOW_SURROGATE(text[at])) {
        character = 0x10000 + ((character - 0xD800) << 10) + (static_cast<uint32_t>(text[at++]) - 0xDC00);
    }
    for (const Range& range : kRanges) {
        if (character >= range.first && character <= range.last) {
            return range.width;
        }
    }
    return 1;
}

/// Returns the length of the first line of a text: up to a line break, or up to the last blank before the width is
/// exceeded, or up to that place if there is no blank.
size_t LineLength(std::wstring_view text, size_t width)
{
    size_t column = 0;
    size_t blank = text.npos;
    size_t at = 0;
    while (at < text.size() && text[at] != L'\n') {
        const size_t start = at;
        const size_t columns = TakeWidth(text, at);
        blank = text[start] == L' ' ? start : blank;
        if (width != 0 && column != 0 && column + columns > width) {
            return std::min(blank, start);
        }
        column += columns;
    }
    return at;
}

} // namespace

std::wstring Marked(wchar_t mark, std::wstring_view text)
{
    return mark + std::wstring(text) + kPlain;
}

size_t TerminalWidth()
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info)) {
        return static_cast<size_t>(info.srWindow.Right - info.srWindow.Left + 1);
    }
    const char* const columns = std::getenv("COLUMNS");
    return columns == nullptr ? 0 : std::strtoul(columns, nullptr, 10);
}

size_t Width(std::wstring_view text)
{
    size_t width = 0;
    for (size_t at = 0; at < text.size();) {
        width += TakeWidth(text, at);
    }
    return width;
}

std::wstring Padded(const std::wstring& text, size_t width)
{
    const size_t own = Width(text);
    return text + std::wstring(own < width ? width - own : 0, L' ');
}

std::wstring Wrapped(std::wstring_view text, size_t width, size_t indent)
{
    std::wstring result;
    while (true) {
        const size_t length = LineLength(text, width);
        result += text.substr(0, length);
        if (length == text.size()) {
            return result;
        }
        const bool isBreak = text[length] == L' ' || text[length] == L'\n'; // else a word is broken
        text.remove_prefix(isBreak ? length + 1 : length);
        const bool isBlank = text.empty() || text[0] == L'\n';
        result.append(1, L'\n').append(isBlank ? 0 : indent, L' ');
    }
}

std::wstring Printable(std::wstring text)
{
    for (const std::wstring_view lineBreak : {L"<br />", L"\r\n"}) {
        for (size_t at = text.find(lineBreak); at != text.npos; at = text.find(lineBreak, at)) {
            text.replace(at, lineBreak.size(), L"\n");
        }
    }
    for (wchar_t& unit : text) {
        if (unit == L'\t') {
            unit = L' ';
        } else if (unit != L'\n' && (unit < 0x20 || (unit >= 0x7F && unit < 0xA0))) {
            unit = 0xFFFD;
        }
    }
    return text;
}

} // namespace orvel::console
