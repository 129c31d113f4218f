#include "tools/console/options.h"

#include "tools/console/failure.h"
#include "tools/console/text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
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

Standard output holds what the provider wrote and nothing else; messages go to standard error.
Examples:
  eventlog_console run --config crashes.xml --replay application.xml
      plays an export, then prints the crash metrics once as a table
  eventlog_console run --config crashes.xml --interval 60 --format jsonl --log info
      listens to the live Event Log until Ctrl+C and prints JSON lines every minute
Exit codes:
  0 done                                  5 the module or its provider cannot be created
  2 wrong command line                    6 a subscription failed
  3 bad configuration file                7 a collection failed or the output cannot be written
  4 bad export or no replay log           8 the module did not let go of everything at the end)";

} // namespace

std::variant<Options, int> ParseOptions(std::vector<std::string> arguments)
{
    std::string config, replay, module, format = "table", log = "warning";
    Options options;

    CLI::App app("A host agent in a terminal: loads the Orvel event-log provider, subscribes metrics, lets events come "
                 "and prints what the provider writes.",
                 "eventlog_console");
    app.set_help_flag();
    app.set_help_all_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "eventlog_console " ORVEL_VERSION);
    app.require_subcommand(1);
    app.footer(kFooter);
    CLI::App* run = app.add_subcommand("run", "Run the provider with a configuration");
    run->add_option("--config", config, "Configuration file with the metrics to subscribe")
        ->required()
        ->type_name("FILE");
    run->add_option("--replay", replay, "Play this export instead of listening to the live Event Log")
        ->type_name("EXPORT");
    run->add_option("--module", module,
                    "Load the provider from this DLL (default: the registered OrvelAgent.EventLogProvider, else "
                    "Orvel_eventlog.dll beside this program)")
        ->type_name("DLL");
    run->add_option("--interval", options.interval,
                    "Collect each time so many seconds have passed, and at the end "
                    "(default: only at the end)")
        ->check(CLI::Range(0.1, 86400.0))
        ->type_name("SECONDS");
    run->add_option("--collect-after", options.collectAfter,
                    "With --replay: collect also after these entries of the export, events and actions alike, counted "
                    "from 1")
        ->delimiter(',')
        ->type_name("N,...");
    run->add_option("--format", format, "Output for people or for programs: table or jsonl (default: table)")
        ->check(CLI::IsMember({"table", "jsonl"}))
        ->type_name("FORMAT");
    run->add_option("--log", log,
                    "Least severe of the provider's lines to show: none, error, warning or info "
                    "(default: warning)")
        ->check(CLI::IsMember({"none", "error", "warning", "info"}))
        ->type_name("LEVEL");

    try {
        std::reverse(arguments.begin(), arguments.end()); // the library takes them last first
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        const bool isWrong = app.exit(error, std::cout, std::cerr) != 0;
        return static_cast<int>(isWrong ? ExitCode::Usage : ExitCode::Ok);
    }
    options.config = ToWide(config);
    options.replay = ToWide(replay);
    options.module = ToWide(module);
    options.format = format == "jsonl" ? Format::JsonLines : Format::Table;
    options.logMask = log == "info" ? 7 : log == "warning" ? 3 : log == "error" ? 1 : 0;
    return options;
}

} // namespace orvel::console
