#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace orvel {

/// Which of the sixteen characters from `at` on are `wanted`, one bit for each, the lowest for the first.
inline unsigned MatchSixteen(const wchar_t* at, wchar_t wanted) noexcept
{
    const __m128i pattern = _mm_set1_epi16(static_cast<short>(wanted));
    const auto* blocks = reinterpret_cast<const __m128i*>(at);
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(
        _mm_cmpeq_epi16(_mm_loadu_si128(blocks), pattern), _mm_cmpeq_epi16(_mm_loadu_si128(blocks + 1), pattern))));
}

/// Finds the first `wanted` at or after `from`, which is not past the end; the text's size when there is none. Several
/// times as fast as `std::wstring_view::find`, which the runtime here serves character by character.
inline size_t FindCharacter(std::wstring_view text, wchar_t wanted, size_t from) noexcept
{
    for (; text.size() - from >= 16; from += 16) {
        if (const unsigned hits = MatchSixteen(text.data() + from, wanted); hits != 0) {
            return from + static_cast<size_t>(std::countr_zero(hits));
        }
    }
    while (from < text.size() && text[from] != wanted) {
        ++from;
    }
    return from;
}

/// As FindCharacter, and copies what it passes to `to`, which must have room for the rest of the text: more may be
/// written there than was passed.
inline size_t CopyToCharacter(std::wstring_view text, wchar_t wanted, size_t from, wchar_t* to) noexcept
{
    for (; text.size() - from >= 16; from += 16, to += 16) {
        std::memcpy(to, text.data() + from, 16 * sizeof(wchar_t));
        if (const unsigned hits = MatchSixteen(text.data() + from, wanted); hits != 0) {
            return from + static_cast<size_t>(std::countr_zero(hits));
        }
    }
    for (; from < text.size() && text[from] != wanted; ++from) {
        *to++ = text[from];
    }
    return from;
}

/// Counts the places where `first` stands before `second`. No branch depends on the text and a part's count has room in
/// 16 bits, so that compilers make vector instructions of it.
inline size_t CountPairs(std::wstring_view text, wchar_t first, wchar_t second) noexcept
{
    constexpr size_t kPart = 1024;
    size_t count = 0;
    for (size_t from = 0; from + 1 < text.size(); from += kPart) {
        const size_t end = std::min(from + kPart, text.size() - 1);
        uint16_t hits = 0;
        for (size_t i = from; i < end; ++i) {
            const int isFirst = text[i] == first ? 1 : 0;
            const int isSecond = text[i + 1] == second ? 1 : 0;
            hits = static_cast<uint16_t>(hits + (isFirst & isSecond));
        }
        count += hits;
    }
    return count;
}

/// As `std::wstring_view::starts_with`, without the runtime's call for every few characters.
inline bool StartsWith(std::wstring_view text, std::wstring_view start) noexcept
{
    size_t same = 0;
    while (same < start.size() && same < text.size() && text[same] == start[same]) {
        ++same;
    }
    return same == start.size();
}

/// Finds the first `wanted`, which is not empty, at or after `from`; `npos` when there is none.
inline size_t FindText(std::wstring_view text, std::wstring_view wanted, size_t from) noexcept
{
    for (; from < text.size(); ++from) {
        from = FindCharacter(text, wanted.front(), from);
        if (StartsWith(text.substr(from), wanted)) {
            return from;
        }
    }
    return text.npos;
}

} // namespace orvel
