#pragma once

#include "metric/subscription.h"

#include <windows.h>
#include <OrvelAgent.h>
#include <msxml2.h>
#include <winevt.h>
#include <wrl/client.h>

#include <memory>
#include <string>

namespace orvel {

/// Base of all metrics: the name, the host's objects and one Event Log subscription, whose events go to `OnEvent`.
/// Always held by a shared pointer: a running delivery keeps its metric alive.
///
/// The host's calls do not overlap on different threads, but Unsubscribe may run inside Collect. OnEvent runs on the
/// Event Log's threads at any time. Each derived metric serialises OnEvent and Collect with its own lock. Unsubscribe
/// takes no lock.
class CMetric : public std::enable_shared_from_this<CMetric> {
public:
    /// `logger` and `host` may be null; the metric holds a reference to each.
    CMetric(std::wstring name, IAgentLogger* logger, IAgentHost* host);
    virtual ~CMetric() = default;
    CMetric(const CMetric&) = delete;
    CMetric& operator=(const CMetric&) = delete;

    /// Reads "channel" and "query" from the configuration element and opens the subscription. Called once.
    /// Returns S_OK, also when the Event Log refuses the subscription, or the code of `GetProperty` (property.h).
    /// Throws std::bad_alloc, and `_com_error` with E_OUTOFMEMORY.
    virtual HRESULT Subscribe(IXMLDOMElement* configuration);

    /// Closes the subscription as `Subscription::Close` does. Running deliveries complete. Returns S_OK.
    virtual HRESULT Unsubscribe();

    /// Writes the metric's values to `sink` and returns the metric's own result. `context` is not read.
    /// Throws std::bad_alloc, `_com_error` with E_OUTOFMEMORY or the code of a failed VariantClear, and
    /// std::system_error on a thread that is inside this metric already.
    virtual HRESULT Collect(IMetricSink* sink, LONG_PTR context) = 0;

    /// Handles one delivered event. The handle is valid during the call and belongs to the caller. Throws as Collect.
    virtual void OnEvent(EVT_HANDLE event) = 0;

protected:
    IAgentLogger* Logger() const { return logger_.Get(); }

private:
    // Destroyed in reverse order: the host's objects are released before the subscription is closed.
    std::wstring name_;
    std::wstring channel_;
    std::wstring query_;
    Subscription subscription_;
    Microsoft::WRL::ComPtr<IAgentLogger> logger_;
    Microsoft::WRL::ComPtr<IAgentHost> host_;
};

} // namespace orvel
