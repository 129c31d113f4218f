#pragma once

#include <windows.h>
#include <winevt.h>

namespace orvel {

/// Owner of one Event Log handle, closed with EvtClose when the owner ends. Empty when null.
class EventHandle {
public:
    EventHandle() = default;
    explicit EventHandle(EVT_HANDLE handle) noexcept : handle_(handle) {}
    ~EventHandle()
    {
        if (handle_ != nullptr) {
            EvtClose(handle_);
        }
    }
    EventHandle(const EventHandle&) = delete;
    EventHandle& operator=(const EventHandle&) = delete;

    EVT_HANDLE get() const noexcept { return handle_; }
    /// For functions that fill in a handle: the empty owner's place for it.
    EVT_HANDLE& put() noexcept { return handle_; }

private:
    EVT_HANDLE handle_ = nullptr;
};

} // namespace orvel
