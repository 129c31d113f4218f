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
/// It keeps one metric per subscribed name, matched to the letter as the host spelled it, and passes the host's calls
/// on. It takes no lock: the host's calls on one provider must not overlap. A logger or sink may nevertheless, from
/// inside a call, unsubscribe the metric at hand or let go of the provider.
///
/// All methods may throw `_com_error` with E_OUTOFMEMORY; collections also std::system_error when called from inside
/// the same metric.
class CProvider : public IOrvelDataProvider {
public:
    CProvider(const CProvider&) = delete;
    CProvider& operator=(const CProvider&) = delete;

    /// E_INVALIDARG for a null argument or a configuration that is no DOM element; the metric's failure code; else
    /// S_OK, also for a name that is not served (ignored) or already subscribed (nothing changes).
    HRESULT STDMETHODCALLTYPE SubscribeMetric(BSTR name, IUnknown* configuration) override;
    /// E_INVALIDARG for a null name, else S_OK, also for a name that is not subscribed.
    HRESULT STDMETHODCALLTYPE UnsubscribeMetric(BSTR name) override;
    /// S_OK.
    HRESULT STDMETHODCALLTYPE UnsubscribeAll() override;
    /// As QueryMetricEx; a `sink` without IMetricSink counts as a null sink.
    HRESULT STDMETHODCALLTYPE QueryMetric(BSTR name, LONG_PTR context, IUnknown* sink) override;
    /// E_INVALIDARG for a null name; S_OK for a name that is not subscribed; else what the metric's collection gives.
    HRESULT STDMETHODCALLTYPE QueryMetricEx(BSTR name, LONG_PTR context, IMetricSink* sink) override;
    /// E_INVALIDARG, with nothing changed, when either is null; else S_OK. Both are kept with a reference; metrics
    /// created before keep the ones they were created with.
    HRESULT STDMETHODCALLTYPE SetHost(IAgentLogger* logger, IAgentHost* host) override;

    HRESULT STDMETHODCALLTYPE Reserved10() override { return NotServed(); }
    HRESULT STDMETHODCALLTYPE Reserved11() override { return NotServed(); }
    HRESULT STDMETHODCALLTYPE Reserved13() override { return NotServed(); }
    HRESULT STDMETHODCALLTYPE Reserved14() override { return NotServed(); }
    HRESULT STDMETHODCALLTYPE Reserved15() override { return NotServed(); }
    HRESULT STDMETHODCALLTYPE Reserved16() override { return NotServed(); }

protected:
    CProvider() = default;
    ~CProvider();

private:
    static HRESULT NotServed() { return S_OK; }
    /// Held for the line that it takes, in which the host may set another.
    Microsoft::WRL::ComPtr<IAgentLogger> Logger() const { return logger_; }

    Microsoft::WRL::ComPtr<IAgentLogger> logger_;
    Microsoft::WRL::ComPtr<IAgentHost> host_;
    std::map<std::wstring, std::shared_ptr<CMetric>> metrics_;
};

} // namespace orvel
