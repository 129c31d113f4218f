// Compares crash details with a replacement unit by unit. '|' separates the message and the two lines.
#include "appcrash/crash_details.h"

#include "tools/fuzz/fuzz.h"

void orvel::Fuzz(std::wstring_view text, std::string_view)
{
    const std::wstring_view message = TakeUntil(text, L'|');
    const std::wstring_view timeLine = TakeUntil(text, L'|');
    std::wstring expected;
    for (const wchar_t unit : message) {
        expected += unit;
        if (expected.ends_with(L"\r\n")) {
            expected.replace(expected.size() - 2, 2, L"<br />");
        }
    }
    expected.append(timeLine).append(text);
    const std::wstring details = BuildCrashDetails(message, timeLine, text);
    assert(details == expected && details.capacity() <= std::max<size_t>(details.size(), 14));
}
