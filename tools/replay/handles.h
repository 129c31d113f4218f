#pragma once

#include "tools/replay/replay_control.h"

#include <winevt.h>

#include <memory>
#include <mutex>
#include <unordered_map>

namespace orvel::replay {

/// The handles of the replay log. No value is used twice, so that the use of a closed handle, or of an event's handle
/// after its callback, is detected. Any thread.
class HandleTable {
public:
    static HandleTable& Instance();

    EVT_HANDLE Open(ReplayHandleKind kind, std::shared_ptr<const void> object);

    /// Returns the object of an open handle of that kind and shares its ownership. Other handles are counted as
    /// invalid, and the result is null.
    template <typename Object>
    std::shared_ptr<const Object> Find(EVT_HANDLE handle, ReplayHandleKind kind)
    {
        return std::static_pointer_cast<const Object>(FindObject(handle, kind));
    }

    /// Closes a handle and returns its object and kind. A handle that is not open is counted as invalid, and the result
    /// is null. So is an event's handle unless `isDelivery`: only its delivery closes it, not the client
    /// (EVT_SUBSCRIBE_CALLBACK page).
    std::shared_ptr<const void> Close(EVT_HANDLE handle, ReplayHandleKind& kind, bool isDelivery = false);

    DWORD CountOpen(ReplayHandleKind kind);
    DWORD CountInvalid();

private:
    struct Entry {
        ReplayHandleKind kind;
        std::shared_ptr<const void> object;
    };

    std::shared_ptr<const void> FindObject(EVT_HANDLE handle, ReplayHandleKind kind);

    std::mutex lock_;
    std::unordered_map<EVT_HANDLE, Entry> open_;
    size_t last_ = 0; // the value of the newest handle
    DWORD invalid_ = 0;
};

} // namespace orvel::replay
