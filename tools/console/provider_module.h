#pragma once

#include <windows.h>
#include <OrvelAgent.h>
#include <wrl/client.h>

#include <filesystem>
#include <string>

namespace orvel::console {

inline constexpr wchar_t kProgId[] = L"OrvelAgent.EventLogProvider";

/// Returns the full path of a loaded module, or of the program for null.
std::filesystem::path ModulePath(HMODULE module);
/// Returns the full path of a file beside the program.
std::filesystem::path PathBesideProgram(const wchar_t* name);

/// The module and its provider object.
class ProviderModule {
public:
    /// `path`: the DLL, in UTF-8. If it is empty, creates the registered provider, or the one of Orvel_eventlog.dll
    /// beside the program when none is registered. Throws Failure when the module cannot be loaded or creates no
    /// provider. COM must be initialised.
    explicit ProviderModule(const std::string& path);
    ProviderModule(const ProviderModule&) = delete;
    ProviderModule& operator=(const ProviderModule&) = delete;

    std::wstring Path() const { return ModulePath(module_); }
    IOrvelDataProvider& Provider() const { return *provider_.Get(); }

    /// Releases the provider and unloads the module, waiting up to ten seconds for calls that still run in it. Throws
    /// Failure when the module stays loaded.
    void Unload();

private:
    void Load(const std::wstring& path);

    Microsoft::WRL::ComPtr<IOrvelDataProvider> provider_;
    HMODULE module_ = nullptr;
    bool isOurs_ = false; ///< loaded here, not by COM
};

} // namespace orvel::console
