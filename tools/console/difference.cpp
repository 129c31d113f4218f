#include "tools/console/writers.h"
#include "tools/utf8.h"

#include <algorithm>
#include <optional>
#include <sstream>

namespace orvel::console {

namespace {

/// Reads the next line that is a value, and sets `number` to its number among all lines; at the end, returns nothing.
std::optional<std::string> NextValue(std::istream& text, size_t& number)
{
    std::string line;
    for (++number; std::getline(text, line); ++number) {
        line.erase(line.find_last_not_of('\r') + 1);
        if (!line.empty() && !line.starts_with("{\"check\":")) {
            return line;
        }
    }
    return std::nullopt;
}

/// Returns the characters around a place, with "..." for those left out.
std::string Around(std::wstring_view line, size_t place, size_t around)
{
    const size_t start = place - std::min(place, around);
    const size_t end = std::min(place + around, line.size());
    return (start > 0 ? "..." : "") + ToUtf8(line.substr(start, end - start)) + (end < line.size() ? "..." : "");
}

} // namespace

std::string Difference(const std::string& expectedText, const std::string& actualText)
{
    constexpr size_t kBeginning = 130;
    constexpr size_t kAround = 24;
    std::istringstream expectedLines(expectedText), actualLines(actualText);
    std::optional<std::string> expected, actual;
    size_t line = 0, ignored = 0;
    do {
        expected = NextValue(expectedLines, line);
        actual = NextValue(actualLines, ignored);
    } while (expected && expected == actual);
    if (!expected && !actual) {
        return {};
    }
    const std::wstring wanted = ToWide(expected.value_or(""));
    const std::wstring written = ToWide(actual.value_or(""));
    std::string text = "at line " + std::to_string(line) + " of what is expected";
    text += expected ? "\n- " + Around(wanted, 0, kBeginning) : "";
    text += actual ? "\n+ " + Around(written, 0, kBeginning) : "";
    if (expected && actual) {
        const auto place = static_cast<size_t>(std::ranges::mismatch(wanted, written).in1 - wanted.begin());
        text += "\n  first difference at character " + std::to_string(place + 1) + ":\n    expected " +
                Around(wanted, place, kAround) + "\n    written  " + Around(written, place, kAround);
    }
    size_t expectedAfter = 0, writtenAfter = 0;
    while (NextValue(expectedLines, ignored)) {
        ++expectedAfter;
    }
    while (NextValue(actualLines, ignored)) {
        ++writtenAfter;
    }
    if (expectedAfter + writtenAfter != 0) {
        text += "\n  lines that follow: " + std::to_string(expectedAfter) + " expected, " +
                std::to_string(writtenAfter) + " written";
    }
    return text;
}

} // namespace orvel::console
