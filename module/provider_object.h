#pragma once

#include "host/native_lock.h"
#include "module/module.h"
#include "provider/provider.h"

#include <wrl/client.h>

#include <atomic>

namespace orvel {

/// The provider as a COM object, plain or aggregated: identity, reference count and late binding.
class ProviderObject final : public CProvider {
public:
    /// Creates a provider and queries it for `iid`. An `outer` object aggregates it and must ask for IID_IUnknown: it
    /// receives the provider's own, non-delegating IUnknown.
    /// Returns E_POINTER for a null `out`, CLASS_E_NOAGGREGATION for an outer object and another `iid`, E_OUTOFMEMORY,
    /// E_NOINTERFACE.
    static HRESULT Create(IUnknown* outer, REFIID iid, void** out) noexcept;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        return outer_->QueryInterface(iid, out);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return outer_->AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return outer_->Release(); }

    // Late binding uses the type information of IOrvelDataProvider from the host's registered type library, else from
    // the module's own copy. These methods also return the platform's failure to load it, and E_OUTOFMEMORY. An
    // exception of an invoked method passes through ITypeInfo::Invoke.

    /// Sets `count` to 1. Returns E_POINTER for a null `count`.
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    /// Returns E_POINTER for a null `out`, DISP_E_BADINDEX for an index other than 0.
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** out) override;
    /// Both return DISP_E_UNKNOWNINTERFACE for an `iid` other than IID_NULL, and the platform's codes.
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale, DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                                     VARIANT* result, EXCEPINFO* exception, UINT* badArgument) override;

private:
    // The non-delegating IUnknown, which counts the references and deletes the object.
    class Identity final : public IUnknown {
    public:
        explicit Identity(ProviderObject& object) : object_(object) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
        ULONG STDMETHODCALLTYPE AddRef() override { return ++count_; }
        ULONG STDMETHODCALLTYPE Release() override;

    private:
        ProviderObject& object_;
        std::atomic<ULONG> count_ = 1;
    };

    explicit ProviderObject(IUnknown* outer) : outer_(outer != nullptr ? outer : &identity_) {}
    ~ProviderObject() = default;

    // Loads the type information on first use.
    HRESULT TypeInfo(ITypeInfo** out);

    ModuleLock lock_;
    Identity identity_{*this};
    IUnknown* outer_; // not counted: the outer object outlives this one
    NativeLock typeInfoLock_;
    Microsoft::WRL::ComPtr<ITypeInfo> typeInfo_;
};

} // namespace orvel
