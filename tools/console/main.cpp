#include "tools/console/commands.h"
#include "tools/console/input.h"
#include "tools/console/output.h"
#include "tools/console/session.h"
#include "tools/utf8.h"

#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <objbase.h>

#include <cstdio>
#include <optional>

namespace {

using namespace orvel::console;

/// Runs the provider over the live Event Log or an export, printing each collection and a summary at the end.
void Run(const Options& options)
{
    std::vector<MetricConfiguration> metrics = ReadConfiguration(options.config);
    for (const MetricConfiguration& metric : metrics) {
        const std::string text = metric.place + ": " + metric.problem;
        Require(metric.problem.empty() || metric.isIgnored, ExitCode::Subscription, text);
        if (metric.isIgnored) {
            Say("warning", text);
        }
    }
    std::erase_if(metrics, [](const MetricConfiguration& metric) { return metric.isIgnored; });

    const std::optional<ReplayClient> replay = LoadReplay(options);
    Session session(options, replay, [&](const Collection& collection) {
        WriteData(options.format == Format::Table ? ToTable(collection) : ToJsonLines(collection));
    });
    const std::optional<Failure> failure = session.Run(metrics);
    if (options.format == Format::Table || options.summary) {
        WriteLine(orvel::ToUtf8(session.Summary()));
    }
    if (failure) {
        throw *failure;
    }
}

/// Runs the command that the command line names.
ExitCode Execute(int count, const wchar_t* const* arguments)
{
    const std::variant<Options, ExitCode> parsed = ParseOptions(count, arguments);
    if (const ExitCode* const code = std::get_if<ExitCode>(&parsed)) {
        return *code;
    }
    const Options& options = std::get<Options>(parsed);
    CatchControlC();
    if (options.command == Command::Check) {
        return Check(options);
    }
    if (options.command == Command::Verify) {
        Verify(options);
    } else {
        Run(options);
    }
    return ExitCode::Ok;
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    const UINT codePage = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    ExitCode code{};
    if (const std::optional<Failure> failure = FailureOf([&] { code = Execute(count, arguments); })) {
        Say("error", failure->what());
        code = failure->code;
    }
    CoUninitialize();
    SetConsoleOutputCP(codePage);
    return static_cast<int>(code);
}
