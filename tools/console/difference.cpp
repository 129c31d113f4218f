#include "tools/console/writers.h"

#include <algorithm>
#include <string_view>

namespace orvel::console {

namespace {

struct Line {
    std::string_view text;
    size_t number;
    bool operator==(const Line& other) const { return text == other.text; }
};

/// Returns the lines that are values, with their numbers among all lines.
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

/// Returns whether a byte of UTF-8 begins a character.
bool IsStart(char byte)
{
    return (byte & 0xC0) != 0x80;
}

/// Returns where the character begins that a byte belongs to.
size_t Start(std::string_view line, size_t at)
{
    while (at > 0 && at < line.size() && !IsStart(line[at])) {
        --at;
    }
    return at;
}

/// Returns the characters around a place, with "..." for those left out.
std::string Around(std::string_view line, size_t place, size_t around)
{
    const size_t start = Start(line, place > around ? place - around : 0);
    const size_t end = Start(line, std::min(place + around, line.size()));
    return (start > 0 ? "..." : "") + std::string(line.substr(start, end - start)) + (end < line.size() ? "..." : "");
}

/// Shows where two lines begin to differ.
std::string ShowPlace(std::string_view expected, std::string_view actual)
{
    constexpr size_t kAround = 24;
    const auto differing = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end()).first;
    const size_t place = Start(expected, static_cast<size_t>(differing - expected.begin()));
    const std::string_view before = expected.substr(0, place);
    const auto character = 1 + std::count_if(before.begin(), before.end(), IsStart);
    return "  first difference at character " + std::to_string(character) + ":\n    expected " +
           Around(expected, place, kAround) + "\n    written  " + Around(actual, place, kAround) + "\n";
}

} // namespace

std::string Difference(const std::string& expectedText, const std::string& actualText)
{
    constexpr size_t kBeginning = 130;
    const std::vector<Line> expected = Split(expectedText);
    const std::vector<Line> actual = Split(actualText);
    const auto [left, right] = std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
    const bool isExpected = left != expected.end();
    const bool isWritten = right != actual.end();
    if (!isExpected && !isWritten) {
        return {};
    }
    const size_t number = isExpected ? left->number : expected.empty() ? 1 : expected.back().number + 1;
    std::string text = "at line " + std::to_string(number) + " of what is expected\n";
    text += isExpected ? "- " + Around(left->text, 0, kBeginning) + "\n" : "";
    text += isWritten ? "+ " + Around(right->text, 0, kBeginning) + "\n" : "";
    text += isExpected && isWritten ? ShowPlace(left->text, right->text) : "";
    const auto expectedAfter = expected.end() - left - (isExpected ? 1 : 0);
    const auto writtenAfter = actual.end() - right - (isWritten ? 1 : 0);
    if (expectedAfter + writtenAfter != 0) {
        text += "  lines that follow: " + std::to_string(expectedAfter) + " expected, " + std::to_string(writtenAfter) +
                " written\n";
    }
    return text;
}

} // namespace orvel::console
