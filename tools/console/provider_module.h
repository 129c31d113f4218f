#pragma once

#include <windows.h>
#include <OrvelAgent.h>
#include <wrl/client.h>

#include <filesystem>
#include <string>

namespace orvel::console {

/// Returns the full path of a loaded module, or of the program for null.
std::wstring ModulePath(HMODULE module);

/// The module and its provider object.
class ProviderModule {
public:
    /// `path`: the DLL; empty for the registered provider, else for Orvel_eventlog.dll in `folder`.
    /// Throws Failure when it cannot be loaded or creates no provider. COM must be initialised.
    ProviderModule(const std::wstring& path, const std::filesystem::path& folder);
    ProviderModule(const ProviderModule&) = delete;
    ProviderModule& operator=(const ProviderModule&) = delete;

    std::wstring Path() const { return ModulePath(module_); }
    IOrvelDataProvider& Provider() const { return *provider_.Get(); }

    /// Releases the provider and unloads the module, waiting up to a second for calls that still run in it. Throws
    /// Failure when the module stays loaded.
    void Unload();

private:
    void Load(const std::wstring& path);
    void CreateRegistered(REFCLSID providerClass);

    Microsoft::WRL::ComPtr<IOrvelDataProvider> provider_;
    HMODULE module_ = nullptr;
    bool isOurs_ = false; ///< loaded here, not by COM
};

} // namespace orvel::console
