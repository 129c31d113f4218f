#include "provider/provider.h"

#include "host/com_failure.h"
#include "host/log.h"
#include "metric/metric.h"
#include "metric/metric_call.h"
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

// Unlike the assignment of mingw-w64's ComPtr, takes the new reference before it releases the old one.
template <typename Interface>
void Replace(ComPtr<Interface>& held, Interface* replacement)
{
    if (held.Get() != replacement) {
        ComPtr<Interface>(replacement).Swap(held);
    }
}

// Runs a call of the host. Holds the provider, because the host may release it from inside the call.
template <typename Body>
HRESULT EnterProvider(IUnknown* provider, const Body& body)
{
    return EnterModule([&] {
        const ComPtr<IUnknown> held(provider);
        return body();
    });
}

} // namespace

void CProvider::ReleaseAll()
{
    auto metrics = std::exchange(metrics_, {});
    for (auto& [name, metric] : metrics) {
        // Not unsubscribed first: a metric releases the host's objects before it closes its subscription. If a running
        // delivery still holds the metric, the subscription is closed here.
        const std::weak_ptr<CMetric> ended = metric;
        metric.reset();
        if (const std::shared_ptr<CMetric> running = ended.lock()) {
            running->Unsubscribe();
        }
    }
    host_.Reset();
    logger_.Reset();
}

HRESULT CProvider::SubscribeMetric(BSTR name, IUnknown* configuration)
{
    return EnterProvider(this, [&] {
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
    return EnterProvider(this, [&] {
        if (name == nullptr) {
            return E_INVALIDARG;
        }
        const auto found = metrics_.find(NameOf(name));
        if (found == metrics_.end()) {
            return S_OK;
        }
        found->second->Unsubscribe();
        {
            // Removed from the table before it is destroyed: the host's logger may call back when it is released.
            const auto removed = metrics_.extract(found);
        }
        Log(Logger().Get(), LogLevel::Info, L"Unsubscribed from metric '%s'.", name);
        return S_OK;
    });
}

HRESULT CProvider::UnsubscribeAll()
{
    return EnterProvider(this, [&] {
        for (const auto& [name, metric] : metrics_) {
            metric->Unsubscribe();
        }
        {
            const auto removed = std::exchange(metrics_, {}); // as in UnsubscribeMetric
        }
        Log(Logger().Get(), LogLevel::Info, L"Unsubscribed all metrics.");
        return S_OK;
    });
}

HRESULT CProvider::QueryMetric(BSTR name, LONG_PTR context, IUnknown* sink)
{
    return EnterProvider(this, [&] {
        ComPtr<IMetricSink> metricSink;
        if (sink != nullptr) {
            sink->QueryInterface(IID_PPV_ARGS(metricSink.GetAddressOf())); // stays null without the interface
        }
        return QueryMetricEx(name, context, metricSink.Get());
    });
}

HRESULT CProvider::QueryMetricEx(BSTR name, LONG_PTR context, IMetricSink* sink)
{
    return EnterProvider(this, [&] {
        if (name == nullptr) {
            return E_INVALIDARG;
        }
        const auto found = metrics_.find(NameOf(name));
        if (found == metrics_.end()) {
            Log(Logger().Get(), LogLevel::Info, L"Metric '%s' should be queried from internal metric.", name);
            return S_OK;
        }
        const std::shared_ptr<CMetric> metric = found->second;
        const MetricCall call;
        return metric->Collect(sink, context);
    });
}

HRESULT CProvider::SetHost(IAgentLogger* logger, IAgentHost* host)
{
    return EnterProvider(this, [&] {
        if (logger == nullptr || host == nullptr) {
            return E_INVALIDARG;
        }
        Replace(logger_, logger);
        Replace(host_, host);
        return S_OK;
    });
}

} // namespace orvel
