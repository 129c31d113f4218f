#pragma once

#include "host/native_lock.h"
#include "lamina/agent_event.h"
#include "lamina/lamina_log_collector.h"
#include "metric/metric.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace orvel {

/// The logon timeline of the layering agent: four moments of the last logon and the plinths attached at it, learnt from
/// the messages of the agent's service. Their order is not relied on; only the first response after a logon counts.
class CLaminaMetric final : public CMetric {
public:
    CLaminaMetric(std::wstring name, IAgentLogger* logger, IAgentHost* host);

    /// Writes the four timestamps, the Manager host and the plinths, and clears nothing: the same is written again
    /// until new events change it. A moment not seen takes the value of the one before, for good.
    /// Gives the result of the plinth writes alone: S_OK when there is none, the flag's failure, else the result of
    /// the last plinth. Other refused writes are only logged. A null `sink` refuses with E_POINTER.
    HRESULT Collect(IMetricSink* sink, LONG_PTR context) override;

    /// An event that cannot be rendered or formatted is handled with the time or the message of the one before.
    void OnEvent(EVT_HANDLE event) override;

private:
    enum Moment : size_t { kLogon, kLogonResponse, kVolumesReady, kAllDone, kMomentCount };

    void StoreEventValues(const EVT_VARIANT* values);
    void HandleAgentEvent(const AgentEventRecord& event);
    void FindMissingPlinths();

    template <typename Value>
    HRESULT Write(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, Value value);
    HRESULT WriteAttachTimes(IMetricSink* sink);
    HRESULT WriteManagerHost(IMetricSink* sink);
    HRESULT WritePlinthInstances(IMetricSink* sink);
    /// S_OK: `managerHost_` is current. S_FALSE: the value is empty. Else the code of ReadManagerValue.
    HRESULT RefreshManagerHost();

    std::array<uint64_t, kMomentCount> times_{}; ///< FILETIMEs; 0 is not seen
    NativeLock lock_;                            ///< guards everything here; held through OnEvent and Collect
    const std::shared_ptr<CLaminaLogCollector> collector_;
    std::wstring managerHost_; ///< as last read, without the port
    AgentEventRecord lastEvent_;
};

} // namespace orvel
