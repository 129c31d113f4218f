#include "tools/console/commands.h"
#include "tools/console/input.h"
#include "tools/console/session.h"
#include "tools/console/terminal.h"
#include "tools/console/text.h"

#include <optional>

namespace orvel::console {

void Run(const Options& options)
{
    std::vector<MetricConfiguration> metrics = ReadConfiguration(options.config);
    for (const MetricConfiguration& metric : metrics) {
        if (metric.isIgnored) {
            Say("warning", metric.place + ": " + metric.problem);
        } else if (!metric.problem.empty()) {
            throw Failure(ExitCode::Subscription, metric.place + ": " + metric.problem);
        }
    }
    std::erase_if(metrics, [](const MetricConfiguration& metric) { return metric.isIgnored; });

    std::optional<ReplayClient> replay; // loaded before the module, which is to find this Event Log
    if (!options.replay.empty()) {
        LoadExport(replay.emplace(LoadReplayLog()), options.replay);
    }
    Session session(options, replay ? &*replay : nullptr, [&](const Collection& collection) {
        WriteData(options.format == Format::Table ? ToTable(collection, TerminalWidth()) : ToJsonLines(collection));
    });
    std::exception_ptr failure;
    try {
        session.Run(metrics);
    } catch (...) {
        failure = std::current_exception();
    }
    if (options.format == Format::Table || options.summary) {
        WriteLine(ToUtf8(session.Summary()));
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

} // namespace orvel::console
