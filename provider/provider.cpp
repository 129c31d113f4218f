#include "provider/provider.h"

#include "host/com_failure.h"
#include "host/log.h"
#include "metric/call_registry.h"
#include "metric/metric.h"
#include "provider/metric_factory.h"

#include <windows.h>
#include <msxml2.h>

#include <utility>

namespace orvel {

using Microsoft::WRL::ComPtr;

namespace {

std::wstring NameOf(BSTR name)
{
    return {name, SysStringLen(name)};
}

// Takes the new reference before it releases the old one.
template <typename Interface>
void Replace(ComPtr<Interface>& held, Interface* replacement)
{
    if (held.Get() != replacement) {
        ComPtr<Interface>(replacement).Swap(held);
    }
}

} // namespace

// Each method that calls out holds the provider, and what it still needs of it, for its own time: the host may let go
// of both from inside the call.

CProvider::~CProvider()
{
    // A metric whose delivery is running outlives the table, its subscription must not. No delivery may start any more
    // while the others are closed, so that a metric that has none now is the table's alone.
    for (const auto& [name, metric] : metrics_) {
        metric->EndDeliveries();
    }
    for (const auto& [name, metric] : metrics_) {
        if (metric.use_count() > 1) {
            metric->Unsubscribe();
        }
    }
}

HRESULT CProvider::SubscribeMetric(BSTR name, IUnknown* configuration)
{
    return EnterModule([&]() -> HRESULT {
        if (name == nullptr || configuration == nullptr) {
            return E_INVALIDARG;
        }
        ComPtr<IXMLDOMElement> element;
        if (FAILED(
                configuration->QueryInterface(IID_IXMLDOMElement, reinterpret_cast<void**>(element.GetAddressOf())))) {
            return E_INVALIDARG;
        }
        std::wstring key = NameOf(name);
        if (metrics_.contains(key)) {
            return S_OK;
        }
        const ComPtr<IUnknown> self(this);
        std::shared_ptr<CMetric> metric = CreateMetric(key, logger_.Get(), host_.Get());
        if (!metric) {
            return S_OK;
        }
        Log(Logger().Get(), LogLevel::Info, L"created metric '%s'.", name);
        const HRESULT hr = metric->Subscribe(element.Get());
        if (FAILED(hr)) {
            LogFailure(Logger().Get(), hr, L"Failed to subscribe metric '%s'.", name);
            return hr;
        }
        Log(Logger().Get(), LogLevel::Info, L"Subscribed from metric '%s'.", name);
        metrics_.insert_or_assign(std::move(key), std::move(metric));
        return S_OK;
    });
}

HRESULT CProvider::UnsubscribeMetric(BSTR name)
{
    return EnterModule([&]() -> HRESULT {
        if (name == nullptr) {
            return E_INVALIDARG;
        }
        const auto found = metrics_.find(NameOf(name));
        if (found == metrics_.end()) {
            return S_OK;
        }
        const ComPtr<IUnknown> self(this);
        found->second->Unsubscribe();
        metrics_.extract(found); // the metric ends here, when the table no longer knows it
        Log(Logger().Get(), LogLevel::Info, L"Unsubscribed from metric '%s'.", name);
        return S_OK;
    });
}

HRESULT CProvider::UnsubscribeAll()
{
    return EnterModule([&]() -> HRESULT {
        const ComPtr<IUnknown> self(this);
        for (const auto& [name, metric] : metrics_) {
            metric->Unsubscribe();
        }
        std::exchange(metrics_, {}); // the metrics end here, when the table is already empty
        Log(Logger().Get(), LogLevel::Info, L"Unsubscribed all metrics.");
        return S_OK;
    });
}

HRESULT CProvider::QueryMetric(BSTR name, LONG_PTR context, IUnknown* sink)
{
    ComPtr<IMetricSink> metricSink;
    if (sink != nullptr) {
        // An object without the interface leaves the sink null, which the metric refuses in its own words.
        if (FAILED(sink->QueryInterface(__uuidof(IMetricSink), reinterpret_cast<void**>(metricSink.GetAddressOf())))) {
            metricSink.Reset();
        }
    }
    return static_cast<IOrvelDataProvider*>(this)->QueryMetricEx(name, context, metricSink.Get());
}

HRESULT CProvider::QueryMetricEx(BSTR name, LONG_PTR context, IMetricSink* sink)
{
    return EnterModule([&]() -> HRESULT {
        if (name == nullptr) {
            return E_INVALIDARG;
        }
        const auto found = metrics_.find(NameOf(name));
        if (found == metrics_.end()) {
            Log(Logger().Get(), LogLevel::Info, L"Metric '%s' should be queried from internal metric.", name);
            return S_OK;
        }
        const CallRegistry::Collection collection(found->second);
        return collection.metric()->Collect(sink, context);
    });
}

HRESULT CProvider::SetHost(IAgentLogger* logger, IAgentHost* host)
{
    if (logger == nullptr || host == nullptr) {
        return E_INVALIDARG;
    }
    Replace(logger_, logger);
    Replace(host_, host);
    return S_OK;
}

} // namespace orvel
