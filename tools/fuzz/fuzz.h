#pragma once

#include <algorithm>
#include <cassert>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// Checks one input; every fuzzer defines this function. In `text`, an ASCII byte is one unit, and any other byte forms
/// one unit with the byte after it, so that surrogates and U+FFFF can occur. `bytes` is the unchanged input.
void Fuzz(std::wstring_view text, std::string_view bytes);

/// Removes and returns the front of a text up to `separator`, which is removed too, or the whole text without one.
inline std::wstring_view TakeUntil(std::wstring_view& text, wchar_t separator)
{
    const std::wstring_view front = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(front.size() + 1, text.size()));
    return front;
}

} // namespace orvel

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    std::vector<wchar_t> text;
    for (size_t i = 0; i < size; ++i) {
        const bool isPair = data[i] >= 0x80 && i + 1 < size;
        text.push_back(static_cast<wchar_t>(isPair ? data[i] << 8 | data[i + 1] : data[i]));
        i += isPair ? 1 : 0;
    }
    text.shrink_to_fit(); // so that AddressSanitizer detects reads past the end
    orvel::Fuzz({text.data(), text.size()}, {reinterpret_cast<const char*>(data), size});
    return 0;
}
