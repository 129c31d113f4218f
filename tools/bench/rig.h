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

/// A metric and the events that it subscribes to.
struct Metric {
    const wchar_t* name;
    const wchar_t* publisher;
    int eventId;
};
constexpr Metric kCrash = {L"eventlog|eventlog_appcrash", L"Application Error", 1000};
constexpr Metric kLamina = {L"eventlog|eventlog_lamina", L"korvex", 218};

using Provider = Microsoft::WRL::ComPtr<IOrvelDataProvider>;

/// A logger that accepts no level.
class SilentLogger final : public HostObject<IAgentLogger> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR, LONG* levels) override
    {
        const OutsideCall measured;
        *levels = 0;
        return S_OK;
    }
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
    HRESULT STDMETHODCALLTYPE WriteMetric(BSTR, BSTR, VARIANT) override
    {
        const OutsideCall measured;
        return written++ < accepted ? S_OK : E_FAIL;
    }

    long accepted = LONG_MAX;
    long written = 0; ///< including refused values
};

/// The module with a host and the replay log. The module's imports and its calls to the host are measured.
class Rig {
public:
    /// `folder`: where the built programs are. COM must be initialised. Throws std::runtime_error when the module or
    /// the replay log cannot be used.
    explicit Rig(const std::filesystem::path& folder);

    /// Loads one more event of a metric and returns its index.
    DWORD AddEvent(const Metric& metric, const std::wstring& message);
    void Deliver(DWORD event, DWORD times = 1);

    /// Returns a provider with this metric alone.
    Provider Subscribe(const Metric& metric);
    /// Takes a sample of a collection, with one item per value.
    void Collect(const Provider& provider, const Metric& metric, long accepted = LONG_MAX);

private:
    ReplayClient replay_;
    HMODULE module_;
    SilentLogger logger_;
    HostObject<IAgentHost> host_;
    CountingSink sink_;
    Microsoft::WRL::ComPtr<IClassFactory> factory_;
    std::wstring events_;
};

/// Runs all cases, or with `countsOnly` those with counts. `agentFolder`: an existing folder that serves as the
/// layering agent's.
void RunModuleCases(Rig& rig, const std::filesystem::path& agentFolder, Report& report, bool countsOnly);

} // namespace orvel::bench
