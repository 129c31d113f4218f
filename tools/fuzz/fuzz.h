#pragma once

#include <algorithm>
#include <cassert>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// What a fuzzer does with one input; each of the programs defines its own. As a text, ASCII stands for itself, and
/// every other byte makes one unit with the next one, so that surrogates and the range's ends come about.
void Fuzz(std::wstring_view text, std::string_view bytes);

/// Takes a text's front up to a separator, or all of it.
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
    text.shrink_to_fit(); // so that reading past the end is seen
    orvel::Fuzz({text.data(), text.size()}, {reinterpret_cast<const char*>(data), size});
    return 0;
}
