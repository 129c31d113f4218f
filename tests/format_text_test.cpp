// Compares wide formatting with joined pieces: lengths around every power of two, units that no encoding has.
#include "host/format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace orvel {
namespace {

TEST(FormatString, AgreesWithJoinedPieces)
{
    std::mt19937 random(20240305); // the same texts in every run
    const auto padded = [](const std::wstring& digits, size_t width) {
        return std::wstring(width - std::min(width, digits.size()), L'0') + digits;
    };
    for (unsigned round = 0; round < 4000; ++round) {
        std::wstring texts[2];
        for (auto& text : texts) {
            text.resize(random() % 3 == 0 ? random() % 8 : (size_t{1} << random() % 14) - random() % 2);
            // Everything but the NUL that would end it: per cents, surrogates alone, noncharacters.
            std::generate(text.begin(), text.end(), [&] { return static_cast<wchar_t>(1 + random() % 0xFFFF); });
        }
        const auto code = static_cast<unsigned long>(random());
        std::wstring hexadecimal;
        for (int shift = 28; shift >= 0; shift -= 4) {
            hexadecimal += L"0123456789abcdef"[code >> shift & 0xF];
        }
        const auto number = static_cast<int>(random());
        ASSERT_EQ(FormatString(L"'%s'.  Error code 0x%08lx -- %s", texts[0].c_str(), code, texts[1].c_str()),
                  L"'" + texts[0] + L"'.  Error code 0x" + hexadecimal + L" -- " + texts[1])
            << "round " << round;
        ASSERT_EQ(FormatString(L"%d-%02u%%%s", number, code % 120, texts[0].c_str()),
                  std::to_wstring(number) + L"-" + padded(std::to_wstring(code % 120), 2) + L"%" + texts[0])
            << "round " << round;
    }
}

} // namespace
} // namespace orvel
