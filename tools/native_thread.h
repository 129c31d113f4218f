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

/// Runs `body` on a new thread that is not joined. Throws std::system_error. Not std::thread::detach: under load,
/// threads detached that way were seen to spin forever in winpthreads' cleanup, with the loader's lock held.
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
