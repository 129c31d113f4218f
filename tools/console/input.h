#pragma once

#include "tools/console/failure.h"

#include <windows.h>

#include <string>

namespace orvel::console {

/// Makes the first Ctrl+C set what IsStopped returns; a second one ends the process.
void CatchControlC();

/// Whether Ctrl+C was pressed; waits for it up to a time.
bool IsStopped(DWORD milliseconds = 0);

/// The name of an input in messages: its path, or "stdin" for "-".
std::string InputName(const std::wstring& path);

/// All bytes of a file, a pipe, or of standard input for "-". Throws Failure with `code`, also when Ctrl+C comes first.
std::string ReadInput(const std::wstring& path, ExitCode code);

} // namespace orvel::console
