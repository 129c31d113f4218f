#pragma once

#include <windows.h>
#include <OrvelAgent.h>

#include <atomic>

namespace orvel {

/// One of the host's COM objects, owned by the program: the reference count only shows whether the module has released
/// it. It has no dispatch interface: the provider calls through the vtable.
template <typename Interface>
class HostObject : public Interface {
public:
    /// Returns the number of references that others hold.
    ULONG References() const { return references_; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        if (object == nullptr) {
            return E_POINTER;
        }
        const bool isOurs = id == __uuidof(Interface) || id == IID_IUnknown || id == IID_IDispatch;
        *object = isOurs ? static_cast<Interface*>(this) : nullptr;
        if (isOurs) {
            AddRef();
        }
        return isOurs ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override { return --references_; }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return E_NOTIMPL;
    }

private:
    std::atomic<ULONG> references_ = 0;
};

} // namespace orvel
