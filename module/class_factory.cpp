#include "module/class_factory.h"

#include "module/provider_object.h"

#include <new>

namespace orvel {

HRESULT ClassFactory::Create(REFIID iid, void** out) noexcept
{
    *out = nullptr;
    auto* factory = new (std::nothrow) ClassFactory;
    if (factory == nullptr) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = factory->QueryInterface(iid, out);
    factory->Release();
    return hr;
}

HRESULT ClassFactory::QueryInterface(REFIID iid, void** out)
{
    if (out == nullptr) {
        return E_POINTER;
    }
    *out = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IClassFactory)) {
        return E_NOINTERFACE;
    }
    *out = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
}

ULONG ClassFactory::Release()
{
    const ULONG left = --count_;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT ClassFactory::CreateInstance(IUnknown* outer, REFIID iid, void** out)
{
    return ProviderObject::Create(outer, iid, out);
}

HRESULT ClassFactory::LockServer(BOOL lock)
{
    auto& module = CEventLogProviderModule::Instance();
    lock ? module.Lock() : module.Unlock();
    return S_OK;
}

} // namespace orvel
