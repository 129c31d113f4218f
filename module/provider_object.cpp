#include "module/provider_object.h"

#include <new>

namespace orvel {

HRESULT ProviderObject::Create(IUnknown* outer, REFIID iid, void** out) noexcept
{
    if (out == nullptr) {
        return E_POINTER;
    }
    *out = nullptr;
    if (outer != nullptr && !IsEqualIID(iid, IID_IUnknown)) {
        return CLASS_E_NOAGGREGATION;
    }
    auto* object = new (std::nothrow) ProviderObject(outer);
    if (object == nullptr) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = object->identity_.QueryInterface(iid, out);
    object->identity_.Release();
    return hr;
}

HRESULT ProviderObject::QueryInterface(REFIID iid, void** out)
{
    return outer_->QueryInterface(iid, out);
}

ULONG ProviderObject::AddRef()
{
    return outer_->AddRef();
}

ULONG ProviderObject::Release()
{
    return outer_->Release();
}

HRESULT ProviderObject::Identity::QueryInterface(REFIID iid, void** out)
{
    if (out == nullptr) {
        return E_POINTER;
    }
    *out = nullptr;
    if (IsEqualIID(iid, IID_IUnknown)) {
        *out = static_cast<IUnknown*>(this);
    } else if (IsEqualIID(iid, __uuidof(IOrvelDataProvider)) || IsEqualIID(iid, __uuidof(IDataProvider)) ||
               IsEqualIID(iid, __uuidof(IDataProviderEx)) || IsEqualIID(iid, IID_IDispatch)) {
        *out = static_cast<IOrvelDataProvider*>(&object_);
    } else {
        return E_NOINTERFACE;
    }
    static_cast<IUnknown*>(*out)->AddRef();
    return S_OK;
}

ULONG ProviderObject::Identity::AddRef()
{
    return ++count_;
}

ULONG ProviderObject::Identity::Release()
{
    const ULONG left = --count_;
    if (left == 0) {
        count_ = 1; // references taken and given back while the object ends must not end it again
        delete &object_;
    }
    return left;
}

HRESULT ProviderObject::GetTypeInfoCount(UINT* count)
{
    return count != nullptr ? (*count = 0, S_OK) : E_POINTER;
}

HRESULT ProviderObject::GetTypeInfo(UINT, LCID, ITypeInfo**)
{
    return E_NOTIMPL;
}

HRESULT ProviderObject::GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*)
{
    return E_NOTIMPL;
}

HRESULT ProviderObject::Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*)
{
    return E_NOTIMPL;
}

} // namespace orvel
