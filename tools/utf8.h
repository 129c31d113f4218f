#pragma once

#include <windows.h>

#include <cstring>
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

/// Converts UTF-8 of less than 2^31 bytes; invalid sequences become U+FFFD.
inline std::wstring ToWide(std::string_view utf8)
{
    const int bytes = static_cast<int>(utf8.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0);
    std::wstring text(static_cast<size_t>(units), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, text.data(), units);
    return text;
}

/// Converts UTF-8 or UTF-16LE to UTF-8, and removes a byte order mark. UTF-16LE without one begins with "<".
inline std::string DecodeText(std::string bytes)
{
    const bool isMarked = bytes.starts_with("\xFF\xFE");
    if (isMarked || bytes.starts_with(std::string_view("<\0", 2))) {
        const size_t start = isMarked ? 2 : 0;
        std::wstring text((bytes.size() - start) / sizeof(wchar_t), L'\0');
        std::memcpy(text.data(), bytes.data() + start, text.size() * sizeof(wchar_t));
        return ToUtf8(text);
    }
    bytes.erase(0, bytes.starts_with("\xEF\xBB\xBF") ? 3 : 0);
    return bytes;
}

} // namespace orvel
