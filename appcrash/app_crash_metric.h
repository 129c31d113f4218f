#pragma once

#include "host/native_lock.h"
#include "metric/metric.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

namespace orvel {

/// Application crashes: every event that the configured query delivers becomes one record, which waits, first in first
/// out, for the next collection. Nothing is filtered here; an event whose message cannot be formatted leaves no record.
class CAppCrashMetric final : public CMetric {
public:
    using CMetric::CMetric;

    /// Writes the flag "appcrash|contained" and one "appcrash|crash_details|*" per pending record, in order, and
    /// removes each record that the sink took. Stops at the first refused write and gives its code; the refused record
    /// stays until its third refusal. S_OK when all was written, or nothing was pending. A null `sink` refuses with
    /// E_POINTER.
    HRESULT Collect(IMetricSink* sink, LONG_PTR context) override;

    void OnEvent(EVT_HANDLE event) override;

private:
    struct CrashRecord {
        std::unique_ptr<wchar_t[]> details;
        uint32_t failureCount = 0; ///< refused writes so far
    };

    HRESULT WriteContainedFlag(IMetricSink* sink);
    HRESULT WriteCrashDetails(IMetricSink* sink);
    HRESULT WriteCrashDetail(IMetricSink* sink, const wchar_t* details, uint32_t ordinal);
    bool BuildHostNameLine();
    void SetCrashTimeLine(const EVT_VARIANT* values);
    void AddCrashFromMessage(std::wstring_view message);
    void AddCrashRecord(std::unique_ptr<wchar_t[]> details);

    NativeLock lock_; ///< guards all below; held through OnEvent and Collect
    std::wstring crashTimeLine_;
    std::wstring hostNameLine_; ///< empty until the name could be read, then kept
    std::deque<CrashRecord> pendingCrashes_;
};

} // namespace orvel
