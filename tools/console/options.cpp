#include "tools/console/options.h"

#include "tools/console/host_objects.h"
#include "tools/utf8.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <map>

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

Standard output holds the provider's values, or the report of a check; messages go to standard error. Colours are used
on a terminal unless NO_COLOR is set; COLUMNS sets the width of output that does not go to a terminal.
Examples:
  eventlog_console check --config crashes.xml --replay application.xml --explain
      shows which events the queries select, what the provider would write, and why other events are left out
  eventlog_console check --config crashes.xml --replay application.xml --expect crashes.jsonl
      tests the configuration: exit code 10 and the difference if other values would be written
  eventlog_console run --config crashes.xml --replay application.xml --speed 60x
      plays an hour of the export per minute, then prints the crash metrics as a table
  eventlog_console run --config crashes.xml --interval 60 --format jsonl --log info
      listens to the live Event Log until Ctrl+C and prints JSON lines every minute
Exit codes:
  0 done                                  6 a subscription failed
  2 wrong command line                    7 a collection failed or the output cannot be written
  3 bad configuration file                8 the module did not release everything
  4 bad export, --expect file or replay   9 check: the configuration has problems
    log                                  10 check: the values differ from --expect
  5 the module cannot be loaded, or its  11 check, verify: stopped by Ctrl+C
    provider cannot be created           18 check: the replay log does not support a query
  verify only:
 12 the module cannot be registered      15 the metric has no value for the event
 13 the provider cannot be created       16 the value does not match the event
 14 the event cannot be written          17 the registration cannot be removed)";

/// Removes the "x" of a speed such as "60x". Returns an error message for CLI11 if the text is no speed.
std::string TakeSpeed(std::string& text)
{
    text.resize(text.size() - (text.ends_with('x') ? 1 : 0));
    const char* const end = text.data() + text.size();
    double speed = 0;
    const auto [parsed, error] = std::from_chars(text.data(), end, speed);
    const bool isSpeed = error == std::errc() && parsed == end && speed >= 0.001 && speed <= 1e9;
    return isSpeed ? "" : "the speed must be a number from 0.001x to 1000000000x, such as 60x";
}

} // namespace

std::variant<Options, ExitCode> ParseOptions(int count, const wchar_t* const* arguments)
{
    Options options;
    std::string format = "table", log = "warning";

    CLI::App app("Runs the Orvel event-log provider in a terminal: subscribes metrics, receives events and prints the "
                 "values that the provider writes.",
                 "eventlog_console");
    app.set_help_flag();
    app.set_help_all_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "eventlog_console " ORVEL_VERSION);
    app.require_subcommand(1);
    app.footer(kFooter);
    CLI::App* check =
        app.add_subcommand("check", "Check a configuration and, with --replay, show what it selects from an export");
    CLI::App* run = app.add_subcommand("run", "Run the provider with a configuration");
    CLI::App* verify = app.add_subcommand("verify", "Check on this computer that a written event becomes a metric");
    check->callback([&] { options.command = Command::Check; });
    verify->callback([&] { options.command = Command::Verify; });
    verify->add_flag("--replay", options.replayOwn,
                     "Replay the event instead of writing it to the live channel Application");
    const auto add = [](CLI::App* command, const char* name, auto& value, const char* type, const char* help) {
        return command->add_option(name, value, help)->type_name(type);
    };
    const auto addForReplay = [&](auto&&... values) { return add(values...)->needs("--replay"); };
    for (CLI::App* command : {check, run}) {
        add(command, "--config", options.config, "FILE",
            "Configuration file with the metrics to subscribe; - for standard input")
            ->required();
        add(command, "--replay", options.replay, "EXPORT",
            command == run ? "Play this export instead of listening to the live Event Log; - for standard input"
                           : "Check against this export (default: check the queries only); - for standard input");
        add(command, "--module", options.module, "DLL",
            "Load the provider from this DLL (default: the registered OrvelAgent.EventLogProvider, else "
            "Orvel_eventlog.dll beside this program)");
        addForReplay(command, "--collect-after", options.collectAfter, "N,...",
                     "Also collect after these entries of the export (events and actions, counted from 1)")
            ->delimiter(',');
        addForReplay(command, "--channel", options.channels, "NAME",
                     "A channel that the desktop has although the export has no event from it; may be repeated")
            ->allow_extra_args(false);
        addForReplay(command, "--publisher", options.publishers, "NAME",
                     "A publisher whose messages the desktop can format; may be repeated")
            ->allow_extra_args(false);
        addForReplay(command, "--missing-publisher", options.missingPublishers, "NAME",
                     "A publisher that is not registered on the desktop, so that its messages cannot be formatted; "
                     "may be repeated")
            ->allow_extra_args(false);
        add(command, "--format", format, "FORMAT", "table for people or jsonl for programs (default: table)")
            ->check(CLI::IsMember({"table", "jsonl"}));
        add(command, "--log", log, "LEVEL",
            "Show the provider's log lines from this level up: none, error, warning or info (default: warning)")
            ->check(CLI::IsMember({"none", "error", "warning", "info"}));
    }
    addForReplay(check, "--explain", options.explain, "[N]",
                 "Show why events are left out: the N most frequent reasons (default: 10)")
        ->expected(0, 1)
        ->check(CLI::Range(1U, 1'000'000U));
    addForReplay(check, "--expect", options.expect, "FILE",
                 "Compare the values with the lines in this file, as written by run --format jsonl");
    check
        ->add_flag("--actions", options.actions,
                   "Carry out the export's actions on this computer's files and registry (default: skip them)")
        ->needs("--replay");
    add(run, "--interval", options.interval, "SECONDS",
        "Collect every SECONDS and at the end (default: only at the end)")
        ->check(CLI::Range(0.1, 86400.0));
    addForReplay(run, "--speed", options.speed, "NUMBERx",
                 "Play the export at NUMBER times its recorded speed, such as 60x (default: as fast as possible)")
        ->transform(CLI::Validator(TakeSpeed, ""));
    run->add_flag("--summary", options.summary, "Print the summary with --format jsonl, too");

    try {
        std::vector<std::string> reversed; // CLI11 expects the last argument first
        for (int i = count - 1; i > 0; --i) {
            reversed.push_back(ToUtf8(arguments[i]));
        }
        app.parse(std::move(reversed));
        if ((options.config == "-") + (options.replay == "-") + (options.expect == "-") > 1) {
            throw CLI::ValidationError(
                "only one of --config, --replay and --expect can be standard input; name files for the others");
        }
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitCode::Ok : ExitCode::Usage;
    }
    if (check->count("--explain") != 0 && options.explain == 0) {
        options.explain = 10; // --explain without a number
    }
    options.format = format == "jsonl" ? Format::JsonLines : Format::Table;
    const std::map<std::string, long> masks = {
        {"none", 0}, {"error", 1}, {"warning", kErrorsAndWarnings}, {"info", kAllLevels}};
    options.logMask = masks.at(log);
    return options;
}

} // namespace orvel::console
