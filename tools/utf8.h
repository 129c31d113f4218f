#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace orvel {

/// Converts UTF-16 of less than 2^31 units; lone surrogates become U+FFFD.
inline std::string ToUtf8(std::wstring_view text)
{
    const int units = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, utf8.data(), bytes, nullptr, nullptr);
    return utf8;
}

/// Converts UTF-8 of less than 2^31 bytes; what is not UTF-8 becomes U+FFFD.
inline std::wstring ToWide(std::string_view utf8)
{
    const int bytes = static_cast<int>(utf8.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0);
    std::wstring text(static_cast<size_t>(units), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, text.data(), units);
    return text;
}

} // namespace orvel
