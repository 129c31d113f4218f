#pragma once

#include "module/module.h"

#include <windows.h>
#include <unknwn.h>

#include <atomic>

namespace orvel {

/// The provider's class factory. Locks the module, as do the providers that it creates.
class ClassFactory final : public IClassFactory {
public:
    /// Creates a class factory and queries it for `iid`. `out` must not be null. Returns S_OK, E_OUTOFMEMORY or
    /// E_NOINTERFACE.
    static HRESULT Create(REFIID iid, void** out) noexcept;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++count_; }
    ULONG STDMETHODCALLTYPE Release() override;
    /// See ProviderObject::Create.
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

private:
    ClassFactory() = default;
    ~ClassFactory() = default;

    ModuleLock lock_;
    std::atomic<ULONG> count_ = 1;
};

} // namespace orvel
