#include "module/module.h"

#include "metric/call_registry.h"

namespace orvel {

CEventLogProviderModule& CEventLogProviderModule::Instance() noexcept
{
    static constinit CEventLogProviderModule module;
    return module;
}

bool CEventLogProviderModule::CanUnload() const noexcept
{
    return lockCount_.load() == 0 && CallRegistry::Instance().IsIdle();
}

} // namespace orvel
