#pragma once

#include "host/format.h"
#include "host/unique_resource.h"

#include <windows.h>
#include <OrvelAgent.h>

#include <string>

namespace orvel {

/// Levels of a log line. The values are the bits of the mask that GetLogLevels returns.
enum class LogLevel : LONG { Error = 1, Warning = 2, Info = 4 };

/// The end of an error line: the code and the system's text for it.
class ErrorSuffix {
public:
    /// Looks up the text of an HRESULT or Win32 code in the system's messages.
    explicit ErrorSuffix(HRESULT code);

    /// Returns the printf format of the suffix; its arguments are the code and `Text()`.
    const wchar_t* Format() const { return text_ ? L"  Error code 0x%08lx -- %s" : L"  Error code 0x%08lx."; }
    /// Returns the system's text with its trailing line break, null when there is none. Valid as long as this object.
    const wchar_t* Text() const { return text_.get(); }

private:
    UniqueLocalText text_;
};

/// Returns whether the logger accepts lines of a level; false without a logger.
bool IsLogged(IAgentLogger* logger, LogLevel level);

/// Sends a line without checking the level. Throws `_com_error` with E_OUTOFMEMORY.
void SendLogLine(IAgentLogger* logger, LogLevel level, const wchar_t* text);

/// Logs one line. The text is formatted only if there is a logger and it accepts the level. `logger` may be null. Any
/// thread. Throws `_com_error` with E_OUTOFMEMORY, and std::bad_alloc.
template <typename... Arguments>
void Log(IAgentLogger* logger, LogLevel level, const wchar_t* format, Arguments... arguments)
{
    if (IsLogged(logger, level)) {
        SendLogLine(logger, level, FormatString(format, arguments...).c_str());
    }
}

/// Logs one line at error level that ends in the error suffix of `code`. Otherwise as `Log`.
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
