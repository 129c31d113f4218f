// Writes the provider's type library at build time: one coclass that references the interfaces in the host's library.
// The IDL compiler would copy them instead.
//     make_provider_typelib win64|win32 HOST.tlb OUTPUT.tlb

#include "module/provider_ids.h"

#include <windows.h>
#include <OrvelAgent.h>
#include <comdef.h>
#include <oleauto.h>
#include <wrl/client.h>

#include <cstdio>
#include <string>
#include <string_view>

using Microsoft::WRL::ComPtr;

namespace {

void Check(HRESULT hr)
{
    if (FAILED(hr)) {
        throw _com_error(hr);
    }
}

std::wstring FullPath(const wchar_t* path)
{
    // Given a bare name, the platform would search for the file and register it.
    std::wstring full(32768, L'\0');
    full.resize(GetFullPathNameW(path, static_cast<DWORD>(full.size()), full.data(), nullptr));
    return full;
}

void Make(SYSKIND system, const wchar_t* hostPath, const wchar_t* outputPath)
{
    ComPtr<ITypeLib> host;
    Check(LoadTypeLibEx(FullPath(hostPath).c_str(), REGKIND_NONE, host.GetAddressOf()));

    ComPtr<ICreateTypeLib2> library;
    Check(CreateTypeLib2(system, FullPath(outputPath).c_str(), library.GetAddressOf()));
    wchar_t libraryName[] = L"EventLogProviderLib";
    wchar_t libraryText[] = L"Orvel Event Log Provider 1.0 Type Library";
    Check(library->SetGuid(orvel::kProviderLibrary));
    Check(library->SetVersion(orvel::kLibraryMajor, orvel::kLibraryMinor));
    Check(library->SetLcid(LOCALE_NEUTRAL));
    Check(library->SetName(libraryName));
    Check(library->SetDocString(libraryText));

    ComPtr<ICreateTypeInfo> provider;
    wchar_t className[] = L"CProvider";
    wchar_t classText[] = L"Orvel Event Log Provider Class";
    Check(library->CreateTypeInfo(className, TKIND_COCLASS, provider.GetAddressOf()));
    Check(provider->SetGuid(orvel::kProviderClass));
    Check(provider->SetVersion(orvel::kLibraryMajor, orvel::kLibraryMinor));
    Check(provider->SetDocString(classText));
    Check(provider->SetTypeFlags(TYPEFLAG_FCANCREATE));

    UINT index = 0;
    for (const IID& iid : {__uuidof(IOrvelDataProvider), __uuidof(IDataProvider), __uuidof(IDataProviderEx)}) {
        ComPtr<ITypeInfo> interfaceInfo;
        HREFTYPE reference = 0;
        Check(host->GetTypeInfoOfGuid(iid, interfaceInfo.GetAddressOf()));
        Check(provider->AddRefTypeInfo(interfaceInfo.Get(), &reference));
        Check(provider->AddImplType(index, reference));
        Check(provider->SetImplTypeFlags(index, index == 0 ? IMPLTYPEFLAG_FDEFAULT : 0));
        ++index;
    }
    Check(provider->LayOut());
    Check(library->SaveAllChanges());
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    const std::wstring_view system = count == 4 ? arguments[1] : L"";
    if (system != L"win64" && system != L"win32") {
        std::fputs("usage: make_provider_typelib win64|win32 HOST.tlb OUTPUT.tlb\n", stderr);
        return 2;
    }
    try {
        Make(system == L"win64" ? SYS_WIN64 : SYS_WIN32, arguments[2], arguments[3]);
        return 0;
    } catch (const _com_error& error) {
        std::fprintf(stderr, "make_provider_typelib: cannot create %ls from %ls (0x%08lx)\n", arguments[3],
                     arguments[2], static_cast<unsigned long>(error.Error()));
        return 1;
    }
}
