#include "module/provider_object.h"

#include "host/module_call.h"
#include "module/provider_ids.h"

#include <oleauto.h>

#include <mutex>
#include <new>
#include <string>

namespace orvel {

using Microsoft::WRL::ComPtr;

namespace {

// Uses the host's registered type library, else this module's copy, so that late binding works without a registered
// host.
HRESULT LoadProviderTypeInfo(ITypeInfo** out)
{
    const IID& iid = __uuidof(IOrvelDataProvider);
    ComPtr<ITypeLib> library;
    HRESULT hr = LoadRegTypeLib(kHostLibrary, kLibraryMajor, kLibraryMinor, LOCALE_NEUTRAL, library.GetAddressOf());
    if (SUCCEEDED(hr)) {
        hr = library->GetTypeInfoOfGuid(iid, out);
    }
    if (SUCCEEDED(hr)) {
        return S_OK;
    }
    try {
        // This module's file, and in it the resource TYPELIB 2.
        const std::wstring path = CEventLogProviderModule::Instance().Path() + L"\\2";
        hr = LoadTypeLibEx(path.c_str(), REGKIND_NONE, library.ReleaseAndGetAddressOf());
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return SUCCEEDED(hr) ? library->GetTypeInfoOfGuid(iid, out) : hr;
}

} // namespace

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

ULONG ProviderObject::Identity::Release()
{
    const ULONG left = --count_;
    if (left == 0) {
        const ModuleCall call;
        const ModuleLock moduleLock; // the object's own is released before the destructor of its base has run
        count_ = 1;                  // a reference that a host object takes and releases must not delete it again
        object_.ReleaseAll();
        delete &object_;
    }
    return left;
}

HRESULT ProviderObject::TypeInfo(ITypeInfo** out)
{
    const std::lock_guard guard(typeInfoLock_);
    if (!typeInfo_) {
        const HRESULT hr = LoadProviderTypeInfo(typeInfo_.GetAddressOf());
        if (FAILED(hr)) {
            return hr;
        }
    }
    return typeInfo_.CopyTo(out);
}

HRESULT ProviderObject::GetTypeInfoCount(UINT* count)
{
    if (count == nullptr) {
        return E_POINTER;
    }
    *count = 1;
    return S_OK;
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
    const ModuleCall call; // outlives that of the invoked method, which returns into this one
    if (!IsEqualIID(iid, IID_NULL)) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    ComPtr<ITypeInfo> typeInfo;
    const HRESULT hr = TypeInfo(typeInfo.GetAddressOf());
    if (FAILED(hr)) {
        return hr;
    }
    return typeInfo->Invoke(static_cast<IOrvelDataProvider*>(this), member, flags, parameters, result, exception,
                            badArgument);
}

} // namespace orvel
