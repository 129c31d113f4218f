#pragma once

#include "tools/bench/floor_client.h"
#include "tools/bench/measure.h"
#include "tools/console/host_objects.h"
#include "tools/replay/replay_client.h"

#include <windows.h>
#include <OrvelAgent.h>
#include <wrl/client.h>

#include <string>

namespace orvel::bench {

/// A logger that wants no line, and counts how often it is asked.
class SilentLogger final : public console::HostObject<IAgentLogger> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR, LONG* levels) override;
    HRESULT STDMETHODCALLTYPE LogError(BSTR, BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LogWarning(BSTR, BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LogInfo(BSTR, BSTR) override { return E_NOTIMPL; }

    long asked = 0; ///< of one thread
};

/// A sink that takes values, looks at their length alone, and refuses those after the first `room`.
class CountingSink final : public console::HostObject<IMetricSink> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reserved8() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reserved9() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteMetric(BSTR, BSTR, VARIANT) override;

    long room = LONG_MAX;
    long long textBytes = 0; ///< of all values so far
};

/// Who an event is for: the module's metric, the floor's client, or a second metric to compare the first with.
enum Receiver : DWORD { kModule, kFloor, kOther, kReceiverCount };

/// The module with its host, the replay log, and the client to compare with.
class Rig {
public:
    /// `folder`: where the built files are, with a backslash at its end. COM must be initialised. Throws
    /// std::runtime_error when the module or the replay log cannot be used.
    Rig(const std::wstring& folder, const std::wstring& agentLog);

    /// Adds an event of which each receiver gets a copy of its own; gives its number. All are added before LoadEvents.
    DWORD AddEvent(const wchar_t* publisher, int id, const std::wstring& message);
    void LoadEvents();
    void Deliver(DWORD event, Receiver receiver, DWORD times);

    /// A provider with one subscription to the events that match, as far as they are for `receiver`.
    Microsoft::WRL::ComPtr<IOrvelDataProvider> Subscribe(const wchar_t* metric, const wchar_t* query,
                                                         Receiver receiver = kModule);
    void Collect(IOrvelDataProvider& provider, const wchar_t* metric, long room = LONG_MAX);

    ReplayClient replay;
    HMODULE module;
    SilentLogger logger;
    console::Host host;
    CountingSink sink;
    FloorClient floor;

private:
    Microsoft::WRL::ComPtr<IClassFactory> factory_;
    std::wstring events_;
    DWORD count_ = 0;
};

inline constexpr wchar_t kCrashMetric[] = L"eventlog|eventlog_appcrash";
inline constexpr wchar_t kLaminaMetric[] = L"eventlog|eventlog_lamina";

// `agentFolder`: writable, with a folder Logs in it.

/// Events and collections, through the module.
void RunEventCases(Rig& rig, const std::wstring& agentFolder, Report& report);
/// Log texts and files, on the functions that the module reads them with.
void RunLogCases(const std::wstring& agentFolder, Report& report);

} // namespace orvel::bench
