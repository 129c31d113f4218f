#include "tools/console/provider_module.h"

#include "module/provider_ids.h"
#include "tools/console/failure.h"
#include "tools/console/output.h"
#include "tools/function_of.h"
#include "tools/utf8.h"

namespace orvel::console {

using Microsoft::WRL::ComPtr;

std::filesystem::path ModulePath(HMODULE module)
{
    constexpr size_t kLongest = 32768;
    std::wstring path(kLongest, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

std::filesystem::path PathBesideProgram(const wchar_t* name)
{
    return ModulePath(nullptr).replace_filename(name);
}

ProviderModule::ProviderModule(const std::string& path)
{
    CLSID registered{};
    if (!path.empty()) {
        Load(std::filesystem::absolute(ToWide(path)));
    } else if (FAILED(CLSIDFromProgID(kProgId, &registered))) {
        const std::filesystem::path beside = PathBesideProgram(L"Orvel_eventlog.dll");
        Say("note", ToUtf8(kProgId) + " is not registered; using " + ToUtf8(beside.native()));
        Load(beside);
    } else {
        const HRESULT hr =
            CoCreateInstance(registered, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(provider_.GetAddressOf()));
        Require(SUCCEEDED(hr), ExitCode::Module,
                ToUtf8(kProgId) + " is registered but cannot be created: " + Describe(hr) +
                    "; register the module again, or name it with --module");
        // The module that contains the object's functions.
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           *reinterpret_cast<const wchar_t* const* const*>(provider_.Get())[0], &module_);
    }
}

void ProviderModule::Load(const std::wstring& path)
{
    const std::string name = ToUtf8(path);
    module_ = LoadLibraryW(path.c_str());
    const DWORD error = GetLastError();
    std::error_code ignored;
    Require(module_ != nullptr, ExitCode::Module,
            name + " cannot be loaded: " + Describe(HRESULT_FROM_WIN32(error)) +
                (std::filesystem::exists(path, ignored)
                     ? "; check that it is built for this program's architecture, and "
                       "use --replay if this computer has no Event Log"
                     : "; there is no such file, check --module"));
    isOurs_ = true;
    decltype(&DllGetClassObject) const getClassObject = FunctionOf{module_, "DllGetClassObject"};
    Require(getClassObject != nullptr, ExitCode::Module,
            name + " is not a COM server: it exports no DllGetClassObject");
    ComPtr<IClassFactory> factory;
    HRESULT hr = getClassObject(kProviderClass, IID_PPV_ARGS(factory.GetAddressOf()));
    if (SUCCEEDED(hr)) {
        hr = factory->CreateInstance(nullptr, IID_PPV_ARGS(provider_.GetAddressOf()));
    }
    Require(SUCCEEDED(hr), ExitCode::Module, name + " creates no event-log provider: " + Describe(hr));
}

void ProviderModule::Unload()
{
    constexpr int kTries = 1000;
    constexpr DWORD kPause = 10;

    const std::wstring path = Path();
    const ULONG held = provider_.Detach()->Release();
    decltype(&DllCanUnloadNow) const canUnload = FunctionOf{module_, "DllCanUnloadNow"};
    for (int tries = 0; GetModuleHandleW(path.c_str()) == module_; ++tries) {
        Require(tries != kTries, ExitCode::Unclean,
                ToUtf8(path) + " does not unload; references held on the provider: " + std::to_string(held));
        if (!isOurs_) {
            CoFreeUnusedLibrariesEx(0, 0);
        } else if (canUnload != nullptr && canUnload() == S_OK) {
            FreeLibrary(module_);
            isOurs_ = false;
        }
        Sleep(tries == 0 ? 0 : kPause);
    }
}

} // namespace orvel::console
