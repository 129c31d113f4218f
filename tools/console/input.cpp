#include "tools/console/input.h"

#include "tools/console/failure.h"
#include "tools/native_thread.h"
#include "tools/utf8.h"

#include <atomic>
#include <future>
#include <memory>

namespace orvel::console {

namespace {

HANDLE stopEvent = nullptr;
std::atomic<bool> isStopped = false; // asking the event would cost a system call per replayed event

BOOL WINAPI OnControl(DWORD event)
{
    if (event > CTRL_BREAK_EVENT || IsStopped()) {
        return FALSE;
    }
    isStopped = true;
    return SetEvent(stopEvent);
}

// Throws the Win32 code when reading fails.
std::string ReadAll(HANDLE file)
{
    constexpr DWORD kPiece = 1 << 20;
    constexpr size_t kLargest = size_t{1} << 30;
    std::string bytes;
    LARGE_INTEGER expected{};
    if (GetFileSizeEx(file, &expected) && expected.QuadPart < static_cast<LONGLONG>(kLargest)) {
        bytes.reserve(static_cast<size_t>(expected.QuadPart) + kPiece);
    }
    for (DWORD count = 1; count != 0;) {
        const size_t size = bytes.size();
        if (size > kLargest) {
            throw DWORD{ERROR_FILE_TOO_LARGE};
        }
        bytes.resize(size + kPiece);
        if (!ReadFile(file, bytes.data() + size, kPiece, &count, nullptr) && GetLastError() != ERROR_BROKEN_PIPE) {
            throw GetLastError();
        }
        bytes.resize(size + count); // a pipe that was closed has put 0 there
    }
    return bytes;
}

} // namespace

void CatchControlC()
{
    stopEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(OnControl, TRUE);
}

bool IsStopped(DWORD milliseconds)
{
    return isStopped || (milliseconds != 0 && WaitForSingleObject(stopEvent, milliseconds) == WAIT_OBJECT_0);
}

std::string InputName(const std::wstring& path)
{
    return path == L"-" ? "stdin" : ToUtf8(path);
}

std::string ReadInput(const std::wstring& path, ExitCode code)
{
    const auto fail = [&](const std::string& text) { throw Failure(code, InputName(path) + ": " + text); };
    std::shared_ptr<void> file;
    if (path != L"-") {
        const HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (handle == INVALID_HANDLE_VALUE) {
            fail("cannot be opened: " + Describe(HRESULT_FROM_WIN32(GetLastError())) + "; check its name and rights");
        }
        file.reset(handle, CloseHandle);
    }
    // On a separate thread: after Ctrl+C, the program does not wait for a pipe or a keyboard.
    std::packaged_task<std::string()> task(
        [file] { return ReadAll(file != nullptr ? file.get() : GetStdHandle(STD_INPUT_HANDLE)); });
    std::future<std::string> future = task.get_future();
    StartThread(std::move(task));
    while (future.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready) {
        if (IsStopped()) {
            fail("stopped by Ctrl+C before all of it was read; nothing was delivered");
        }
    }
    try {
        return future.get();
    } catch (DWORD error) {
        throw Failure(code, InputName(path) + ": cannot be read: " + Describe(HRESULT_FROM_WIN32(error)));
    }
}

} // namespace orvel::console
