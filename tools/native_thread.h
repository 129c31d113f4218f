#pragma once

#include <windows.h>

#include <memory>
#include <system_error>
#include <utility>

namespace orvel {

template <typename Body>
DWORD WINAPI RunBody(void* body)
{
    const std::unique_ptr<Body> owned(static_cast<Body*>(body));
    (*owned)();
    return 0;
}

/// Runs `body` on a new thread that is not joined. Not std::thread::detach: when winpthreads detaches a thread that
/// ends at the same time, the thread can spin forever while it holds the loader's lock. Throws std::system_error.
template <typename Body>
void StartThread(Body body)
{
    auto owned = std::make_unique<Body>(std::move(body));
    const HANDLE thread = CreateThread(nullptr, 0, &RunBody<Body>, owned.get(), 0, nullptr);
    if (thread == nullptr) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateThread");
    }
    static_cast<void>(owned.release()); // the thread owns it now
    CloseHandle(thread);
}

} // namespace orvel
