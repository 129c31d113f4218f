#include "tools/replay/handles.h"

#include <algorithm>

namespace orvel::replay {

HandleTable& HandleTable::Instance()
{
    static HandleTable& table = *new HandleTable; // outlives the workers, which end with the process
    return table;
}

EVT_HANDLE HandleTable::Open(HandleObject object)
{
    const std::lock_guard guard(lock_);
    const auto handle = reinterpret_cast<EVT_HANDLE>(++last_);
    open_.emplace(handle, std::move(object));
    return handle;
}

std::optional<HandleObject> HandleTable::Close(EVT_HANDLE handle)
{
    const std::lock_guard guard(lock_);
    const auto found = open_.find(handle);
    if (found == open_.end() || found->second.index() == ReplayEventHandle) {
        ++invalid_;
        return std::nullopt;
    }
    return std::move(open_.extract(found).mapped());
}

void HandleTable::EndDelivery(EVT_HANDLE event)
{
    const std::lock_guard guard(lock_);
    open_.erase(event);
}

DWORD HandleTable::CountOpen(ReplayHandleKind kind)
{
    const std::lock_guard guard(lock_);
    return static_cast<DWORD>(
        std::ranges::count_if(open_, [&](const auto& open) { return open.second.index() == kind; }));
}

DWORD HandleTable::CountInvalid()
{
    const std::lock_guard guard(lock_);
    return invalid_;
}

} // namespace orvel::replay
