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
    std::string problem = {}; ///< why it cannot be subscribed, and what to do
    bool isIgnored = false;   ///< the provider ignores it: its name is unknown or a duplicate

    /// Whether its name is this one, without regard to case, as the provider compares them.
    bool Is(const wchar_t* metric) const { return _wcsicmp(name.c_str(), metric) == 0; }
};

/// Reads a configuration file, or standard input for "-"; the elements are MSXML's, and COM must stay initialised while
/// they live. Throws Failure with file, line, column and what to do.
std::vector<MetricConfiguration> ReadConfiguration(const std::wstring& path);

} // namespace orvel::console
