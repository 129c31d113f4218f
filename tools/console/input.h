#pragma once

#include "tools/console/failure.h"

#include <windows.h>

#include <string>

namespace orvel::console {

/// Makes the first Ctrl+C set what IsStopped returns; a second one ends the process.
void CatchControlC();

/// Returns whether Ctrl+C was pressed, after waiting for it up to a number of milliseconds.
bool IsStopped(DWORD milliseconds = 0);

/// Returns the name of an input for messages: its path, or "stdin" for "-".
std::string InputName(const std::string& path);

/// Returns the computer's name, as the provider writes it.
std::string ComputerName();

/// Returns all bytes of a file or pipe, or of standard input for "-". Throws Failure with `code` if reading fails or
/// Ctrl+C comes first.
std::string ReadInput(const std::string& path, ExitCode code);

} // namespace orvel::console
