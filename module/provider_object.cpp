#include "module/provider_object.h"

#include "module/type_info.h"

#include <mutex>
#include <new>

namespace orvel {

using Microsoft::WRL::ComPtr;

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
        const ModuleLock stillInside; // the object's own lock ends before the provider's destructor does
        count_ = 1;                   // references taken and given back while the object ends must not end it again
        delete &object_;
    }
    return left;
}

HRESULT ProviderObject::TypeInfo(ITypeInfo** out) noexcept
{
    *out = nullptr;
    const std::lock_guard guard(typeInfoLock_);
    const HRESULT hr = typeInfo_ ? S_OK : LoadProviderTypeInfo(typeInfo_.ReleaseAndGetAddressOf());
    return SUCCEEDED(hr) ? typeInfo_.CopyTo(out) : hr;
}

HRESULT ProviderObject::GetTypeInfoCount(UINT* count)
{
    return count != nullptr ? (*count = 1, S_OK) : E_POINTER;
}

HRESULT ProviderObject::GetTypeInfo(UINT index, LCID, ITypeInfo** out)
{
    if (out == nullptr) {
        return E_POINTER;
    }
    *out = nullptr;
    return index == 0 ? TypeInfo(out) : DISP_E_BADINDEX;
}

HRESULT ProviderObject::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID, DISPID* ids)
{
    if (!IsEqualIID(iid, IID_NULL)) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    ComPtr<ITypeInfo> typeInfo;
    const HRESULT hr = TypeInfo(typeInfo.GetAddressOf());
    return SUCCEEDED(hr) ? typeInfo->GetIDsOfNames(names, count, ids) : hr;
}

HRESULT ProviderObject::Invoke(DISPID member, REFIID iid, LCID, WORD flags, DISPPARAMS* parameters, VARIANT* result,
                               EXCEPINFO* exception, UINT* badArgument)
{
    if (!IsEqualIID(iid, IID_NULL)) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    ComPtr<ITypeInfo> typeInfo;
    const HRESULT hr = TypeInfo(typeInfo.GetAddressOf());
    return SUCCEEDED(hr) ? typeInfo->Invoke(static_cast<IOrvelDataProvider*>(this), member, flags, parameters, result,
                                            exception, badArgument)
                         : hr;
}

} // namespace orvel
