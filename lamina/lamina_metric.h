#pragma once

#include "host/native_lock.h"
#include "lamina/agent_event.h"
#include "lamina/lamina_log_collector.h"
#include "metric/metric.h"

#include <array>
#include <cstdint>
#include <string>

namespace orvel {

/// The layering agent's last logon: four timestamps and the attached plinths, taken from the events of the agent's
/// service. The events may come in any order; only the first response after a logon counts.
class CLaminaMetric final : public CMetric {
public:
    CLaminaMetric(std::wstring name, IAgentLogger* logger, IAgentHost* host);

    /// Writes the four timestamps, the Manager's host and the plinths, and keeps them for the next collection. A
    /// timestamp that is not set is set to the one before it.
    /// Returns the result of the plinth writes alone: S_OK when there are no plinths, the code of a refused flag, else
    /// the result of the last plinth; E_POINTER for a null `sink`. Other refused writes are only logged.
    HRESULT Collect(IMetricSink* sink, LONG_PTR context) override;

    /// An event that cannot be rendered or formatted is handled with the time or the message of the event before it.
    void OnEvent(EVT_HANDLE event) override;

private:
    enum Timestamp : size_t { kLogon, kLogonResponse, kVolumesReady, kAllDone, kTimestampCount };

    void StoreEventValues(const EVT_VARIANT* values);
    void HandleAgentEvent(const AgentEventRecord& event);
    void FindMissingPlinths();

    template <typename Value>
    HRESULT Write(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, Value value);
    HRESULT WriteAttachTimes(IMetricSink* sink);
    HRESULT WriteManagerHost(IMetricSink* sink);
    HRESULT WritePlinthInstances(IMetricSink* sink);
    /// Returns S_OK when `managerHost_` is current, S_FALSE when the registry value is empty, else the code of
    /// ReadManagerValue.
    HRESULT RefreshManagerHost();

    NativeLock lock_;                               ///< guards the members below; held during OnEvent and Collect
    std::array<uint64_t, kTimestampCount> times_{}; ///< FILETIMEs; 0 when not set
    CLaminaLogCollector collector_;
    std::wstring managerHost_; ///< as last read, without the port
    AgentEventRecord lastEvent_;
};

} // namespace orvel
