#include "lamina/lamina_metric.h"

#include "host/metric_value.h"
#include "lamina/manager_host.h"
#include "metric/event_reading.h"

#include <mutex>
#include <utility>

namespace orvel {

namespace {

constexpr wchar_t kManagerKey[] = L"lamina|mgr";

constexpr uint64_t ToUnixMilliseconds(uint64_t fileTime)
{
    constexpr uint64_t kUnixEpoch = 116444736000000000; // 1970-01-01 as a FILETIME
    constexpr uint64_t kUnitsPerMillisecond = 10000;
    return (fileTime - kUnixEpoch) / kUnitsPerMillisecond;
}

} // namespace

CLaminaMetric::CLaminaMetric(std::wstring name, IAgentLogger* logger, IAgentHost* host)
    : CMetric(std::move(name), logger, host), collector_(logger)
{
}

void CLaminaMetric::OnEvent(EVT_HANDLE event)
{
    static constexpr const wchar_t* kPaths[] = {L"Event/System/EventID", L"Event/System/TimeCreated/@SystemTime"};

    EventHandle context; // closed after the lock is released
    const std::lock_guard guard(lock_);
    RenderEventValues(context, event, kPaths, [this](const EVT_VARIANT* values) { StoreEventValues(values); });
    // Left open on purpose, one handle per event; docs/performance.md states the cost.
    EVT_HANDLE publisher = EvtOpenPublisherMetadata(nullptr, L"korvex", nullptr, 0, 0);
    FormatEventMessage(publisher, event, [this](std::wstring_view text) { lastEvent_.message = text; });
    HandleAgentEvent(lastEvent_);
}

void CLaminaMetric::StoreEventValues(const EVT_VARIANT* values)
{
    if (values != nullptr) { // regardless of their types
        lastEvent_.eventId = values[0].UInt32Val;
        lastEvent_.time = values[1].FileTimeVal;
    }
}

void CLaminaMetric::HandleAgentEvent(const AgentEventRecord& event)
{
    Log(Logger(), LogLevel::Info, L"Lamina Agent Event: %s", event.message.c_str());
    switch (ClassifyAgentEvent(event)) {
    case AgentEventKind::Logon:
        times_[kLogon] = event.time;
        collector_.PrepareCollectLog();
        break;
    case AgentEventKind::LogonResponse:
        if (times_[kLogon] != 0 && times_[kLogonResponse] == 0) {
            times_[kLogonResponse] = event.time;
        }
        Log(Logger(), LogLevel::Info, L"Try to find Plinth from event log");
        collector_.ParseMountedPlinths(event.message, 0);
        break;
    case AgentEventKind::VolumeAttached:
        times_[kVolumesReady] = event.time;
        break;
    case AgentEventKind::Logoff:
        times_ = {};
        break;
    case AgentEventKind::AllDone:
        times_[kAllDone] = event.time;
        FindMissingPlinths();
        break;
    case AgentEventKind::Other:
        break;
    }
}

void CLaminaMetric::FindMissingPlinths()
{
    if (!collector_.GetPlinths().empty()) {
        return;
    }
    Log(Logger(), LogLevel::Info, L"No Plinth find from event log, try to find it from lamina log");
    collector_.FindPlinthsInLog();
}

HRESULT CLaminaMetric::Collect(IMetricSink* sink, LONG_PTR /*context*/)
{
    const std::lock_guard guard(lock_);
    const HRESULT hr = WriteAttachTimes(sink);
    if (FAILED(hr)) {
        LogFailure(Logger(), hr, L"Failed to write attach time metrics.");
    }
    WriteManagerHost(sink);
    return WritePlinthInstances(sink);
}

template <typename Value>
HRESULT CLaminaMetric::Write(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, Value value)
{
    const HRESULT hr = WriteMetric(sink, key, instance, value);
    if (FAILED(hr)) {
        LogFailure(Logger(), hr, L"Failed to collect metric '%s'.", key);
    }
    return hr;
}

HRESULT CLaminaMetric::WriteAttachTimes(IMetricSink* sink)
{
    static constexpr std::array<const wchar_t*, kTimestampCount> kKeys = {
        L"lamina|logon_timestamp", L"lamina|logon_response_timestamp", L"lamina|volumes_ready_timestamp",
        L"lamina|all_done_timestamp"};

    if (times_[kLogon] == 0) {
        Log(Logger(), LogLevel::Info, L"Not got time stamps for lamina event.");
        return S_OK;
    }
    for (size_t i = kLogonResponse; i < kTimestampCount; ++i) {
        if (times_[i] == 0) {
            times_[i] = times_[i - 1];
        }
    }
    HRESULT hr = S_OK;
    for (size_t i = kLogon; i < kTimestampCount && SUCCEEDED(hr); ++i) {
        hr = Write(sink, kKeys[i], L"lamina", ToUnixMilliseconds(times_[i]));
    }
    return hr;
}

HRESULT CLaminaMetric::WriteManagerHost(IMetricSink* sink)
{
    if (RefreshManagerHost() == S_OK && !managerHost_.empty()) {
        return Write(sink, kManagerKey, kManagerKey, managerHost_.c_str());
    }
    Log(Logger(), LogLevel::Info, L"Not found the manager host in registry.");
    return S_OK;
}

HRESULT CLaminaMetric::RefreshManagerHost()
{
    std::wstring value;
    const HRESULT hr = ReadManagerValue(value);
    if (hr != S_OK) {
        Log(Logger(), LogLevel::Warning,
            L"Failed to get Lamina Manager host information from registry.  Error code 0x%08lx.", hr);
        return hr;
    }
    if (value.empty()) {
        Log(Logger(), LogLevel::Warning, L"Lamina manager host value in registry is empty.");
        return S_FALSE;
    }
    const std::wstring_view host = std::wstring_view(value).substr(0, value.find(L':'));
    if (host != managerHost_) {
        managerHost_ = host;
        Log(Logger(), LogLevel::Info, L"Got lamina manager host value in registry: %s", managerHost_.c_str());
    }
    return S_OK;
}

HRESULT CLaminaMetric::WritePlinthInstances(IMetricSink* sink)
{
    const std::vector<PlinthInfo>& plinths = collector_.GetPlinths();
    if (plinths.empty()) {
        Log(Logger(), LogLevel::Info, L"No plinth mounted.");
        return S_OK;
    }
    HRESULT hr = WriteMetricFlag(sink, L"lamina|instances");
    if (FAILED(hr)) {
        LogFailure(Logger(), hr, L"Failed to write metric flag 'lamina|instances'.");
        return hr;
    }
    for (const PlinthInfo& plinth : plinths) {
        hr = Write(sink, L"lamina|instances|*", plinth.id, plinth.path.c_str());
    }
    return hr;
}

} // namespace orvel
