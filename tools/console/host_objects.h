#pragma once

#include "host/log.h"
#include "tools/host_object.h"

#include <windows.h>
#include <OrvelAgent.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace orvel::console {

class Host final : public HostObject<IAgentHost> {};

constexpr LONG kErrorsAndWarnings = static_cast<LONG>(LogLevel::Error) | static_cast<LONG>(LogLevel::Warning);
constexpr LONG kAllLevels = kErrorsAndWarnings | static_cast<LONG>(LogLevel::Info);

/// Receives the provider's log lines: shows those of some levels and keeps the info lines of one thread on request.
class Logger final : public HostObject<IAgentLogger> {
public:
    /// `shown`: mask of LogLevel.
    explicit Logger(LONG shown) : shown_(shown) {}

    /// Starts keeping the info lines that the calling thread logs.
    void StartKeeping();
    /// Stops keeping and returns the lines, without trailing line breaks.
    std::vector<std::wstring> StopKeeping();

    HRESULT STDMETHODCALLTYPE Reserved7() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR category, LONG* levels) override;
    HRESULT STDMETHODCALLTYPE LogError(BSTR, BSTR text) override { return Log(LogLevel::Error, "error", text); }
    HRESULT STDMETHODCALLTYPE LogWarning(BSTR, BSTR text) override { return Log(LogLevel::Warning, "warning", text); }
    HRESULT STDMETHODCALLTYPE LogInfo(BSTR, BSTR text) override { return Log(LogLevel::Info, "info", text); }

private:
    HRESULT Log(LogLevel level, const char* name, BSTR text);

    const LONG shown_;
    std::mutex lock_;
    DWORD keptThread_ = 0;
    std::vector<std::wstring> kept_;
};

/// One value as the provider wrote it.
struct MetricValue {
    std::wstring key;
    std::wstring instance;
    VARTYPE type; ///< VT_BSTR: `text` is set; VT_UI8: `number`
    std::wstring text;
    ULONGLONG number;
};

/// Keeps what a collection writes, in order. A value of a type that no metric has is refused with DISP_E_BADVARTYPE.
class Sink final : public HostObject<IMetricSink> {
public:
    std::vector<MetricValue> Take() { return std::exchange(values_, {}); }
    unsigned long long Refused() const { return refused_; }

    HRESULT STDMETHODCALLTYPE Reserved7() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reserved8() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reserved9() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteMetric(BSTR key, BSTR instance, VARIANT value) override;

private:
    std::vector<MetricValue> values_;
    unsigned long long refused_ = 0; // not atomic: the provider writes on the collecting thread
};

} // namespace orvel::console
