#pragma once

#include "host/native_lock.h"
#include "metric/metric.h"

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace orvel {

/// Application crashes. Every event that the configured query delivers becomes a record, which waits, first in, first
/// out, for the next collection. An event whose message cannot be formatted leaves no record.
class CAppCrashMetric final : public CMetric {
public:
    using CMetric::CMetric;

    /// Writes the flag "appcrash|contained" and one "appcrash|crash_details|*" per pending record, oldest first.
    /// Removes each record that the sink accepts, and a record that it refuses for the third time. Stops at the first
    /// refusal and returns its code; E_POINTER for a null `sink`. Returns S_OK when no record is pending or all were
    /// written.
    HRESULT Collect(IMetricSink* sink, LONG_PTR context) override;

    void OnEvent(EVT_HANDLE event) override;

private:
    struct CrashRecord {
        std::wstring details;
        uint32_t failureCount = 0; ///< refused writes so far
    };

    HRESULT WriteContainedFlag(IMetricSink* sink);
    HRESULT WriteCrashDetails(IMetricSink* sink);
    HRESULT WriteCrashDetail(IMetricSink* sink, const std::wstring& details, uint32_t ordinal);
    void BuildHostNameLine();
    void SetCrashTimeLine(const EVT_VARIANT* values);
    void AddCrashFromMessage(std::wstring_view message);

    NativeLock lock_; ///< guards the members below; held during OnEvent and Collect
    std::wstring crashTimeLine_;
    std::wstring hostNameLine_; ///< empty until the computer's name could be read
    std::deque<CrashRecord> pendingCrashes_;
};

} // namespace orvel
