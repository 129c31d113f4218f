// Compares parsed event times with the C library's calendar, and parsed numbers with std::from_chars.
#include "tools/fuzz/fuzz.h"
#include "tools/replay/event_value.h"

#include <charconv>
#include <ctime>

static std::string PrintTime(uint64_t fileTime)
{
    const auto seconds = static_cast<time_t>(fileTime / 10'000'000) - 11'644'473'600; // from 1601 to 1970
    char text[40];
    const size_t size = std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S.", std::gmtime(&seconds));
    std::snprintf(text + size, sizeof(text) - size, "%07uZ", unsigned(fileTime % 10'000'000));
    return text;
}

void orvel::Fuzz(std::wstring_view text, std::string_view bytes)
{
    if (const auto time = replay::ParseEventTime(text)) {
        std::string whole(bytes.substr(0, bytes.find('Z')));
        whole += whole.find('.') == whole.npos ? "." : "";
        whole.resize(whole.find('.') + 8, '0');
        assert(PrintTime(*time) == whole + "Z");
    }
    uint64_t fileTime = 0;
    std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof(fileTime)), reinterpret_cast<char*>(&fileTime));
    fileTime %= 2'650'467'744'000'000'000; // 10000-01-01, after the last year of four digits
    const std::string printed = PrintTime(fileTime);
    assert(replay::ParseEventTime(std::wstring(printed.begin(), printed.end())) == fileTime);

    const auto number = replay::ParseWholeNumber(text);
    const bool isNegative = bytes.starts_with('-'), isHexadecimal = bytes.starts_with("0x");
    const std::string_view digits = bytes.substr(isHexadecimal ? 2 : size_t{isNegative});
    uint64_t expected = 0;
    const auto result = std::from_chars(digits.begin(), digits.end(), expected, isHexadecimal ? 16 : 10);
    assert(number.has_value() == (result.ec == std::errc() && result.ptr == digits.end()));
    assert(!number || (number->whole == expected && number->isNegative == (isNegative && expected != 0)));
}
