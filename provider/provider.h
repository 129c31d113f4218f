#pragma once

#include <OrvelAgent.h>
#include <wrl/client.h>

#include <map>
#include <memory>
#include <string>

namespace orvel {

class CMetric;

/// The data provider without its COM identity, which module/ adds: IUnknown, IDispatch, aggregation.
///
/// Holds one metric per subscribed name, compared case-sensitively, and forwards the host's calls to it. Takes no lock:
/// the host's calls on one provider must not overlap. From inside a call, however, a logger or sink may unsubscribe any
/// metric or release the provider.
///
/// All methods throw `_com_error` with E_OUTOFMEMORY when memory runs out. Collections also throw it with the code of a
/// failed VariantClear, and std::system_error when they are called from inside the same metric.
class CProvider : public IOrvelDataProvider {
public:
    CProvider(const CProvider&) = delete;
    CProvider& operator=(const CProvider&) = delete;

    /// Creates and subscribes the metric `name`. Returns E_INVALIDARG for a null argument or a configuration without
    /// IXMLDOMElement, the metric's failure code, or S_OK. An unknown name, or one that is subscribed already, changes
    /// nothing and is no error.
    HRESULT STDMETHODCALLTYPE SubscribeMetric(BSTR name, IUnknown* configuration) override;
    /// Closes the metric's subscription and releases the metric. Returns E_INVALIDARG for a null name, else S_OK, also
    /// for a name that is not subscribed.
    HRESULT STDMETHODCALLTYPE UnsubscribeMetric(BSTR name) override;
    /// Closes all subscriptions and releases the metrics. Returns S_OK.
    HRESULT STDMETHODCALLTYPE UnsubscribeAll() override;
    /// Calls QueryMetricEx with the IMetricSink of `sink`, or with null if it has none.
    HRESULT STDMETHODCALLTYPE QueryMetric(BSTR name, LONG_PTR context, IUnknown* sink) override;
    /// Collects a metric. Returns E_INVALIDARG for a null name, S_OK for a name that is not subscribed, else the result
    /// of the metric's `Collect`. `context` is passed on and not read.
    HRESULT STDMETHODCALLTYPE QueryMetricEx(BSTR name, LONG_PTR context, IMetricSink* sink) override;
    /// Holds a reference to both, for metrics that are subscribed later and for the provider's own log lines. Returns
    /// E_INVALIDARG, and changes nothing, when either is null, else S_OK.
    HRESULT STDMETHODCALLTYPE SetHost(IAgentLogger* logger, IAgentHost* host) override;

    // Reserved. They return S_OK.
    HRESULT STDMETHODCALLTYPE Reserved10() override { return Reserved(); }
    HRESULT STDMETHODCALLTYPE Reserved11() override { return Reserved(); }
    HRESULT STDMETHODCALLTYPE Reserved13() override { return Reserved(); }
    HRESULT STDMETHODCALLTYPE Reserved14() override { return Reserved(); }
    HRESULT STDMETHODCALLTYPE Reserved15() override { return Reserved(); }
    HRESULT STDMETHODCALLTYPE Reserved16() override { return Reserved(); }

protected:
    CProvider() = default;
    ~CProvider() = default;

    /// Closes all subscriptions and releases the metrics and the host's objects. Called before the destructor, so that
    /// a host object that is released can still call the provider.
    void ReleaseAll();

private:
    static HRESULT Reserved() { return S_OK; }
    /// Returns a reference: the host may replace the logger from inside the line that it logs.
    Microsoft::WRL::ComPtr<IAgentLogger> Logger() const { return logger_; }

    Microsoft::WRL::ComPtr<IAgentLogger> logger_;
    Microsoft::WRL::ComPtr<IAgentHost> host_;
    std::map<std::wstring, std::shared_ptr<CMetric>> metrics_;
};

} // namespace orvel
