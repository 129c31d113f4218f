#include "tools/console/text.h"

#include "host/log.h"
#include "tools/console/failure.h"

#include <cstdio>
#include <cwchar>

namespace orvel::console {

std::string ToUtf8(std::wstring_view text)
{
    const int units = static_cast<int>(text.size());
    std::string utf8(
        static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr)), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr);
    return utf8;
}

std::wstring ToWide(std::string_view utf8)
{
    const int bytes = static_cast<int>(utf8.size());
    std::wstring text(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, text.data(), static_cast<int>(text.size()));
    return text;
}

std::string Describe(HRESULT code)
{
    const ErrorSuffix suffix(code);
    std::wstring text = suffix.Text() == nullptr ? L"" : suffix.Text();
    text.erase(text.find_last_not_of(L"\r\n ") + 1);
    return ToUtf8(FormatString(text.empty() ? L"0x%08lx" : L"0x%08lx (%s)", code, text.c_str()));
}

void WriteData(std::string_view utf8)
{
    if (std::fwrite(utf8.data(), 1, utf8.size(), stdout) != utf8.size() || std::fflush(stdout) != 0) {
        throw Failure(ExitCode::Collection, "standard output cannot be written; is the disk full or the pipe closed?");
    }
}

void WriteLine(const std::string& utf8)
{
    const std::string line = utf8 + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr); // one call: the stream's own lock keeps lines whole
    std::fflush(stderr);
}

void Say(const char* kind, const std::string& utf8)
{
    WriteLine(std::string("eventlog_console: ") + kind + ": " + utf8);
}

} // namespace orvel::console
