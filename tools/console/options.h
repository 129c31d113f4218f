#pragma once

#include "tools/console/failure.h"

#include <string>
#include <variant>
#include <vector>

namespace orvel::console {

enum class Command { Check, Run, Verify };
enum class Format { Table, JsonLines };

/// Texts are in UTF-8.
struct Options {
    Command command = Command::Run;
    std::string config;                         ///< file; "-", here and in `replay` and `expect`: standard input
    std::string replay;                         ///< export file; empty: the live Event Log, or (check) queries only
    std::string module;                         ///< DLL; empty: the registered one, else the one beside the program
    std::string expect;                         ///< check: file with the expected lines; empty: no comparison
    unsigned explain = 0;                       ///< check: most reasons to show for events that are left out
    bool replayOwn = false;                     ///< verify: replay the event instead of writing it to the live log
    bool actions = false;                       ///< check: carry out the export's actions
    double interval = 0;                        ///< seconds between collections; 0: only once, at the end
    double speed = 0;                           ///< factor of the recorded speed; 0: as fast as possible
    std::vector<unsigned> collectAfter;         ///< entries of the export, from 1, after which to collect as well
    std::vector<std::string> channels;          ///< channels of the desktop in addition to the export's
    std::vector<std::string> publishers;        ///< publishers whose metadata can be opened
    std::vector<std::string> missingPublishers; ///< publishers whose metadata cannot be opened
    Format format = Format::Table;
    bool summary = false; ///< print the summary with JSON lines, too
    long logMask = 0;     ///< log levels to show, a mask of LogLevel
};

/// Parses the arguments of the program. Returns an exit code if there is nothing to run: the help or the version has
/// been printed, or the arguments are wrong and the reason is on standard error.
std::variant<Options, ExitCode> ParseOptions(int count, const wchar_t* const* arguments);

} // namespace orvel::console
