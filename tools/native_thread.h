#pragma once

#include "host/unique_resource.h"

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

/// Handle of a thread. Closing it does not end the thread.
using ThreadHandle = std::unique_ptr<void, ReleaseWith<CloseHandle>>;

/// Runs `body` on a new thread, which need not be waited for. Throws std::system_error. Not std::thread::detach:
/// under load, threads detached that way were seen to spin forever in winpthreads' cleanup, with the loader's lock
/// held.
template <typename Body>
ThreadHandle StartThread(Body body)
{
    auto owned = std::make_unique<Body>(std::move(body));
    ThreadHandle thread(CreateThread(nullptr, 0, &RunBody<Body>, owned.get(), 0, nullptr));
    if (!thread) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateThread");
    }
    static_cast<void>(owned.release()); // the thread owns it now
    return thread;
}

} // namespace orvel
