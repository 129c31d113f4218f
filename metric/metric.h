#pragma once

#include <windows.h>
#include <OrvelAgent.h>
#include <msxml2.h>
#include <winevt.h>
#include <wrl/client.h>

#include <functional>
#include <memory>
#include <string>

namespace orvel {

/// One push subscription. Its address is the context that the Event Log hands back with every delivery.
struct Subscription {
    Subscription() = default;
    ~Subscription();
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    EVT_HANDLE handle = nullptr; ///< null when not subscribed
    std::function<void(EVT_HANDLE event, EVT_SUBSCRIBE_NOTIFY_ACTION action)> callback;
};

/// Opens a push subscription to the future events of a channel that match a query.
///
/// `subscription`: must stay where it is; receives the handle, null on failure. `callback` is in place before the first
/// event can arrive and is called on the Event Log's threads.
/// Gives the platform's last error as an HRESULT, S_OK on success.
HRESULT SubscribeToEvents(Subscription& subscription, const wchar_t* channel, const wchar_t* query,
                          std::function<void(EVT_HANDLE, EVT_SUBSCRIBE_NOTIFY_ACTION)> callback);

/// What all metrics share: their name, the host's objects and one Event Log subscription, whose events go to
/// `OnEvent`. Always held by a shared pointer: a running delivery keeps its metric alive.
///
/// The host calls Subscribe, Unsubscribe and Collect one at a time; OnEvent runs on the Event Log's threads at any time
/// between. Each derived metric serialises OnEvent and Collect with a lock of its own; Unsubscribe takes no lock.
class CMetric : public std::enable_shared_from_this<CMetric> {
public:
    /// `logger` and `host` may be null; a reference is taken on each for the metric's life.
    CMetric(std::wstring name, IAgentLogger* logger, IAgentHost* host);
    virtual ~CMetric() = default;
    CMetric(const CMetric&) = delete;
    CMetric& operator=(const CMetric&) = delete;

    /// Reads "channel" and "query" from the configuration element and opens the subscription. Called once.
    /// Gives S_OK, also when the Event Log refuses the subscription, or the code of `GetProperty` (property.h).
    virtual HRESULT Subscribe(IXMLDOMElement* configuration);

    /// Closes the subscription; deliveries that are running go on to their end. Always S_OK. Called from inside this
    /// metric's own delivery or collection, the platform's handle is closed as soon as that has ended.
    virtual HRESULT Unsubscribe();

    /// Lets no delivery that starts from now on reach this metric; its subscription stays open.
    void EndDeliveries();

    /// Writes the metric's values to `sink`; the result is the metric's own. `context` is the host's and not read.
    /// Throws `_com_error` with E_OUTOFMEMORY.
    virtual HRESULT Collect(IMetricSink* sink, LONG_PTR context) = 0;

    /// Handles one delivered event; the handle is valid during the call and belongs to the caller. Throws as Collect.
    virtual void OnEvent(EVT_HANDLE event) = 0;

protected:
    /// Reads a configuration property with this metric's logger; see property.h.
    HRESULT GetProperty(IXMLDOMElement* configuration, const wchar_t* property, std::wstring& value);

    IAgentLogger* Logger() const { return logger_.Get(); }

private:
    // The end of a metric runs through these from the last to the first: the host's objects are let go of, then the
    // subscription is closed, then its callback and the strings go.
    std::wstring name_;
    std::wstring channel_;
    std::wstring query_;
    Subscription subscription_;
    Microsoft::WRL::ComPtr<IAgentLogger> logger_;
    Microsoft::WRL::ComPtr<IAgentHost> host_;
};

} // namespace orvel
