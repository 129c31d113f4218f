#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace orvel::console {

/// The exit codes of the process; `--help` explains them.
enum class ExitCode {
    Ok = 0,
    Usage = 2,
    Configuration = 3,
    Export = 4,
    Module = 5,
    Subscription = 6,
    Collection = 7,
    Unclean = 8,
    Problem = 9,
    Differs = 10,
    Stopped = 11,
    Registration = 12,
    Creation = 13,
    Writing = 14,
    Delivery = 15,
    Value = 16,
    Removal = 17,
    NotUnderstood = 18,
};

/// Ends the run with an exit code. The text, in UTF-8, says what is wrong and, where it can be known, what to do.
struct Failure : std::runtime_error {
    Failure(ExitCode exitCode, const std::string& text) : std::runtime_error(text), code(exitCode) {}
    ExitCode code;
};

/// Throws Failure unless a condition holds.
void Require(bool condition, ExitCode code, const std::string& text);

/// Describes an error code: "0x80070002 (File not found.)", without the brackets when the system has no text.
std::string Describe(HRESULT code);

/// Calls `body` and returns what it throws as a Failure.
std::optional<Failure> FailureOf(const std::function<void()>& body);

} // namespace orvel::console
