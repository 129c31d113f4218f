#pragma once

// Included before everything else. wchar_t has 16 bits here, as on Windows, so the functions of the C library that
// std::wstring calls are replaced. The sanitizers check the replacements too.

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>

static_assert(sizeof(wchar_t) == 2);

namespace std {

inline const wchar_t* ShortFind(const wchar_t* text, wchar_t unit, size_t count)
{
    const wchar_t* const found = find(text, text + count, unit);
    return found != text + count ? found : nullptr;
}

inline int ShortCompare(const wchar_t* a, const wchar_t* b, size_t count)
{
    const auto differing = mismatch(a, a + count, b);
    if (differing.first == a + count) {
        return 0;
    }
    return *differing.first < *differing.second ? -1 : 1;
}

// Supports only what std::to_wstring needs for integers.
inline int ShortPrint(wchar_t* text, size_t size, const wchar_t* format, va_list arguments)
{
    char narrowFormat[8] = {}, narrow[32] = {};
    copy(format, find(format, format + 7, L'\0'), narrowFormat);
    const int count = vsnprintf(narrow, sizeof(narrow), narrowFormat, arguments);
    copy(narrow, narrow + min(size, sizeof(narrow)), text);
    return count;
}

} // namespace std

#define wcslen(text) static_cast<size_t>(std::find((text), (text) + (1 << 30), L'\0') - (text))
#define wmemchr ShortFind
#define wmemcmp ShortCompare
#define wmemcpy(to, from, count) static_cast<wchar_t*>(memmove((to), (from), (count)*2))
#define wmemmove(to, from, count) static_cast<wchar_t*>(memmove((to), (from), (count)*2))
#define wmemset(to, unit, count) (std::fill_n((to), (count), (unit)), (to))
#define vswprintf ShortPrint
