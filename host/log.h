#pragma once

#include "host/format.h"

#include <windows.h>
#include <OrvelAgent.h>

#include <string>

namespace orvel {

/// Levels of a log line. The values are the bits of the mask that GetLogLevels returns.
enum class LogLevel : LONG { Error = 1, Warning = 2, Info = 4 };

/// Returns the system's text for an HRESULT or Win32 code, with its trailing line break. Empty when there is none.
/// Throws std::bad_alloc.
std::wstring SystemText(HRESULT code);

/// Returns the end of an error line: the code and the system's text for it. Throws like `FormatString`.
std::wstring ErrorSuffix(HRESULT code);

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
        SendLogLine(logger, LogLevel::Error, (FormatString(format, arguments...) + ErrorSuffix(code)).c_str());
    }
}

} // namespace orvel
