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
#include <filesystem>
#include <string_view>

using _com_util::CheckError;
using Microsoft::WRL::ComPtr;

namespace {

void Make(SYSKIND system, const wchar_t* hostPath, const wchar_t* outputPath)
{
    // Given a bare name, the platform would search for the file and register it.
    ComPtr<ITypeLib> host;
    CheckError(LoadTypeLibEx(std::filesystem::absolute(hostPath).c_str(), REGKIND_NONE, host.GetAddressOf()));

    ComPtr<ICreateTypeLib2> library;
    CheckError(CreateTypeLib2(system, std::filesystem::absolute(outputPath).c_str(), library.GetAddressOf()));
    CheckError(library->SetGuid(orvel::kProviderLibrary));
    CheckError(library->SetVersion(orvel::kLibraryMajor, orvel::kLibraryMinor));
    CheckError(library->SetLcid(LOCALE_NEUTRAL));
    CheckError(library->SetName(_bstr_t(L"EventLogProviderLib")));
    CheckError(library->SetDocString(_bstr_t(L"Orvel Event Log Provider 1.0 Type Library")));

    ComPtr<ICreateTypeInfo> provider;
    CheckError(library->CreateTypeInfo(_bstr_t(L"CProvider"), TKIND_COCLASS, provider.GetAddressOf()));
    CheckError(provider->SetGuid(orvel::kProviderClass));
    CheckError(provider->SetVersion(orvel::kLibraryMajor, orvel::kLibraryMinor));
    CheckError(provider->SetDocString(_bstr_t(L"Orvel Event Log Provider Class")));
    CheckError(provider->SetTypeFlags(TYPEFLAG_FCANCREATE));

    UINT index = 0;
    for (const IID& iid : {__uuidof(IOrvelDataProvider), __uuidof(IDataProvider), __uuidof(IDataProviderEx)}) {
        ComPtr<ITypeInfo> interfaceInfo;
        HREFTYPE reference = 0;
        CheckError(host->GetTypeInfoOfGuid(iid, interfaceInfo.GetAddressOf()));
        CheckError(provider->AddRefTypeInfo(interfaceInfo.Get(), &reference));
        CheckError(provider->AddImplType(index, reference));
        CheckError(provider->SetImplTypeFlags(index, index == 0 ? IMPLTYPEFLAG_FDEFAULT : 0));
        ++index;
    }
    CheckError(provider->LayOut());
    CheckError(library->SaveAllChanges());
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
