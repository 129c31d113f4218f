#pragma once

#include "host/format.h"

#include <windows.h>
#include <OrvelAgent.h>

#include <memory>
#include <string>

namespace orvel {

/// Levels of a log line; the values are the bits of the mask that the host's logger gives.
enum class LogLevel : LONG { Error = 1, Warning = 2, Info = 4 };

/// The system's text for an error code, as it is appended to an error line.
class ErrorSuffix {
public:
    /// Looks the text of an HRESULT or Win32 code up in the system's messages.
    explicit ErrorSuffix(HRESULT code);

    /// Format of the suffix; its arguments are the code and `Text()`.
    const wchar_t* Format() const { return text_ ? L"  Error code 0x%08lx -- %s" : L"  Error code 0x%08lx."; }
    /// The system's text with its trailing line break, null when it has none. Lives as long as this object.
    const wchar_t* Text() const { return text_.get(); }

private:
    struct LocalDeleter {
        void operator()(wchar_t* text) const noexcept { LocalFree(text); }
    };
    std::unique_ptr<wchar_t, LocalDeleter> text_;
};

/// Asks the logger whether it wants lines of a level. False without a logger.
bool IsLogged(IAgentLogger* logger, LogLevel level);

/// Sends a finished text at a level, without asking. Throws `_com_error` with E_OUTOFMEMORY.
void SendLogLine(IAgentLogger* logger, LogLevel level, const wchar_t* text);

/// Logs one line: the text is formatted only when there is a logger and it wants the level.
/// Throws `_com_error` with E_OUTOFMEMORY. `logger` may be null. Any thread.
template <typename... Arguments>
void Log(IAgentLogger* logger, LogLevel level, const wchar_t* format, Arguments... arguments)
{
    if (IsLogged(logger, level)) {
        SendLogLine(logger, level, FormatString(format, arguments...).c_str());
    }
}

/// Logs one line at error level that ends in the error suffix of `code`; otherwise as `Log`.
template <typename... Arguments>
void LogFailure(IAgentLogger* logger, HRESULT code, const wchar_t* format, Arguments... arguments)
{
    if (IsLogged(logger, LogLevel::Error)) {
        const ErrorSuffix suffix(code);
        const std::wstring whole = std::wstring(format) + suffix.Format();
        SendLogLine(logger, LogLevel::Error, FormatString(whole.c_str(), arguments..., code, suffix.Text()).c_str());
    }
}

} // namespace orvel
