#include "tools/console/commands.h"
#include "tools/console/failure.h"
#include "tools/console/input.h"
#include "tools/console/output.h"
#include "tools/console/session.h"
#include "tools/console/terminal.h"
#include "tools/utf8.h"

#include <windows.h>
#include <fcntl.h>
#include <io.h>
#include <objbase.h>
#include <shellapi.h>

#include <cstdio>
#include <optional>

namespace {

using namespace orvel::console;

/// Returns the arguments in UTF-8, from the wide command line: argv loses characters outside the system's code page.
std::vector<std::string> Arguments()
{
    std::vector<std::string> arguments;
    int count = 0;
    wchar_t** const all = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; i < count; ++i) {
        arguments.push_back(orvel::ToUtf8(all[i]));
    }
    LocalFree(all);
    return arguments;
}

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

    std::optional<ReplayClient> replay; // loaded before the module, so that the module imports this wevtapi.dll
    if (!options.replay.empty()) {
        LoadExport(replay.emplace(LoadReplayLog()), options);
    }
    Session session(options, replay ? &*replay : nullptr, [&](const Collection& collection) {
        WriteData(options.format == Format::Table ? ToTable(collection, TerminalWidth()) : ToJsonLines(collection));
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
ExitCode Execute()
{
    const std::variant<Options, ExitCode> parsed = ParseOptions(Arguments());
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

int main()
{
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    const UINT codePage = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    ExitCode code{};
    try {
        code = Execute();
    } catch (...) {
        const Failure failure = CurrentFailure();
        Say("error", failure.what());
        code = failure.code;
    }
    CoUninitialize();
    SetConsoleOutputCP(codePage);
    return static_cast<int>(code);
}
