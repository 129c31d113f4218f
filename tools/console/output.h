#pragma once

#include <windows.h>

#include <chrono>
#include <string>
#include <string_view>

namespace orvel::console {

/// Writes data to standard output; the marks of terminal.h become colours or are left out. Throws Failure if it cannot
/// be written.
void WriteData(std::string_view utf8);

/// Writes one line to standard error; lines of several threads do not mix.
void WriteLine(std::string_view utf8);

/// Shows the progress of a long replay on standard error, at most a few times a second. `wait` is the time until the
/// next entry; only a terminal shows it. Later output begins on a new line.
void ShowProgress(DWORD done, DWORD total, std::chrono::seconds wait = {});

/// Ends the line that shows the progress, if there is one.
void EndProgress();

/// Writes a message of the console to standard error; `kind` is "error", "warning" or "note".
void Say(const char* kind, const std::string& utf8);

} // namespace orvel::console
