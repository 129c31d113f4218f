#pragma once

#include <string>
#include <variant>
#include <vector>

namespace orvel::console {

enum class Command { Check, Run, Verify };
enum class Format { Table, JsonLines };

struct Options {
    Command command = Command::Run;
    std::wstring config;                        ///< here and in `replay` and `expect`: "-" for standard input
    std::wstring replay;                        ///< empty: the live Event Log, or nothing to check against
    std::wstring module;                        ///< empty: by ProgID, else beside the program
    std::wstring expect;                        ///< what a check is to compare with; empty: nothing
    unsigned explain = 0;                       ///< how many reasons a check tells for events that are left out
    bool replayOwn = false;                     ///< verify: replay the event instead of writing it to the live log
    bool actions = false;                       ///< whether a check is to carry out the export's actions
    double interval = 0;                        ///< seconds between collections; 0: only once, at the end
    double speed = 0;                           ///< of the replay against the recorded times; 0: as fast as possible
    std::vector<unsigned> collectAfter;         ///< entries of the export, from 1, after which to collect as well
    std::vector<std::string> channels;          ///< that the desktop has, beside those of the export; in UTF-8
    std::vector<std::string> publishers;        ///< whose metadata can be opened on the desktop
    std::vector<std::string> missingPublishers; ///< whose metadata cannot be opened
    Format format = Format::Table;
    bool summary = false; ///< also with JSON lines
    long logMask = 0;     ///< levels of the provider's lines to show, as a mask of LogLevel
};

/// Reads the command line (without the program's name, in UTF-8). Gives an exit code instead when there is nothing to
/// run: help or the version was asked for and printed, or the line is wrong and the reason stands on standard error.
std::variant<Options, int> ParseOptions(std::vector<std::string> arguments);

} // namespace orvel::console
