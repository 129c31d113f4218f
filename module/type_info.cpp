#include "module/type_info.h"

#include "module/module.h"
#include "module/provider_ids.h"

#include <OrvelAgent.h>
#include <oleauto.h>
#include <wrl/client.h>

#include <new>
#include <string>

namespace orvel {

using Microsoft::WRL::ComPtr;

HRESULT LoadProviderTypeInfo(ITypeInfo** out) noexcept
{
    const IID& iid = __uuidof(IOrvelDataProvider);
    ComPtr<ITypeLib> library;
    if (SUCCEEDED(LoadRegTypeLib(kHostLibrary, kLibraryMajor, kLibraryMinor, LOCALE_NEUTRAL, library.GetAddressOf())) &&
        SUCCEEDED(library->GetTypeInfoOfGuid(iid, out))) {
        return S_OK;
    }
    try {
        // A full path with the resource's number: a bare name would be registered on the way.
        const std::wstring path = CEventLogProviderModule::Instance().Path() + L"\\2";
        const HRESULT hr = LoadTypeLibEx(path.c_str(), REGKIND_NONE, library.ReleaseAndGetAddressOf());
        return SUCCEEDED(hr) ? library->GetTypeInfoOfGuid(iid, out) : hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace orvel
