#include "module/module.h"

namespace orvel {

CEventLogProviderModule& CEventLogProviderModule::Instance() noexcept
{
    static constinit CEventLogProviderModule module;
    return module;
}

std::wstring CEventLogProviderModule::Path() const
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(handle_, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2); // a full buffer holds a truncated path
    }
}

} // namespace orvel
