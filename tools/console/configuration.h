#pragma once

#include <windows.h>
#include <msxml2.h>
#include <wrl/client.h>

#include <string>
#include <vector>

namespace orvel::console {

constexpr wchar_t kCrashMetric[] = L"eventlog|eventlog_appcrash";
constexpr wchar_t kLaminaMetric[] = L"eventlog|eventlog_lamina";

/// One <metric> of the configuration file.
struct MetricConfiguration {
    std::wstring name;
    std::string place; ///< "FILE:LINE:COLUMN", for messages
    Microsoft::WRL::ComPtr<IXMLDOMElement> element = nullptr;
    std::wstring channel = {};
    std::wstring query = {};
    std::string problem = {}; ///< why it cannot be subscribed, and what to do; empty if it can
    bool isIgnored = false;   ///< the provider ignores it: its name is unknown or a duplicate

    /// Compares names as the provider does, without regard to case.
    bool Is(const wchar_t* metric) const { return _wcsicmp(name.c_str(), metric) == 0; }
};

/// Reads a configuration file, or standard input for "-". COM must stay initialised as long as the elements exist.
/// Throws Failure with file, line, column and what to do.
std::vector<MetricConfiguration> ReadConfiguration(const std::string& path);

} // namespace orvel::console
