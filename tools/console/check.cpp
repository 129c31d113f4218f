#include "host/format.h"
#include "tools/console/commands.h"
#include "tools/console/input.h"
#include "tools/console/output.h"
#include "tools/console/session.h"
#include "tools/console/terminal.h"
#include "tools/utf8.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace orvel::console {

namespace {

/// The events that are left out for one reason.
struct LeftOut {
    unsigned long long events = 0;
    DWORD line = 0, column = 0; // of the first event
};

enum class Verdict { Good, Problem, NotUnderstood };

/// The result of the check for one metric.
struct Finding {
    MetricConfiguration metric;
    Verdict verdict = Verdict::Good;
    std::wstring problem = {}; // why the verdict is not Good
    ReplayProblem place = {};  // where in the query the problem is
    unsigned long long events = 0, selected = 0;
    std::map<std::wstring, unsigned long long> channels = {}; // number of the export's events by channel
    std::map<std::wstring, LeftOut> reasons = {};
};

void CALLBACK OnResult(void* context, const ReplayQueryResult* result)
{
    Finding& finding = *static_cast<Finding*>(context);
    ++finding.events;
    ++finding.channels[result->channel];
    if (result->reason == nullptr) {
        ++finding.selected;
        return;
    }
    const LeftOut first = {0, result->line, result->column};
    ++finding.reasons.try_emplace(result->reason, first).first->second.events;
}

Finding CheckMetric(const MetricConfiguration& metric, const ReplayClient& replay)
{
    Finding finding = {metric};
    if (!metric.problem.empty()) {
        finding.verdict = Verdict::Problem;
        finding.problem = ToWide(metric.problem);
        return finding;
    }
    const DWORD code =
        replay.EvaluateQuery(metric.channel.c_str(), metric.query.c_str(), &OnResult, &finding, &finding.place);
    if (code != ERROR_SUCCESS) {
        finding.verdict = code == ERROR_NOT_SUPPORTED ? Verdict::NotUnderstood : Verdict::Problem;
        finding.problem = finding.place.reason;
    }
    return finding;
}

/// Returns the most frequent reasons, at most `limit`. Equally frequent ones are in the order of the export.
std::vector<std::pair<std::wstring, LeftOut>> MostFrequent(const Finding& finding, size_t limit)
{
    std::vector<std::pair<std::wstring, LeftOut>> reasons(finding.reasons.begin(), finding.reasons.end());
    std::stable_sort(reasons.begin(), reasons.end(), [](const auto& left, const auto& right) {
        const LeftOut &a = left.second, &b = right.second;
        return std::tie(b.events, a.line, a.column) < std::tie(a.events, b.line, b.column);
    });
    reasons.resize(std::min(limit, reasons.size()));
    return reasons;
}

/// Returns "1 event", "2 events".
std::wstring Events(unsigned long long count)
{
    return std::to_wstring(count) + (count == 1 ? L" event" : L" events");
}

/// Formats a line of the report, wrapped to the width of the terminal.
std::wstring Line(const std::wstring& label, const std::wstring& text)
{
    constexpr size_t kIndent = 12;
    const size_t width = TerminalWidth();
    return L"  " + Padded(label, kIndent - 2) +
           Wrapped(Printable(text), width > kIndent * 2 ? width - kIndent : 0, kIndent) + L"\n";
}

std::wstring ShowProblem(const Finding& finding)
{
    const wchar_t* const label = finding.verdict == Verdict::NotUnderstood ? L"unknown" : L"problem";
    std::wstring text = Line(Marked(kBad, label), finding.problem);
    if (*finding.place.excerpt != L'\0') {
        const std::wstring excerpt = finding.place.excerpt;
        const size_t column = Width(excerpt.substr(0, finding.place.position));
        text += L"            " + Printable(excerpt) + L"\n            " + std::wstring(column, L' ') + L"^\n";
    }
    return text;
}

/// Returns the channel with the number of its events, or the channels that the export has instead.
std::wstring ShowChannel(const Finding& finding, bool hasExport)
{
    std::wstring text = finding.metric.channel;
    for (const auto& [channel, count] : finding.channels) {
        if (_wcsicmp(channel.c_str(), text.c_str()) == 0) {
            return text + L", " + Events(count) + L" of the export";
        }
    }
    if (hasExport) {
        text += L", which has no events in the export; the export has ";
        for (const auto& [channel, count] : finding.channels) {
            text += (channel == finding.channels.begin()->first ? L"" : L", ") + channel + L" (" + Events(count) + L")";
        }
    }
    return text;
}

std::wstring ShowLeftOut(const Finding& finding, const Options& options)
{
    std::wstring text = Line(L"left out", Events(finding.events - finding.selected) +
                                              (options.explain == 0 ? L"; --explain shows why" : L", because"));
    const std::wstring file = ToWide(InputName(options.replay));
    unsigned long long shown = 0;
    for (const auto& [reason, leftOut] : MostFrequent(finding, options.explain)) {
        const std::wstring place = FormatString(L":%lu:%lu", leftOut.line, leftOut.column);
        text += Line(L"", Events(leftOut.events) + L": " + reason + L"; first " + file + place);
        shown += leftOut.events;
    }
    const unsigned long long rest = finding.events - finding.selected - shown;
    if (options.explain != 0 && rest != 0) {
        text += Line(L"", Events(rest) + L" for " + std::to_wstring(finding.reasons.size() - options.explain) +
                              L" other reasons; --explain N shows more");
    }
    return text;
}

std::wstring Report(const Finding& finding, const Options& options)
{
    std::wstring text = Marked(kHeading, ToWide(finding.metric.place) + L": " + Printable(finding.metric.name)) + L"\n";
    if (finding.verdict != Verdict::Good) {
        return text + ShowProblem(finding) + L"\n";
    }
    const bool hasExport = !options.replay.empty();
    // A QueryList names its own channels; the channel of the metric is ignored.
    const std::wstring& query = finding.metric.query;
    const size_t first = query.find_first_not_of(L" \t\r\n");
    const bool isStructured = first != query.npos && query[first] == L'<';
    text += Line(L"channel", isStructured ? L"named in the query list" : ShowChannel(finding, hasExport));
    text += Line(L"query", first == query.npos ? L"empty, selects every event" : query);
    if (!hasExport) {
        return text + Line(Marked(kGood, L"good"), L"complete, and the query is valid") + L"\n";
    }
    text += Line(Marked(kGood, L"selected"),
                 std::to_wstring(finding.selected) + L" of " + Events(finding.events) + L" of the export");
    if (finding.selected != finding.events) {
        text += ShowLeftOut(finding, options);
    }
    return text + L"\n";
}

std::string JsonReport(const Finding& finding, const Options& options)
{
    const MetricConfiguration& metric = finding.metric;
    constexpr const char* kVerdicts[] = {"good", "problem", "not understood"};
    std::string line = "{\"check\":" + Quote(ToWide(metric.place)) + ",\"metric\":" + Quote(metric.name) +
                       ",\"channel\":" + Quote(metric.channel) + ",\"query\":" + Quote(metric.query) +
                       ",\"verdict\":\"" + kVerdicts[static_cast<size_t>(finding.verdict)] +
                       "\",\"problem\":" + (finding.problem.empty() ? "null" : Quote(finding.problem));
    if (finding.verdict == Verdict::Good && !options.replay.empty()) {
        line += ",\"events\":" + std::to_string(finding.events) + ",\"selected\":" + std::to_string(finding.selected);
        std::string reasons;
        for (const auto& [reason, leftOut] : MostFrequent(finding, options.explain)) {
            reasons += reasons.empty() ? "{\"events\":" : ",{\"events\":";
            reasons += std::to_string(leftOut.events) + ",\"reason\":" + Quote(reason) +
                       ",\"line\":" + std::to_string(leftOut.line) + ",\"column\":" + std::to_string(leftOut.column) +
                       "}";
        }
        line += options.explain == 0 ? "" : ",\"left_out\":[" + reasons + "]";
    }
    return line + "}\n";
}

/// Formats the first values of a collection as a table.
std::string ToShortTable(Collection collection)
{
    constexpr size_t kMaxValues = 20;
    const size_t count = collection.values.size();
    collection.values.resize(std::min(count, kMaxValues));
    std::string text = ToTable(collection);
    if (count > kMaxValues) {
        text.insert(text.size() - 1,
                    "  and " + std::to_string(count - kMaxValues) + " more; --format jsonl prints all values\n");
    }
    return text;
}

/// Reads the expected lines, in UTF-8 or UTF-16, and replaces @HOST@ by the computer's name. Throws Failure.
std::string ReadExpected(const std::string& path)
{
    constexpr std::string_view kPlaceholder = "@HOST@";
    const std::string text = DecodeText(ReadInput(path, ExitCode::Export));
    const std::string name = ComputerName();
    std::string expected;
    size_t from = 0;
    for (size_t at = 0; (at = text.find(kPlaceholder, from)) != text.npos; from = at + kPlaceholder.size()) {
        expected.append(text, from, at - from).append(name);
    }
    return expected.append(text, from);
}

} // namespace

ExitCode Check(const Options& options)
{
    const std::vector<MetricConfiguration> metrics = ReadConfiguration(options.config);
    const std::string expected = options.expect.empty() ? std::string() : ReadExpected(options.expect);
    const std::optional<ReplayClient> replay = LoadReplay(options);
    const bool isTable = options.format == Format::Table;
    std::vector<MetricConfiguration> good;
    ExitCode code = ExitCode::Ok;
    unsigned long long actions = 0; // entries of the export that are not events
    for (const MetricConfiguration& metric : metrics) {
        const Finding finding = CheckMetric(metric, *replay);
        WriteData(isTable ? ToUtf8(Report(finding, options)) : JsonReport(finding, options));
        if (finding.verdict == Verdict::Good) {
            good.push_back(metric);
            actions = replay->Count() - finding.events;
        } else if (finding.verdict == Verdict::Problem) {
            code = ExitCode::Problem;
        } else if (code == ExitCode::Ok) {
            code = ExitCode::NotUnderstood;
        }
    }
    if (options.replay.empty() || good.empty()) {
        return code;
    }

    std::string written;
    // Delivering on this thread is several times faster, and nothing else runs meanwhile.
    replay->SetMode(ReplayOnCallingThread | ReplayWithoutWaits | (options.actions ? 0 : DWORD{ReplayWithoutActions}));
    if (actions != 0 && !options.actions) {
        Say("note", std::to_string(actions) + (actions == 1 ? " replay action" : " replay actions") +
                        " skipped; with --actions, all except waits are carried out on this computer");
    }
    Session session(options, replay, [&](const Collection& collection) {
        const std::string lines = ToJsonLines(collection);
        WriteData(isTable ? ToShortTable(collection) : lines);
        written += lines;
    });
    if (const std::optional<Failure> failure = session.Run(good)) {
        throw *failure;
    }
    WriteData(isTable ? ToUtf8(session.Summary()) + "\n" : "");
    Require(!IsStopped(), ExitCode::Stopped,
            "stopped by Ctrl+C before the whole export was played; the check has no result");
    const std::string difference = options.expect.empty() ? "" : Difference(expected, written);
    if (difference.empty()) {
        return code;
    }
    WriteLine(InputName(options.expect) + " (-) and the values that would be written (+) differ:\n" + difference);
    return code == ExitCode::Ok ? ExitCode::Differs : code;
}

} // namespace orvel::console
