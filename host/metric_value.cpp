#include "host/metric_value.h"

#include "host/bstr.h"

#include <comdef.h>

namespace orvel {

namespace {

class Variant {
public:
    Variant()
    {
        VariantInit(&value_);
        const HRESULT hr = VariantClear(&value_); // checked here, since the destructor cannot report a failure
        if (FAILED(hr)) {
            _com_issue_error(hr);
        }
    }
    explicit Variant(const wchar_t* text) : Variant()
    {
        value_.bstrVal = MakeBstr(text).release();
        value_.vt = VT_BSTR;
    }
    explicit Variant(ULONGLONG number) : Variant()
    {
        value_.ullVal = number;
        value_.vt = VT_UI8;
    }
    ~Variant() { VariantClear(&value_); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;

    const VARIANT& get() const { return value_; }

private:
    VARIANT value_;
};

template <typename Value>
HRESULT Write(IMetricSink* sink, const wchar_t* key, std::wstring_view instance, Value value)
{
    if (sink == nullptr) {
        return E_POINTER;
    }
    const UniqueBstr keyBstr = MakeBstr(key);
    const UniqueBstr instanceBstr = MakeCountedBstr(instance);
    const Variant variant(value);
    return sink->WriteMetric(keyBstr.get(), instanceBstr.get(), variant.get());
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
