#pragma once

#include "module/module.h"

#include <windows.h>
#include <unknwn.h>

#include <atomic>

namespace orvel {

/// The class factory of the provider. It counts on the module, as the objects that it makes do.
class ClassFactory final : public IClassFactory {
public:
    /// Creates one and gives its interface `iid`: E_OUTOFMEMORY, E_NOINTERFACE. `out` must not be null.
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
