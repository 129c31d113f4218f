#include "tools/console/writers.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>

namespace orvel::console {

namespace {

struct Line {
    std::string_view text;
    size_t number;
    bool operator==(const Line& other) const { return text == other.text; }
};

/// The lines that are values, with their numbers among all.
std::vector<Line> Split(std::string_view text)
{
    std::vector<Line> lines;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        if (!line.empty() && !line.starts_with("{\"check\":")) {
            lines.push_back({line, number});
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

/// Where the character begins that a byte belongs to.
size_t Start(std::string_view line, size_t at)
{
    for (; at > 0 && at < line.size() && (line[at] & 0xC0) == 0x80; --at) {
    }
    return at;
}

/// The characters around a place.
std::string Around(std::string_view line, size_t place, size_t around)
{
    const size_t start = Start(line, place > around ? place - around : 0);
    const size_t end = Start(line, std::min(place + around, line.size()));
    return (start > 0 ? "..." : "") + std::string(line.substr(start, end - start)) + (end < line.size() ? "..." : "");
}

/// Two lines of which one stands for the other: their beginnings tell which they are.
std::string ShowBoth(std::string_view expected, std::string_view actual)
{
    constexpr size_t kAround = 24;
    constexpr size_t kBeginning = 130;
    const auto parting = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end()).first;
    const size_t place = Start(expected, static_cast<size_t>(parting - expected.begin()));
    const std::string_view before = expected.substr(0, place);
    const auto character =
        1 + std::count_if(before.begin(), before.end(), [](char byte) { return (byte & 0xC0) != 0x80; });
    return "- " + Around(expected, 0, kBeginning) + "\n+ " + Around(actual, 0, kBeginning) +
           "\n  they part at character " + std::to_string(character) + ":\n    expected " +
           Around(expected, place, kAround) + "\n    written  " + Around(actual, place, kAround) + "\n";
}

} // namespace

std::string Difference(const std::string& expectedText, const std::string& actualText)
{
    constexpr size_t kMost = 20;
    const std::vector<Line> expected = Split(expectedText);
    const std::vector<Line> actual = Split(actualText);
    // What is alike at both ends is left out, and the rest is compared line by line.
    const auto [left, right] = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    const auto [leftEnd, rightEnd] = std::mismatch(expected.rbegin(), std::make_reverse_iterator(left), actual.rbegin(),
                                                   std::make_reverse_iterator(right));
    const std::span missing(left, leftEnd.base());
    const std::span added(right, rightEnd.base());
    std::string text;
    size_t shown = 0;
    bool isGoingOn = false;
    for (size_t i = 0; i < std::max(missing.size(), added.size()); ++i) {
        const bool isBoth = i < missing.size() && i < added.size();
        if (isBoth && missing[i] == added[i]) {
            isGoingOn = false;
            continue;
        }
        if (shown++ == kMost) {
            return text + "  and " + std::to_string(missing.size() - std::min(i, missing.size())) +
                   " more lines expected, " + std::to_string(added.size() - std::min(i, added.size())) +
                   " more written\n";
        }
        if (!std::exchange(isGoingOn, true)) {
            const size_t at = static_cast<size_t>(left - expected.begin()) + i;
            const size_t line = at < expected.size() ? expected[at].number
                                : expected.empty()   ? 1
                                                     : expected.back().number + 1;
            text += "at line " + std::to_string(line) + " of what is expected\n";
        }
        text += isBoth               ? ShowBoth(missing[i].text, added[i].text)
                : i < missing.size() ? "- " + std::string(missing[i].text) + "\n"
                                     : "+ " + std::string(added[i].text) + "\n";
    }
    return text;
}

} // namespace orvel::console
