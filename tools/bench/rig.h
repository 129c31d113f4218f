#pragma once

#include "tools/bench/report.h"
#include "tools/host_object.h"
#include "tools/replay/replay_client.h"

#include <windows.h>
#include <OrvelAgent.h>
#include <wrl/client.h>

#include <filesystem>
#include <string>

namespace orvel::bench {

using Provider = Microsoft::WRL::ComPtr<IOrvelDataProvider>;

/// A logger that accepts no level.
class SilentLogger final : public HostObject<IAgentLogger> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR, LONG* levels) override;
    HRESULT STDMETHODCALLTYPE LogError(BSTR, BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LogWarning(BSTR, BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LogInfo(BSTR, BSTR) override { return E_NOTIMPL; }
};

/// A sink that discards all values and refuses those after the first `accepted`.
class CountingSink final : public HostObject<IMetricSink> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reserved8() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reserved9() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteMetric(BSTR, BSTR, VARIANT) override;

    long accepted = LONG_MAX;
    long written = 0; ///< including refused values
};

/// Every event is loaded once per channel, so that two subscriptions can receive it independently.
enum Channel : DWORD { kFirst, kSecond, kChannelCount };

/// The module with a host and the replay log. The module's imports and its calls to the host are measured.
class Rig {
public:
    /// `folder`: where the built programs are. COM must be initialised. Throws std::runtime_error when the module or
    /// the replay log cannot be used.
    explicit Rig(const std::filesystem::path& folder);

    /// Adds an event and returns its index. Call LoadEvents after the last one.
    DWORD AddEvent(const wchar_t* publisher, int id, const std::wstring& message);
    void LoadEvents();
    void Deliver(DWORD event, Channel channel = kFirst, DWORD times = 1);

    /// Returns a provider with one subscription to the events of a channel.
    Provider Subscribe(const wchar_t* metric, const wchar_t* query, Channel channel = kFirst);
    /// Takes a sample of a collection, with one item per value.
    void Collect(const Provider& provider, const wchar_t* metric, long accepted = LONG_MAX);

    ReplayClient replay;

private:
    HMODULE module_;
    SilentLogger logger_;
    HostObject<IAgentHost> host_;
    CountingSink sink_;
    Microsoft::WRL::ComPtr<IClassFactory> factory_;
    std::wstring events_;
    DWORD count_ = 0;
};

/// Runs all cases. `agentFolder`: an existing folder that serves as the layering agent's.
void RunModuleCases(Rig& rig, const std::filesystem::path& agentFolder, Report& report);

} // namespace orvel::bench
