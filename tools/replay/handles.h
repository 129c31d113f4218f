#pragma once

#include "tools/replay/replay_control.h"

#include <winevt.h>

#include <array>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace orvel::replay {

/// The handles of the stand-in. No value is used twice, so that the use of a closed handle, or of an event's handle
/// after its callback, is detected. Any thread.
class HandleTable {
public:
    static HandleTable& Instance();

    EVT_HANDLE Open(ReplayHandleKind kind, std::shared_ptr<const void> object);

    /// Returns the object of an open handle of that kind and shares its ownership; null, and counted, for others.
    template <typename Object>
    std::shared_ptr<const Object> Find(EVT_HANDLE handle, ReplayHandleKind kind)
    {
        return std::static_pointer_cast<const Object>(FindObject(handle, kind));
    }

    /// Closes a handle and returns its object and kind; null, and counted, if it is not open. EVT_SUBSCRIBE_CALLBACK
    /// page: a client must not close an event's handle; its delivery does, with `isDelivery`.
    std::shared_ptr<const void> Close(EVT_HANDLE handle, ReplayHandleKind& kind, bool isDelivery = false);

    DWORD CountOpen(ReplayHandleKind kind);
    DWORD CountInvalid();

private:
    struct Slot {
        std::shared_ptr<const void> object; // null when the slot is free
        size_t generation = 0;
        ReplayHandleKind kind = ReplayHandleKindCount;
    };

    std::shared_ptr<const void> FindObject(EVT_HANDLE handle, ReplayHandleKind kind);
    Slot* FindSlot(EVT_HANDLE handle);

    std::mutex lock_;
    std::deque<Slot> slots_;
    std::vector<size_t> free_;
    std::array<DWORD, ReplayHandleKindCount> open_{};
    DWORD invalid_ = 0;
};

} // namespace orvel::replay
