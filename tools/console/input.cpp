#include "tools/console/input.h"

#include "tools/console/text.h"

#include <future>
#include <memory>
#include <thread>

namespace orvel::console {

namespace {

HANDLE stopEvent = nullptr;

BOOL WINAPI OnControl(DWORD event)
{
    if (event > CTRL_BREAK_EVENT || IsStopped()) {
        return FALSE;
    }
    return SetEvent(stopEvent);
}

struct Reading {
    std::string bytes;
    DWORD error = ERROR_SUCCESS;
};

Reading ReadAll(HANDLE file)
{
    constexpr DWORD kPiece = 1 << 20;
    constexpr size_t kLargest = size_t{1} << 30;
    Reading reading;
    DWORD count = 0;
    do {
        const size_t size = reading.bytes.size();
        if (size > kLargest) {
            return {{}, ERROR_FILE_TOO_LARGE};
        }
        reading.bytes.resize(size + kPiece);
        const BOOL isRead = ReadFile(file, reading.bytes.data() + size, kPiece, &count, nullptr);
        reading.error = isRead || GetLastError() == ERROR_BROKEN_PIPE ? DWORD{ERROR_SUCCESS} : GetLastError();
        reading.bytes.resize(size + (isRead ? count : 0));
    } while (reading.error == ERROR_SUCCESS && count != 0);
    return reading;
}

} // namespace

void CatchControlC()
{
    stopEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(OnControl, TRUE);
}

bool IsStopped(DWORD milliseconds)
{
    return WaitForSingleObject(stopEvent, milliseconds) == WAIT_OBJECT_0;
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
    // On a thread of its own, which is left behind when Ctrl+C comes while a pipe or a keyboard is waited for.
    std::packaged_task<Reading()> task(
        [file] { return ReadAll(file != nullptr ? file.get() : GetStdHandle(STD_INPUT_HANDLE)); });
    std::future<Reading> future = task.get_future();
    std::thread(std::move(task)).detach();
    while (future.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready) {
        if (IsStopped()) {
            fail("stopped by Ctrl+C before all of it was read; nothing was delivered");
        }
    }
    Reading reading = future.get();
    if (reading.error != ERROR_SUCCESS) {
        fail("cannot be read: " + Describe(HRESULT_FROM_WIN32(reading.error)));
    }
    return std::move(reading.bytes);
}

} // namespace orvel::console
