#pragma once

#include <windows.h>
#include <OrvelAgent.h>

#include <string_view>

namespace orvel {

// These functions return the sink's result, or E_POINTER for a null sink. They throw `_com_error` with E_OUTOFMEMORY,
// with E_INVALIDARG for an instance that is longer than a BSTR can be, or with the code of a failed VariantClear.

/// Writes a text. The key of a metric with several instances ends in "|*", and `instance` names one of them. The sink
/// receives an empty instance as a null BSTR.
HRESULT WriteMetric(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, const wchar_t* text);

/// Writes an unsigned number (VT_UI8).
HRESULT WriteMetric(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, ULONGLONG number);

/// Writes a flag: the text "true" with the key as its instance. A flag that is false is not written at all.
HRESULT WriteMetricFlag(IMetricSink* sink, const wchar_t* key);

} // namespace orvel
