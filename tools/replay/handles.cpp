#include "tools/replay/handles.h"

#include <algorithm>

namespace orvel::replay {

HandleTable& HandleTable::Instance()
{
    static HandleTable& table = *new HandleTable; // outlives the workers, which end with the process
    return table;
}

EVT_HANDLE HandleTable::Open(ReplayHandleKind kind, std::shared_ptr<const void> object)
{
    const std::lock_guard guard(lock_);
    const auto handle = reinterpret_cast<EVT_HANDLE>(++last_);
    open_.emplace(handle, Entry{kind, std::move(object)});
    return handle;
}

std::shared_ptr<const void> HandleTable::FindObject(EVT_HANDLE handle, ReplayHandleKind kind)
{
    const std::lock_guard guard(lock_);
    const auto found = open_.find(handle);
    if (found == open_.end() || found->second.kind != kind) {
        ++invalid_;
        return nullptr;
    }
    return found->second.object;
}

std::shared_ptr<const void> HandleTable::Close(EVT_HANDLE handle, ReplayHandleKind& kind, bool isDelivery)
{
    const std::lock_guard guard(lock_);
    const auto found = open_.find(handle);
    if (found == open_.end() || (found->second.kind == ReplayEventHandle && !isDelivery)) {
        ++invalid_;
        return nullptr;
    }
    const auto closed = open_.extract(found);
    kind = closed.mapped().kind;
    return closed.mapped().object;
}

DWORD HandleTable::CountOpen(ReplayHandleKind kind)
{
    const std::lock_guard guard(lock_);
    return static_cast<DWORD>(
        std::count_if(open_.begin(), open_.end(), [&](const auto& open) { return open.second.kind == kind; }));
}

DWORD HandleTable::CountInvalid()
{
    const std::lock_guard guard(lock_);
    return invalid_;
}

} // namespace orvel::replay
