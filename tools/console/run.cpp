#include "tools/console/run.h"

#include "host/bstr.h"
#include "tools/console/configuration.h"
#include "tools/console/failure.h"
#include "tools/console/progress.h"
#include "tools/console/provider_module.h"
#include "tools/console/text.h"
#include "tools/console/writers.h"
#include "tools/replay/replay_client.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

namespace orvel::console {

namespace {

constexpr DWORD kMessageSize = 1024;

HANDLE stopEvent = nullptr;

// The first Ctrl+C ends the run in order, a second one at once.
BOOL WINAPI OnControl(DWORD event)
{
    if (event > CTRL_BREAK_EVENT || WaitForSingleObject(stopEvent, 0) == WAIT_OBJECT_0) {
        return FALSE;
    }
    return SetEvent(stopEvent);
}

std::wstring ProgramFolder()
{
    const std::wstring path = ModulePath(nullptr);
    return path.substr(0, path.find_last_of(L'\\') + 1);
}

std::optional<ReplayClient> LoadReplay(const std::wstring& path)
{
    if (path.empty()) {
        return {};
    }
    const std::wstring standIn = ProgramFolder() + L"replay\\wevtapi.dll";
    try {
        ReplayClient replay(standIn);
        wchar_t message[kMessageSize] = L"";
        const DWORD error = replay.Load(path.c_str(), message, kMessageSize);
        if (error != ERROR_SUCCESS) {
            throw Failure(ExitCode::Export,
                          ToUtf8(path) + ": " +
                              (*message != L'\0' ? ToUtf8(message) : Describe(HRESULT_FROM_WIN32(error))));
        }
        return replay;
    } catch (const Failure&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw Failure(ExitCode::Export, ToUtf8(standIn) + ": " + error.what());
    }
}

// One run of the provider, from its creation to its end.
class Session {
public:
    Session(const Options& options, std::vector<MetricConfiguration> metrics)
        : options_(options), metrics_(std::move(metrics)), logger_(options.logMask),
          replay_(LoadReplay(options.replay)), module_(options.module, ProgramFolder())
    {
    }

    void Run()
    {
        std::exception_ptr failure;
        try {
            if (FAILED(module_.Provider().SetHost(&logger_, &host_))) {
                throw Failure(ExitCode::Module, "the provider does not accept a host");
            }
            for (const MetricConfiguration& metric : metrics_) {
                Subscribe(metric);
            }
            WaitForEvents();
            CollectAll();
            if (hasFailedCollection_) {
                throw Failure(ExitCode::Collection, "not every collection succeeded");
            }
        } catch (...) {
            failure = std::current_exception();
        }
        End(failure);
    }

private:
    void Subscribe(const MetricConfiguration& metric)
    {
        if (_wcsicmp(metric.name.c_str(), L"eventlog|eventlog_appcrash") != 0 &&
            _wcsicmp(metric.name.c_str(), L"eventlog|eventlog_lamina") != 0) {
            Say("warning", metric.place + ": the provider has no metric '" + ToUtf8(metric.name) +
                               "' and ignores it; it serves eventlog|eventlog_appcrash and eventlog|eventlog_lamina");
            return;
        }
        if (std::find(subscribed_.begin(), subscribed_.end(), metric.name) != subscribed_.end()) {
            Say("warning",
                metric.place + ": '" + ToUtf8(metric.name) + "' is already subscribed; the first one counts");
            return;
        }
        const UniqueBstr name = MakeCountedBstr(metric.name);
        const HRESULT hr = module_.Provider().SubscribeMetric(name.get(), metric.element.Get());
        if (FAILED(hr)) {
            throw Failure(ExitCode::Subscription, metric.place + ": '" + ToUtf8(metric.name) +
                                                      "' cannot be subscribed: " + Describe(hr) +
                                                      "; it needs a <channel> and a <query>");
        }
        subscribed_.push_back(metric.name);
        if (replay_) {
            // A subscription that the Event Log refuses is no failure of the provider; it would just stay silent.
            const std::string refusal = LastRefusal();
            if (!refusal.empty()) {
                Say("warning", metric.place + ": no event will come: " + refusal);
            }
        }
    }

    std::string LastRefusal() const
    {
        wchar_t message[kMessageSize] = L"";
        replay_->LastRefusal(message, kMessageSize);
        return ToUtf8(message);
    }

    void WaitForEvents()
    {
        nextCollection_ = Clock::now() + Interval();
        if (replay_) {
            const DWORD error = replay_->Play(&Session::OnProgress, this);
            progress_.Finish();
            if (playFailure_) {
                std::rethrow_exception(playFailure_);
            }
            if (error != ERROR_SUCCESS && error != ERROR_CANCELLED) {
                throw Failure(ExitCode::Export,
                              "the replay stopped: " + Describe(HRESULT_FROM_WIN32(error)) + " " + LastRefusal());
            }
            return;
        }
        constexpr DWORD kPollMilliseconds = 50;
        while (WaitForSingleObject(stopEvent, kPollMilliseconds) == WAIT_TIMEOUT) {
            CollectWhenDue();
        }
    }

    static BOOL CALLBACK OnProgress(void* context, DWORD done, DWORD total)
    {
        Session& self = *static_cast<Session*>(context);
        try {
            self.progress_.Show(done, total);
            self.CollectWhenDue();
            const auto& after = self.options_.collectAfter;
            if (std::find(after.begin(), after.end(), done) != after.end()) {
                self.CollectAll();
            }
            return WaitForSingleObject(stopEvent, 0) != WAIT_OBJECT_0;
        } catch (...) {
            self.playFailure_ = std::current_exception(); // must not pass through the replay log
            return FALSE;
        }
    }

    void CollectWhenDue()
    {
        if (options_.interval > 0 && Clock::now() >= nextCollection_) {
            CollectAll();
            nextCollection_ = Clock::now() + Interval();
        }
    }

    void CollectAll()
    {
        ++collections_;
        for (const std::wstring& metric : subscribed_) {
            const UniqueBstr name = MakeCountedBstr(metric);
            logger_.StartKeeping();
            const HRESULT hr = module_.Provider().QueryMetric(name.get(), 0, &sink_);
            const Collection collection = {collections_, metric, sink_.Take(), logger_.StopKeeping()};
            WriteData(options_.format == Format::Table ? ToTable(collection) : ToJsonLines(collection));
            if (FAILED(hr)) {
                hasFailedCollection_ = true;
                Say("error", "collection " + std::to_string(collections_) + " of '" + ToUtf8(metric) +
                                 "' failed: " + Describe(hr));
            }
        }
    }

    // What failed first is what the run ends with; an unclean end is only told then.
    void End(const std::exception_ptr& failure)
    {
        try {
            module_.Provider().UnsubscribeAll();
            module_.Unload();
            if (logger_.References() + host_.References() + sink_.References() != 0) {
                throw Failure(ExitCode::Unclean, "the module is gone but still holds references on the host's objects");
            }
        } catch (const Failure& unclean) {
            if (!failure) {
                throw;
            }
            Say("warning", unclean.what());
        }
        if (failure) {
            std::rethrow_exception(failure);
        }
    }

    using Clock = std::chrono::steady_clock;

    Clock::duration Interval() const
    {
        return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options_.interval));
    }

    const Options& options_;
    const std::vector<MetricConfiguration> metrics_;
    Logger logger_;
    Host host_;
    Sink sink_;
    std::optional<ReplayClient> replay_; // loaded before the module, which is to find this Event Log
    ProviderModule module_;
    std::vector<std::wstring> subscribed_;
    Progress progress_;
    Clock::time_point nextCollection_;
    std::exception_ptr playFailure_;
    unsigned collections_ = 0;
    bool hasFailedCollection_ = false;
};

} // namespace

void Run(const Options& options)
{
    stopEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(OnControl, TRUE);
    Session(options, ReadConfiguration(options.config)).Run();
}

} // namespace orvel::console
