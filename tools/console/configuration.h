#pragma once

#include <windows.h>
#include <msxml2.h>
#include <wrl/client.h>

#include <string>
#include <vector>

namespace orvel::console {

/// One <metric> of the configuration file.
struct MetricConfiguration {
    std::wstring name;
    std::string place; ///< "FILE:LINE:COLUMN", for messages
    Microsoft::WRL::ComPtr<IXMLDOMElement> element;
};

/// Reads a configuration file; the elements are MSXML's, and COM must stay initialised while they live.
/// Throws Failure with file, line, column and what to do.
std::vector<MetricConfiguration> ReadConfiguration(const std::wstring& path);

} // namespace orvel::console
