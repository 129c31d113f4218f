#include "tools/console/difference.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace orvel::console {

namespace {

using Lines = std::vector<std::string_view>;

Lines Split(std::string_view text)
{
    Lines lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        if (!line.empty()) {
            lines.push_back(line);
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

/// The bytes around a place, not cut within a character.
std::string Around(std::string_view line, size_t place, size_t around)
{
    const auto isInside = [&](size_t at) { return at < line.size() && (line[at] & 0xC0) == 0x80; };
    size_t start = place > around ? place - around : 0;
    size_t end = std::min(place + around, line.size());
    for (; isInside(start); --start) {
    }
    for (; isInside(end); ++end) {
    }
    return (start > 0 ? "..." : "") + std::string(line.substr(start, end - start)) + (end < line.size() ? "..." : "");
}

/// Expected and actual lines in a row that have no counterpart.
std::string Show(const Lines& expected, size_t from, size_t to, const Lines& actual, size_t start, size_t end)
{
    constexpr size_t kMost = 20;
    constexpr size_t kAround = 24;
    constexpr size_t kBeginning = 130;
    std::string text;
    for (size_t shown = 0; from < to || start < end; ++shown, ++from, ++start) {
        if (shown == kMost) {
            return text + "  and " + std::to_string(to - std::min(from, to)) + " more expected, " +
                   std::to_string(end - std::min(start, end)) + " more written\n";
        }
        const bool isBoth = from < to && start < end;
        // Of two that stand for each other, their beginnings tell which they are.
        const auto shorten = [&](std::string_view line) {
            return isBoth ? Around(line, 0, kBeginning) : std::string(line);
        };
        text += from < to ? "- " + shorten(expected[from]) + "\n" : "";
        text += start < end ? "+ " + shorten(actual[start]) + "\n" : "";
        if (isBoth) {
            const auto& [left, right] = std::pair(expected[from], actual[start]);
            const auto place = static_cast<size_t>(
                std::mismatch(left.begin(), left.end(), right.begin(), right.end()).first - left.begin());
            text += "  they part at character " + std::to_string(place + 1) + ":\n    expected " +
                    Around(left, place, kAround) + "\n    written  " + Around(right, place, kAround) + "\n";
        }
    }
    return text;
}

} // namespace

std::string Difference(const std::string& expectedText, const std::string& actualText)
{
    const Lines expected = Split(expectedText);
    const Lines actual = Split(actualText);
    std::string text;
    size_t left = 0;
    size_t right = 0;
    while (left < expected.size() || right < actual.size()) {
        if (left < expected.size() && right < actual.size() && expected[left] == actual[right]) {
            ++left;
            ++right;
            continue;
        }
        // The lines meet again where the fewest are left out; looked for within a bounded distance.
        constexpr size_t kFarthest = 400;
        size_t skipLeft = expected.size() - left;
        size_t skipRight = actual.size() - right;
        for (size_t skipped = 1; skipped < std::min(kFarthest, skipLeft + skipRight); ++skipped) {
            for (size_t i = 0; i <= skipped; ++i) {
                const size_t a = left + i;
                const size_t b = right + skipped - i;
                if (a < expected.size() && b < actual.size() && expected[a] == actual[b]) {
                    skipLeft = i;
                    skipRight = skipped - i;
                }
            }
        }
        text += "at line " + std::to_string(left + 1) + " of what is expected\n" +
                Show(expected, left, left + skipLeft, actual, right, right + skipRight);
        left += skipLeft;
        right += skipRight;
    }
    return text;
}

} // namespace orvel::console
