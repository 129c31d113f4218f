#pragma once

#include "tools/utf8.h"

#include <windows.h>

#include <chrono>
#include <string>
#include <string_view>

namespace orvel::console {

using orvel::ToUtf8;
using orvel::ToWide;

/// Describes an error code: "0x80070002 (File not found.)", without the brackets when the system has no text.
std::string Describe(HRESULT code);

/// Writes data to standard output; the marks of terminal.h become colours or vanish. Throws Failure when it cannot be
/// written.
void WriteData(std::string_view utf8);

/// Writes one line to standard error; lines of several threads do not mix.
void WriteLine(std::string_view utf8);

/// Shows on standard error how far a long replay has come; a short one shows nothing. Called often, it writes at most a
/// few times a second. `wait`: until the next entry, which only a terminal shows. Whatever is written next begins a
/// line.
void ShowProgress(DWORD done, DWORD total, std::chrono::seconds wait = {});

/// Ends the line that shows the progress, if there is one.
void EndProgress();

/// Writes one line of the console's own to standard error; `kind` is "error", "warning" or "note".
void Say(const char* kind, const std::string& utf8);

} // namespace orvel::console
