#pragma once

#include <windows.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace orvel::bench {

/// Registers the agent's service, with its executable in `folder`, for this process only: redirects HKEY_LOCAL_MACHINE
/// to a key below HKEY_CURRENT_USER. Meanwhile nothing else is visible there, not even the computer's name.
class AgentService {
public:
    explicit AgentService(const std::filesystem::path& folder)
    {
        const std::wstring executable = (folder / L"agent.exe").wstring();
        HKEY root = nullptr;
        if (RegCreateKeyW(HKEY_CURRENT_USER, kRoot, &root) != ERROR_SUCCESS ||
            RegSetKeyValueW(root, L"SYSTEM\\CurrentControlSet\\services\\korvex", L"ImagePath", REG_SZ,
                            executable.c_str(),
                            static_cast<DWORD>((executable.size() + 1) * sizeof(wchar_t))) != ERROR_SUCCESS ||
            RegOverridePredefKey(HKEY_LOCAL_MACHINE, root) != ERROR_SUCCESS) {
            throw std::runtime_error("cannot write the registry key of the agent's service");
        }
        RegCloseKey(root);
    }
    ~AgentService()
    {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, kRoot);
    }
    AgentService(const AgentService&) = delete;
    AgentService& operator=(const AgentService&) = delete;

private:
    static constexpr wchar_t kRoot[] = L"Software\\OrvelBench";
};

} // namespace orvel::bench
