#pragma once

#include <cstddef>
#include <string_view>

namespace orvel {

/// Passes blocks that do not hold `wanted`. There is no branch inside a block, so that compilers make vector
/// instructions of it.
template <size_t kBlock>
const wchar_t* SkipBlocks(const wchar_t* at, const wchar_t* end, wchar_t wanted) noexcept
{
    while (static_cast<size_t>(end - at) >= kBlock) {
        short hits = 0;
        for (size_t i = 0; i < kBlock; ++i) {
            hits = static_cast<short>(hits | (at[i] == wanted ? -1 : 0)); // all bits, as a vector comparison gives
        }
        if (hits != 0) {
            break;
        }
        at += kBlock;
    }
    return at;
}

/// Finds the first `wanted` at or after `from`, which is not past the end; the text's size when there is none. Several
/// times as fast as `std::wstring_view::find`, which the runtime here serves character by character.
inline size_t FindCharacter(std::wstring_view text, wchar_t wanted, size_t from) noexcept
{
    const wchar_t* const end = text.data() + text.size();
    const wchar_t* at = SkipBlocks<8>(SkipBlocks<32>(text.data() + from, end, wanted), end, wanted);
    while (at != end && *at != wanted) {
        ++at;
    }
    return static_cast<size_t>(at - text.data());
}

/// Counts a character, as fast.
inline size_t CountCharacter(std::wstring_view text, wchar_t wanted) noexcept
{
    constexpr size_t kBlock = 64;
    size_t count = 0;
    size_t at = 0;
    for (; text.size() - at >= kBlock; at += kBlock) {
        short hits = 0;
        for (size_t i = 0; i < kBlock; ++i) {
            hits = static_cast<short>(hits + (text[at + i] == wanted ? 1 : 0));
        }
        count += static_cast<size_t>(hits);
    }
    for (; at < text.size(); ++at) {
        count += text[at] == wanted ? 1U : 0U;
    }
    return count;
}

/// Finds the first `wanted`, which is not empty, at or after `from`; `npos` when there is none.
inline size_t FindText(std::wstring_view text, std::wstring_view wanted, size_t from) noexcept
{
    while (from < text.size()) {
        from = FindCharacter(text, wanted.front(), from);
        if (text.substr(from, wanted.size()) == wanted) {
            return from;
        }
        ++from;
    }
    return text.npos;
}

} // namespace orvel
