#include "metric/metric.h"

#include "host/property.h"
#include "metric/metric_call.h"

#include <utility>

namespace orvel {

CMetric::CMetric(std::wstring name, IAgentLogger* logger, IAgentHost* host)
    : name_(std::move(name)), logger_(logger), host_(host)
{
}

HRESULT CMetric::Subscribe(IXMLDOMElement* configuration)
{
    const MetricCall call; // if the thread cannot be marked, fail here and not in the first delivery
    HRESULT hr = GetProperty(configuration, L"channel", Logger(), channel_);
    if (FAILED(hr)) {
        return hr;
    }
    hr = GetProperty(configuration, L"query", Logger(), query_);
    if (FAILED(hr)) {
        return hr;
    }
    // A subscription that the Event Log refuses is not a failure: the metric then never sees an event.
    SubscribeToEvents({shared_from_this(), &subscription_}, channel_.c_str(), query_.c_str(),
                      [this](EVT_HANDLE event, EVT_SUBSCRIBE_NOTIFY_ACTION action) {
                          if (action != EvtSubscribeActionError) {
                              OnEvent(event);
                          }
                      });
    return S_OK;
}

HRESULT CMetric::Unsubscribe()
{
    subscription_.Close();
    return S_OK;
}

} // namespace orvel
