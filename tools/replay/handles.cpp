#include "tools/replay/handles.h"

namespace orvel::replay {

namespace {

// A handle is the slot's number, from 1, below the number of times that the slot was used before.
constexpr unsigned kSlotBits = sizeof(void*) == 8 ? 32 : 22;
constexpr size_t kSlotMask = (size_t{1} << kSlotBits) - 1;

} // namespace

HandleTable& HandleTable::Instance()
{
    static HandleTable& table = *new HandleTable; // outlives the workers, which end with the process
    return table;
}

EVT_HANDLE HandleTable::Open(ReplayHandleKind kind, std::shared_ptr<const void> object)
{
    const std::lock_guard guard(lock_);
    if (free_.empty()) {
        slots_.emplace_back();
        free_.push_back(slots_.size() - 1);
    }
    const size_t index = free_.back();
    free_.pop_back();
    Slot& slot = slots_[index];
    slot.object = std::move(object);
    slot.kind = kind;
    ++open_[kind];
    return reinterpret_cast<EVT_HANDLE>((slot.generation << kSlotBits) | (index + 1));
}

std::shared_ptr<const void> HandleTable::FindObject(EVT_HANDLE handle, ReplayHandleKind kind)
{
    const std::lock_guard guard(lock_);
    const Slot* slot = FindSlot(handle);
    if (slot == nullptr || slot->kind != kind) {
        ++invalid_;
        return nullptr;
    }
    return slot->object;
}

std::shared_ptr<const void> HandleTable::Close(EVT_HANDLE handle, ReplayHandleKind& kind, bool isDelivery)
{
    const std::lock_guard guard(lock_);
    Slot* slot = FindSlot(handle);
    if (slot == nullptr || (slot->kind == ReplayEventHandle && !isDelivery)) {
        ++invalid_;
        return nullptr;
    }
    kind = slot->kind;
    --open_[slot->kind];
    ++slot->generation;
    free_.push_back((reinterpret_cast<size_t>(handle) & kSlotMask) - 1);
    return std::move(slot->object);
}

HandleTable::Slot* HandleTable::FindSlot(EVT_HANDLE handle)
{
    const auto value = reinterpret_cast<size_t>(handle);
    const size_t index = (value & kSlotMask) - 1; // of a null handle: beyond every slot
    if (index >= slots_.size()) {
        return nullptr;
    }
    Slot& slot = slots_[index];
    const size_t generation = (slot.generation << kSlotBits) >> kSlotBits;
    return slot.object != nullptr && generation == value >> kSlotBits ? &slot : nullptr;
}

DWORD HandleTable::CountOpen(ReplayHandleKind kind)
{
    const std::lock_guard guard(lock_);
    return open_[kind];
}

DWORD HandleTable::CountInvalid()
{
    const std::lock_guard guard(lock_);
    return invalid_;
}

} // namespace orvel::replay
