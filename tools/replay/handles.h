#pragma once

#include "tools/replay/rendering.h"
#include "tools/replay/replay_control.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>

namespace orvel::replay {

class Subscriber;

/// The object of a handle, in the order of ReplayHandleKind. That of a publisher is its name.
using HandleObject = std::variant<std::shared_ptr<Subscriber>, std::shared_ptr<const RenderContext>,
                                  std::shared_ptr<const std::wstring>, std::shared_ptr<const Event>>;

/// The handles of the replay log. No value is used twice, so that the use of a closed handle, or of an event's handle
/// after its callback, is detected. Any thread.
class HandleTable {
public:
    static HandleTable& Instance();

    EVT_HANDLE Open(HandleObject object);

    /// Returns the object of an open handle. A handle of another kind or that is not open is counted as invalid, and
    /// the result is null.
    template <typename Object>
    std::shared_ptr<const Object> Find(EVT_HANDLE handle)
    {
        const std::lock_guard guard(lock_);
        const auto found = open_.find(handle);
        if (found == open_.end() || !std::holds_alternative<std::shared_ptr<const Object>>(found->second)) {
            ++invalid_;
            return nullptr;
        }
        return std::get<std::shared_ptr<const Object>>(found->second);
    }

    /// Closes a handle for the client and returns its object. A handle that is not open is counted as invalid, and the
    /// result is empty; so is an event's handle, which only its delivery closes (EVT_SUBSCRIBE_CALLBACK page).
    std::optional<HandleObject> Close(EVT_HANDLE handle);

    /// Closes the handle of an event whose delivery ends.
    void EndDelivery(EVT_HANDLE event);

    DWORD CountOpen(ReplayHandleKind kind);
    DWORD CountInvalid();

private:
    std::mutex lock_;
    std::unordered_map<EVT_HANDLE, HandleObject> open_;
    size_t last_ = 0; // the value of the newest handle
    DWORD invalid_ = 0;
};

} // namespace orvel::replay
