#include "host/metric_value.h"

#include "host/bstr.h"

#include <comdef.h>

namespace orvel {

namespace {

template <typename Value>
HRESULT Write(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, Value value)
{
    if (sink == nullptr) {
        return E_POINTER;
    }
    const UniqueBstr keyBstr = MakeBstr(key);
    const UniqueBstr instanceBstr = MakeCountedBstr(instance);
    _variant_t variant;
    variant = value; // the assignment calls VariantClear and throws its failure code; the constructor does not
    return sink->WriteMetric(keyBstr.get(), instanceBstr.get(), variant);
}

} // namespace

HRESULT WriteMetric(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, const wchar_t* text)
{
    return Write(sink, key, instance, text);
}

HRESULT WriteMetric(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, ULONGLONG number)
{
    return Write(sink, key, instance, number);
}

HRESULT WriteMetricFlag(IMetricSink* sink, const wchar_t* key)
{
    return Write(sink, key, key, L"true");
}

} // namespace orvel
