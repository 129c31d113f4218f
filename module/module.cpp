#include "module/module.h"

namespace orvel {

CEventLogProviderModule& CEventLogProviderModule::Instance() noexcept
{
    static constinit CEventLogProviderModule module;
    return module;
}

std::wstring CEventLogProviderModule::Path() const
{
    constexpr DWORD kLongestPath = 32768; // with its terminator
    std::wstring path(kLongestPath, L'\0');
    path.resize(GetModuleFileNameW(handle_, path.data(), kLongestPath));
    return path;
}

} // namespace orvel
