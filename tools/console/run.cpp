#include "tools/console/run.h"

#include "host/format.h"
#include "tools/console/input.h"
#include "tools/console/session.h"
#include "tools/console/terminal.h"
#include "tools/console/text.h"

#include <optional>

namespace orvel::console {

namespace {

// Each line is a sum. Delivered and its parts come from the counter, values and dropped records from what the module
// wrote and said. What is pending cannot be asked for: it is the rest, and nothing but events that came after the last
// collection. A logon's values stand for its latest events, so its events and its values make no sum.
std::wstring Account(const MetricTally& tally)
{
    const EventCounter& counter = *tally.counter;
    const unsigned long long recorded = counter.Counted(EventCounter::Recorded);
    const unsigned long long withoutMessage = counter.Counted(EventCounter::WithoutMessage);
    const unsigned long long otherKinds = counter.Counted(EventCounter::OtherKind);
    const unsigned long long done = tally.crashes + tally.dropped;
    std::wstring lines = FormatString(L"\n  %s\n", tally.metric.name.c_str());
    if (counter.Refusal() != ERROR_SUCCESS) {
        lines += L"    delivered: unknown, for the Event Log refuses the subscription\n";
    } else {
        lines += FormatString(L"    %llu delivered = %llu recorded + %llu without a message + %llu of other kinds\n",
                              recorded + withoutMessage + otherKinds, recorded, withoutMessage, otherKinds);
    }
    if (counter.Refusal() == ERROR_SUCCESS && tally.metric.Is(kCrashMetric)) {
        lines +=
            FormatString(L"    %llu recorded = %llu written + %llu dropped + ", recorded, tally.crashes, tally.dropped);
        lines += done <= recorded ? FormatString(L"%llu still pending\n", recorded - done)
                                  : L"unknown pending, for the counting began after the first event\n";
    }
    return lines + FormatString(L"    %llu values written, %llu refused", tally.values, tally.refused);
}

void Summarise(const Session& session, DWORD entries)
{
    std::wstring text = IsStopped() ? L"Stopped by Ctrl+C: " : L"Done: ";
    if (entries != 0) {
        text += FormatString(L"%lu of %lu entries played, ", session.Played(), entries);
    }
    text += FormatString(session.Collections() == 1 ? L"%u collection" : L"%u collections", session.Collections());
    text = Marked(kHeading, text);
    for (const MetricTally& tally : session.Tallies()) {
        text += Account(tally);
    }
    WriteLine(ToUtf8(text));
}

} // namespace

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
        Summarise(session, replay ? replay->Count() : 0);
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

} // namespace orvel::console
