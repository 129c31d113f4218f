#pragma once

#include "tools/console/configuration.h"
#include "tools/console/event_counter.h"
#include "tools/console/failure.h"
#include "tools/console/host_objects.h"
#include "tools/console/options.h"
#include "tools/console/provider_module.h"
#include "tools/console/writers.h"
#include "tools/replay/replay_client.h"

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

namespace orvel::console {

/// Loads the replay log from the program's directory if the command needs it, and the export, the channels and the
/// publishers that the options name. Call it before a session loads the module, which then imports this wevtapi.dll.
/// Throws Failure, also if the export is empty.
std::optional<ReplayClient> LoadReplay(const Options& options);

/// Sums of one metric's events and values. The counter counts the events and the sink the values; dropped records are
/// known from the module's log.
struct MetricTally {
    MetricConfiguration metric;
    EventCounter* counter;
    std::string refusal;            ///< why the Event Log refuses the subscription; empty if it does not
    unsigned long long values = 0;  ///< written to the sink
    unsigned long long crashes = 0; ///< of these, records of crashes
    unsigned long long refused = 0;
    unsigned long long dropped = 0; ///< records dropped after repeated refusals
};

/// One run of the provider, from its creation to its end, over the live Event Log or a replayed export.
class Session {
public:
    using OnCollection = std::function<void(const Collection&)>;

    /// Creates the provider. Without `replay`, its events come from the live Event Log. COM must be initialised. Throws
    /// Failure.
    Session(const Options& options, const std::optional<ReplayClient>& replay, OnCollection onCollection);

    /// Subscribes, waits until the replay ends or the user presses Ctrl+C, collects and ends the session. Returns the
    /// first failure; a later one is written to standard error.
    std::optional<Failure> Run(const std::vector<MetricConfiguration>& metrics);

    // The steps of Run. They throw Failure.

    /// Subscribes the provider to a metric and counts its events. The result is valid until the next call.
    const MetricTally& Subscribe(const MetricConfiguration& metric);

    /// Collects every metric and passes its values to `onCollection`. Returns whether all collections so far have
    /// succeeded.
    bool CollectAll();

    /// Unsubscribes and unloads the module, which must release all of the host's objects.
    void End();

    std::wstring ModulePath() const { return module_.Path(); }

    /// Formats the sums of the events and values.
    std::wstring Summary() const;

private:
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;
    using TimePoint = std::chrono::time_point<Clock, Seconds>; // floating-point, so that no option overflows it

    void WaitForEvents();
    static BOOL CALLBACK OnProgress(void* context, DWORD done, DWORD total);
    void Pace(DWORD done, DWORD total);
    void CollectWhenDue();

    const Options& options_;
    const std::optional<ReplayClient>& replay_;
    const OnCollection onCollection_;
    Logger logger_;
    Host host_;
    Sink sink_;
    ProviderModule module_;
    std::vector<MetricTally> tallies_;
    TimePoint started_;
    TimePoint nextCollection_;
    ULONGLONG firstTime_ = 0; // of the export's entries
    DWORD played_ = 0;
    std::optional<Failure> playFailure_;
    unsigned collections_ = 0;
    bool hasFailedCollection_ = false;
};

} // namespace orvel::console
