#include "tools/console/session.h"

#include "host/bstr.h"
#include "host/format.h"
#include "tools/console/input.h"
#include "tools/console/output.h"
#include "tools/console/terminal.h"
#include "tools/utf8.h"

#include <algorithm>
#include <utility>

namespace orvel::console {

namespace {

constexpr DWORD kMessageSize = 1024;

std::string LastRefusal(const ReplayClient& replay)
{
    wchar_t message[kMessageSize] = L"";
    replay.LastRefusal(message, kMessageSize);
    return ToUtf8(message);
}

/// Formats the sums of one metric. Pending records are computed, since the module does not report them. The Lamina
/// metric has no line for them: each logon replaces the values of the one before.
std::wstring SumsOf(const MetricTally& tally)
{
    const EventCounter& counter = *tally.counter;
    std::wstring lines = FormatString(L"\n  %s\n", tally.metric.name.c_str());
    if (!tally.refusal.empty()) {
        lines += L"    nothing delivered, because the Event Log refuses the subscription\n";
    } else {
        const unsigned long long recorded = counter.Counted(EventCounter::Recorded);
        const unsigned long long withoutMessage = counter.Counted(EventCounter::WithoutMessage);
        const unsigned long long otherKinds = counter.Counted(EventCounter::OtherKind);
        const unsigned long long done = tally.crashes + tally.dropped;
        lines += FormatString(L"    %llu delivered = %llu recorded + %llu without a message + %llu of other kinds\n",
                              recorded + withoutMessage + otherKinds, recorded, withoutMessage, otherKinds);
        if (tally.metric.Is(kCrashMetric)) {
            lines += FormatString(L"    %llu recorded = %llu written + %llu dropped + ", recorded, tally.crashes,
                                  tally.dropped) +
                     (done <= recorded ? FormatString(L"%llu still pending\n", recorded - done)
                                       : L"an unknown number pending, because counting began after the first event\n");
        }
    }
    return lines + FormatString(L"    %llu values written, %llu refused", tally.values, tally.refused);
}

} // namespace

std::optional<ReplayClient> LoadReplay(const Options& options)
{
    std::optional<ReplayClient> replay;
    if (options.command != Command::Check && options.replay.empty() && !options.replayOwn) {
        return replay;
    }
    const std::wstring path = PathBesideProgram(L"replay\\wevtapi.dll");
    try {
        replay.emplace(path);
    } catch (const std::runtime_error& error) {
        throw Failure(ExitCode::Export, ToUtf8(path) + ": " + error.what());
    }
    if (options.replay.empty()) {
        return replay;
    }
    for (const auto& [kind, names] : {std::pair(ReplayChannel, &options.channels),
                                      {ReplayPublisher, &options.publishers},
                                      {ReplayMissingPublisher, &options.missingPublishers}}) {
        for (const std::string& name : *names) {
            replay->Declare(kind, ToWide(name).c_str());
        }
    }
    const std::string name = InputName(options.replay);
    const std::string bytes = ReadInput(options.replay, ExitCode::Export);
    wchar_t message[kMessageSize] = L"";
    const DWORD error = replay->LoadBytes(bytes.data(), bytes.size(), message, kMessageSize);
    Require(error == ERROR_SUCCESS, ExitCode::Export, name + ": " + ToUtf8(message));
    Require(replay->Count() != 0, ExitCode::Export,
            name + ": the export has no event; export a channel that has some with: "
                   "wevtutil qe LOG /f:RenderedXml /e:Events");
    return replay;
}

Session::Session(const Options& options, const std::optional<ReplayClient>& replay, OnCollection onCollection)
    : options_(options), replay_(replay), onCollection_(std::move(onCollection)), logger_(options.logMask),
      module_(options.module)
{
    Require(SUCCEEDED(module_.Provider().SetHost(&logger_, &host_)), ExitCode::Module,
            "the provider does not accept a host");
}

std::optional<Failure> Session::Run(const std::vector<MetricConfiguration>& metrics)
{
    const std::optional<Failure> failure = FailureOf([&] {
        for (const MetricConfiguration& metric : metrics) {
            const std::string& refusal = Subscribe(metric).refusal;
            if (!refusal.empty()) {
                Say("warning", metric.place + ": no event will come: " + refusal);
            }
        }
        WaitForEvents();
        Require(CollectAll(), ExitCode::Collection, "not every collection succeeded");
    });
    const std::optional<Failure> endFailure = FailureOf([&] { End(); });
    if (failure && endFailure) {
        Say("warning", endFailure->what());
    }
    return failure ? failure : endFailure;
}

std::wstring Session::Summary() const
{
    std::wstring text = IsStopped() ? L"Stopped by Ctrl+C: " : L"Done: ";
    if (replay_) {
        text += FormatString(L"%lu of %lu entries played, ", played_, replay_->Count());
    }
    text += FormatString(collections_ == 1 ? L"%u collection" : L"%u collections", collections_);
    text = Marked(kHeading, text);
    for (const MetricTally& tally : tallies_) {
        text += SumsOf(tally);
    }
    return text;
}

const MetricTally& Session::Subscribe(const MetricConfiguration& metric)
{
    EventCounter& counter = EventCounter::Create(metric);
    if (replay_) {
        replay_->Observe(&EventCounter::OnNotification, &counter);
    }
    const UniqueBstr name = MakeCountedBstr(metric.name);
    const HRESULT hr = module_.Provider().SubscribeMetric(name.get(), metric.element.Get());
    Require(SUCCEEDED(hr), ExitCode::Subscription,
            metric.place + ": '" + ToUtf8(metric.name) + "' cannot be subscribed: " + Describe(hr));
    // The provider does not report a subscription that the Event Log refuses; it just never gets an event.
    std::string refusal;
    if (replay_) {
        replay_->Observe(nullptr, nullptr);
        refusal = LastRefusal(*replay_);
    } else if (const DWORD code = counter.Subscribe(metric)) {
        refusal = Describe(HRESULT_FROM_WIN32(code));
    }
    return tallies_.emplace_back(MetricTally{metric, &counter, std::move(refusal)});
}

void Session::WaitForEvents()
{
    started_ = Clock::now();
    nextCollection_ = started_ + Seconds(options_.interval);
    if (!replay_) {
        constexpr DWORD kPollMilliseconds = 50;
        while (!IsStopped(kPollMilliseconds)) {
            CollectWhenDue();
        }
        return;
    }
    firstTime_ = replay_->EntryTime(0);
    const DWORD error = replay_->Play(&Session::OnProgress, this);
    EndProgress();
    if (playFailure_) {
        throw *playFailure_;
    }
    Require(error == ERROR_SUCCESS || error == ERROR_CANCELLED, ExitCode::Export,
            "the replay stopped: " + Describe(HRESULT_FROM_WIN32(error)) + " " + LastRefusal(*replay_));
}

BOOL CALLBACK Session::OnProgress(void* context, DWORD done, DWORD total)
{
    Session& self = *static_cast<Session*>(context);
    self.playFailure_ = FailureOf([&] { // an exception must not pass through the replay log
        ShowProgress(done, total);
        self.CollectWhenDue();
        if (std::exchange(self.played_, done) != done) { // not while an action waits
            if (std::ranges::count(self.options_.collectAfter, done) != 0) {
                self.replay_->WaitForDeliveries();
                self.CollectAll();
            }
            self.Pace(done, total);
        }
    });
    return !self.playFailure_ && !IsStopped();
}

/// Waits until the next entry is due. An entry that is older than the one before it is due at once.
void Session::Pace(DWORD done, DWORD total)
{
    const ULONGLONG time = done < total && options_.speed > 0 ? replay_->EntryTime(done) : 0;
    firstTime_ = firstTime_ == 0 ? time : firstTime_;
    if (time <= firstTime_) {
        return;
    }
    constexpr double kSlice = 100; // milliseconds
    const TimePoint due = started_ + Seconds(static_cast<double>(time - firstTime_) / 1e7 / options_.speed);
    for (Seconds left = due - Clock::now(); left > left.zero(); left = due - Clock::now()) {
        if (IsStopped(static_cast<DWORD>(std::min(left.count() * 1000 + 1, kSlice)))) {
            return;
        }
        ShowProgress(done, total, std::chrono::ceil<std::chrono::seconds>(left));
        CollectWhenDue();
    }
}

void Session::CollectWhenDue()
{
    if (options_.interval > 0 && Clock::now() >= nextCollection_) {
        CollectAll();
        nextCollection_ = Clock::now() + Seconds(options_.interval);
    }
}

bool Session::CollectAll()
{
    ++collections_;
    for (MetricTally& tally : tallies_) {
        const UniqueBstr name = MakeCountedBstr(tally.metric.name);
        const unsigned long long refusedBefore = sink_.Refused();
        logger_.StartKeeping();
        const HRESULT hr = module_.Provider().QueryMetric(name.get(), 0, &sink_);
        const Collection collection = {collections_, tally.metric.name, sink_.Take(), logger_.StopKeeping()};
        tally.values += collection.values.size();
        tally.refused += sink_.Refused() - refusedBefore;
        tally.crashes += std::ranges::count(collection.values, L"appcrash|crash_details|*", &MetricValue::key);
        tally.dropped += std::ranges::count_if(collection.infoLines, [](const std::wstring& line) {
            return line.starts_with(L"Collecting metric has exceeded max failure times.");
        });
        onCollection_(collection);
        if (FAILED(hr)) {
            hasFailedCollection_ = true;
            Say("error", "collection " + std::to_string(collections_) + " of '" + ToUtf8(tally.metric.name) +
                             "' failed: " + Describe(hr));
        }
    }
    return !hasFailedCollection_;
}

void Session::End()
{
    module_.Provider().UnsubscribeAll();
    for (const MetricTally& tally : tallies_) {
        tally.counter->Stop();
    }
    module_.Unload();
    Require(logger_.References() + host_.References() + sink_.References() == 0, ExitCode::Unclean,
            "the module is unloaded but has not released all of the host's objects");
}

} // namespace orvel::console
