#pragma once

#include "tools/console/failure.h"

#include <windows.h>

#include <string>

namespace orvel::console {

/// Makes the first Ctrl+C raise the signal; a second one ends the process at once.
void CatchControlC();

/// Whether Ctrl+C came, within a time.
bool IsStopped(DWORD milliseconds = 0);

/// How messages name an input: its path, or "stdin" for "-".
std::string InputName(const std::wstring& path);

/// All bytes of a file, a pipe, or of standard input for "-". Throws Failure with `code`, also when Ctrl+C comes first.
std::string ReadInput(const std::wstring& path, ExitCode code);

} // namespace orvel::console
