#pragma once

#include "host/native_lock.h"
#include "module/module.h"
#include "provider/provider.h"

#include <wrl/client.h>

#include <atomic>

namespace orvel {

/// The provider as a COM object: identity, counting and late binding, plain or aggregated.
class ProviderObject final : public CProvider {
public:
    /// Creates one and gives its interface `iid`. With an `outer` object the new one becomes part of it, and `iid` must
    /// be IID_IUnknown, which then stands for the part by itself.
    /// E_POINTER for a null `out`, CLASS_E_NOAGGREGATION for an outer object and another `iid`, E_OUTOFMEMORY,
    /// E_NOINTERFACE.
    static HRESULT Create(IUnknown* outer, REFIID iid, void** out) noexcept;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // Late binding, from the type information of IOrvelDataProvider. Whatever a method throws is left to the platform's
    // invocation, as it would leave the method itself.

    /// Gives 1. E_POINTER.
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    /// E_POINTER, DISP_E_BADINDEX for another index than 0; see LoadProviderTypeInfo.
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** out) override;
    /// DISP_E_UNKNOWNINTERFACE for another `iid` than IID_NULL, here and below; the platform's codes.
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale, DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                                     VARIANT* result, EXCEPINFO* exception, UINT* badArgument) override;

private:
    // The object's own IUnknown: an outer object holds the part by it, and it counts the part's life.
    class Identity final : public IUnknown {
    public:
        explicit Identity(ProviderObject& object) : object_(object) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
        ULONG STDMETHODCALLTYPE AddRef() override;
        ULONG STDMETHODCALLTYPE Release() override;

    private:
        ProviderObject& object_;
        std::atomic<ULONG> count_ = 1;
    };

    explicit ProviderObject(IUnknown* outer) : outer_(outer != nullptr ? outer : &identity_) {}
    ~ProviderObject() = default;

    // The type information, loaded when it is first asked for.
    HRESULT TypeInfo(ITypeInfo** out) noexcept;

    ModuleLock lock_;
    Identity identity_{*this};
    IUnknown* outer_; // not counted: an outer object outlives its parts
    NativeLock typeInfoLock_;
    Microsoft::WRL::ComPtr<ITypeInfo> typeInfo_;
};

} // namespace orvel
