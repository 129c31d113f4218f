#pragma once

#include <string>
#include <variant>
#include <vector>

namespace orvel::console {

enum class Format { Table, JsonLines };

struct Options {
    std::wstring config;
    std::wstring replay;                ///< empty: the live Event Log
    std::wstring module;                ///< empty: by ProgID, else beside the program
    double interval = 0;                ///< seconds between collections; 0: only once, at the end
    std::vector<unsigned> collectAfter; ///< entries of the export, from 1, after which to collect as well
    Format format = Format::Table;
    long logMask = 0; ///< levels of the provider's lines to show, as a mask of LogLevel
};

/// Reads the command line (without the program's name, in UTF-8). Gives an exit code instead when there is nothing to
/// run: help or the version was asked for and printed, or the line is wrong and the reason stands on standard error.
std::variant<Options, int> ParseOptions(std::vector<std::string> arguments);

} // namespace orvel::console
