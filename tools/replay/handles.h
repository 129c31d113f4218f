#pragma once

#include "tools/replay/replay_control.h"

#include <winevt.h>

#include <array>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace orvel::replay {

/// All handles that the stand-in has given out. A value is never given out twice, so that a handle closed before, or an
/// event's handle used after its callback, is found out. Any thread.
class HandleTable {
public:
    static HandleTable& Instance();

    EVT_HANDLE Open(ReplayHandleKind kind, std::shared_ptr<const void> object);

    /// The object of an open handle of that kind, alive while the caller keeps it; null, and counted, for others.
    template <typename Object>
    std::shared_ptr<const Object> Find(EVT_HANDLE handle, ReplayHandleKind kind)
    {
        return std::static_pointer_cast<const Object>(FindObject(handle, kind));
    }

    /// Closes a handle and gives its object and kind; null, and counted, when it is not open. EVT_SUBSCRIBE_CALLBACK
    /// page: the event's handle must not be closed; only its delivery does, which says so with `isDelivery`.
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
