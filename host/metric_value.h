#pragma once

#include <windows.h>
#include <OrvelAgent.h>

#include <string_view>

namespace orvel {

// Every value goes to the sink as key, instance and VARIANT. The strings and the VARIANT are freed when the call
// returns, whatever the result. All functions give the sink's result, or E_POINTER for a null sink, and throw
// `_com_error` with E_OUTOFMEMORY when a BSTR cannot be allocated, or with the code of a failed VariantClear.

/// Writes a text. `key` ends in "|*" when the metric has several instances; `instance` then names one of them and an
/// empty one travels as a null BSTR.
HRESULT WriteMetric(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, const wchar_t* text);

/// Writes an unsigned number (VT_UI8).
HRESULT WriteMetric(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, ULONGLONG number);

/// Writes a flag that holds: its own instance, with the text "true". A flag that does not hold is not written.
HRESULT WriteMetricFlag(IMetricSink* sink, const wchar_t* key);

} // namespace orvel
