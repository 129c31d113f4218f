#pragma once

#include <windows.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace orvel::bench {

/// Makes this process alone find the agent's service in a folder, by a key of the user's own in place of
/// HKEY_LOCAL_MACHINE. Nothing else of the machine's key is found for the life of this object, not even the computer's name.
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
            throw std::runtime_error("the agent's service cannot be made up");
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
