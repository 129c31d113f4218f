#include "tools/console/options.h"

#include "tools/console/failure.h"
#include "tools/console/text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iostream>

namespace orvel::console {

namespace {

constexpr char kFooter[] =
    R"(The configuration file holds one <metric> per subscription; write < and & in a query as &lt; and &amp;:
  <metrics>
    <metric name="eventlog|eventlog_appcrash">
      <channel>Application</channel>
      <query>*[System[Provider[@Name='Application Error'] and (EventID=1000)]]</query>
    </metric>
  </metrics>
An export to replay is what this prints on a desktop, in UTF-8:
  wevtutil qe Application /f:RenderedXml /e:Events

Standard output holds what the provider wrote and nothing else, or the report of a check; messages go to standard
error. Colours are shown on a terminal only, and never with NO_COLOR set; COLUMNS sets the width of other outputs.
Examples:
  eventlog_console check --config crashes.xml --replay application.xml --explain
      what the rules select of an export, what the provider would write, and why the other events are left out
  eventlog_console check --config crashes.xml --replay application.xml --expect crashes.jsonl
      tests the rules: code 10 and the difference if something else would be written
  eventlog_console run --config crashes.xml --replay application.xml --speed 60x
      plays an export an hour a minute, then prints the crash metrics once as a table
  eventlog_console run --config crashes.xml --interval 60 --format jsonl --log info
      listens to the live Event Log until Ctrl+C and prints JSON lines every minute
Exit codes:
  0 done                                  6 a subscription failed
  2 wrong command line                    7 a collection failed or the output cannot be written
  3 bad configuration file                8 the module did not let go of everything at the end
  4 bad export, lines or replay log       9 check: there are problems
  5 the module or its provider           10 check: what would be written differs from --expect
    cannot be created                    11 check, verify: stopped by Ctrl+C
                                         18 check: the replay log does not understand a query
  verify also ends with
 12 the module cannot be registered      15 the event did not reach the metric
 13 the provider cannot be created       16 the value is not what was written
 14 the event cannot be written          17 the registration cannot be removed)";

/// A speed as "60x", "60" or "0.5x"; CLI11 shows the text.
std::string CheckSpeed(std::string& text)
{
    const char* const end = text.data() + text.size() - (text.ends_with('x') ? 1 : 0);
    double speed = 0;
    const auto [parsed, error] = std::from_chars(text.data(), end, speed);
    if (error != std::errc() || parsed != end || !(speed >= 0.001 && speed <= 1e9)) {
        return "a speed is a number such as 60x, from 0.001x on";
    }
    text.erase(static_cast<size_t>(end - text.data()));
    return {};
}

} // namespace

std::variant<Options, int> ParseOptions(std::vector<std::string> arguments)
{
    std::string config, replay, module, expect, speed, format = "table", log = "warning";
    Options options;

    CLI::App app("A host agent in a terminal: loads the Orvel event-log provider, subscribes metrics, lets events come "
                 "and prints what the provider writes.",
                 "eventlog_console");
    app.set_help_flag();
    app.set_help_all_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "eventlog_console " ORVEL_VERSION);
    app.require_subcommand(1);
    app.footer(kFooter);
    CLI::App* check = app.add_subcommand("check", "Check a configuration, and what it makes of an export");
    CLI::App* run = app.add_subcommand("run", "Run the provider with a configuration");
    CLI::App* verify =
        app.add_subcommand("verify", "Check the path from a written event to its metric on this computer");
    verify->add_flag("--replay", options.replayOwn,
                     "Replay the event instead of writing it to the live Event Log's channel Application");
    const auto add = [](CLI::App* command, const char* name, auto& value, const char* type, const char* help) {
        return command->add_option(name, value, help)->type_name(type);
    };
    for (CLI::App* command : {check, run}) {
        add(command, "--config", config, "FILE",
            "Configuration file with the metrics to subscribe; - for standard input")
            ->required();
        add(command, "--replay", replay, "EXPORT",
            command == run ? "Play this export instead of listening to the live Event Log; - for standard input"
                           : "Check against this export; without one the queries alone; - for standard input");
        add(command, "--module", module, "DLL",
            "Load the provider from this DLL (default: the registered OrvelAgent.EventLogProvider, else "
            "Orvel_eventlog.dll beside this program)");
        add(command, "--collect-after", options.collectAfter, "N,...",
            "Collect also after these entries of the export, events and actions alike, counted from 1")
            ->delimiter(',')
            ->needs("--replay");
        add(command, "--channel", options.channels, "NAME",
            "A channel that the desktop has, although the export has no event of it; may be repeated")
            ->allow_extra_args(false)
            ->needs("--replay");
        add(command, "--publisher", options.publishers, "NAME",
            "A publisher whose messages the desktop can format; may be repeated")
            ->allow_extra_args(false)
            ->needs("--replay");
        add(command, "--missing-publisher", options.missingPublishers, "NAME",
            "A publisher that is not registered on the desktop, so that its messages are missing; may be repeated")
            ->allow_extra_args(false)
            ->needs("--replay");
        add(command, "--format", format, "FORMAT", "Output for people or for programs: table or jsonl (default: table)")
            ->check(CLI::IsMember({"table", "jsonl"}));
        add(command, "--log", log, "LEVEL",
            "Least severe of the provider's lines to show: none, error, warning or info (default: warning)")
            ->check(CLI::IsMember({"none", "error", "warning", "info"}));
    }
    constexpr unsigned kReasons = 10;
    CLI::Option* explain = add(check, "--explain", options.explain, "[N]",
                               "Tell why events are left out: the N most frequent reasons (default: 10)")
                               ->expected(0, 1)
                               ->check(CLI::Range(1U, 1'000'000U))
                               ->needs("--replay");
    add(check, "--expect", expect, "FILE", "Compare what would be written with these lines of run --format jsonl")
        ->needs("--replay");
    check
        ->add_flag("--actions", options.actions,
                   "Carry out the export's actions on this computer's files and registry; without it they are left out")
        ->needs("--replay");
    add(run, "--interval", options.interval, "SECONDS",
        "Collect each time so many seconds have passed, and at the end (default: only at the end)")
        ->check(CLI::Range(0.1, 86400.0));
    add(run, "--speed", speed, "NUMBERx",
        "Play the export so many times as fast as its events were recorded, such as 60x (default: as fast as possible)")
        ->check(CLI::Validator(CheckSpeed, "", "speed"))
        ->needs("--replay");
    run->add_flag("--summary", options.summary, "Print the summary at the end with --format jsonl, too");

    try {
        std::reverse(arguments.begin(), arguments.end()); // the library takes them last first
        app.parse(std::move(arguments));
        if ((config == "-") + (replay == "-") + (expect == "-") > 1) {
            throw CLI::ValidationError("only one input can be standard input; name files for the others");
        }
    } catch (const CLI::ParseError& error) {
        const bool isWrong = app.exit(error, std::cout, std::cerr) != 0;
        return static_cast<int>(isWrong ? ExitCode::Usage : ExitCode::Ok);
    }
    options.command = check->parsed() ? Command::Check : verify->parsed() ? Command::Verify : Command::Run;
    options.config = ToWide(config);
    options.replay = ToWide(replay);
    options.module = ToWide(module);
    options.expect = ToWide(expect);
    options.explain = explain->count() != 0 && options.explain == 0 ? kReasons : options.explain;
    options.speed = std::strtod(speed.c_str(), nullptr);
    options.format = format == "jsonl" ? Format::JsonLines : Format::Table;
    options.logMask = log == "info" ? 7 : log == "warning" ? 3 : log == "error" ? 1 : 0;
    return options;
}

} // namespace orvel::console
