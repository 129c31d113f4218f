#include "appcrash/app_crash_metric.h"

#include "appcrash/crash_details.h"
#include "host/com_failure.h"
#include "host/log.h"
#include "host/metric_value.h"
#include "metric/event_reading.h"

#include <cwchar>
#include <iterator>
#include <mutex>

namespace orvel {

namespace {

constexpr uint32_t kMaxFailureTimes = 3;
constexpr wchar_t kContainedKey[] = L"appcrash|contained";
constexpr wchar_t kDetailsKey[] = L"appcrash|crash_details|*";

} // namespace

HRESULT CAppCrashMetric::Collect(IMetricSink* sink, LONG_PTR /*context*/)
{
    const std::lock_guard guard(lock_);
    const HRESULT hr = WriteContainedFlag(sink);
    if (FAILED(hr)) {
        return hr;
    }
    return WriteCrashDetails(sink);
}

HRESULT CAppCrashMetric::WriteContainedFlag(IMetricSink* sink)
{
    if (pendingCrashes_.empty()) {
        Log(Logger(), LogLevel::Info, L"No application crash available");
        return S_OK;
    }
    const HRESULT hr = WriteMetricFlag(sink, kContainedKey);
    if (FAILED(hr)) {
        LogFailure(Logger(), hr, L"Failed to write metric flag 'appcrash|contained'.");
    }
    return hr;
}

HRESULT CAppCrashMetric::WriteCrashDetails(IMetricSink* sink)
{
    for (uint32_t ordinal = 1; !pendingCrashes_.empty(); ++ordinal) {
        CrashRecord& record = pendingCrashes_.front();
        const HRESULT hr = WriteCrashDetail(sink, record.details, ordinal);
        if (FAILED(hr)) {
            ++record.failureCount;
            if (record.failureCount >= kMaxFailureTimes) {
                pendingCrashes_.pop_front();
                // Log parsers expect the empty name.
                Log(Logger(), LogLevel::Info,
                    L"Collecting metric has exceeded max failure times. Delete event from list '%s'", L"");
            }
            return hr;
        }
        pendingCrashes_.pop_front();
    }
    return S_OK;
}

HRESULT CAppCrashMetric::WriteCrashDetail(IMetricSink* sink, const std::wstring& details, uint32_t ordinal)
{
    const HRESULT hr = WriteMetric(sink, kDetailsKey, std::to_wstring(ordinal), details.c_str());
    if (FAILED(hr)) {
        LogFailure(Logger(), hr, L"Failed to collect metric 'appcrash|crash_details|*'.");
    }
    return hr;
}

void CAppCrashMetric::OnEvent(EVT_HANDLE event)
{
    static constexpr const wchar_t* kPaths[] = {L"Event/System/TimeCreated/@SystemTime"};

    EventHandle context; // closed after the lock is released
    const std::lock_guard guard(lock_);
    if (hostNameLine_.empty()) {
        BuildHostNameLine();
    }
    crashTimeLine_.clear();
    RenderEventValues(context, event, kPaths, [this](const EVT_VARIANT* values) { SetCrashTimeLine(values); });
    // Left open on purpose, one handle per event; docs/performance.md states the cost.
    EVT_HANDLE publisher = EvtOpenPublisherMetadata(nullptr, L"Application Error", nullptr, 0, 0);
    FormatEventMessage(publisher, event, [this](std::wstring_view text) { AddCrashFromMessage(text); });
}

void CAppCrashMetric::BuildHostNameLine()
{
    DWORD size = 0;
    SetLastError(ERROR_SUCCESS);
    GetComputerNameExW(ComputerNameNetBIOS, nullptr, &size);
    if (GetLastError() != ERROR_MORE_DATA) {
        Log(Logger(), LogLevel::Error, L"Failed to query the NetBIOS name buffer length");
        return;
    }
    std::wstring name(static_cast<size_t>(size) + 1, L'\0');
    if (!GetComputerNameExW(ComputerNameNetBIOS, name.data(), &size)) {
        const HRESULT hr = HresultFromWin32(GetLastError());
        LogFailure(Logger(), hr, L"Failed to query the NetBIOS name of the local machine");
        return;
    }
    hostNameLine_ = std::wstring(L"<br />Host Name: ") + name.c_str();
}

void CAppCrashMetric::SetCrashTimeLine(const EVT_VARIANT* values)
{
    const ULONGLONG time = values != nullptr ? values[0].FileTimeVal : 0; // regardless of its type
    if (time == 0) {
        return;
    }
    const FILETIME fileTime{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
    SYSTEMTIME utc{};
    if (FileTimeToSystemTime(&fileTime, &utc)) {
        wchar_t line[64]; // large enough for any year; FormatString would format twice
        swprintf_s(line, std::size(line), L"<br />Crash Time: %d-%02d-%02d %02d:%02d:%02d", utc.wYear, utc.wMonth,
                   utc.wDay, utc.wHour, utc.wMinute, utc.wSecond);
        crashTimeLine_ = line;
    }
}

void CAppCrashMetric::AddCrashFromMessage(std::wstring_view message)
{
    pendingCrashes_.push_back({BuildCrashDetails(message, crashTimeLine_, hostNameLine_)});
}

} // namespace orvel
