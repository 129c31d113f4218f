#include "tools/console/input.h"

#include "host/unique_resource.h"
#include "tools/native_thread.h"
#include "tools/utf8.h"

#include <atomic>
#include <future>

namespace orvel::console {

namespace {

const HANDLE stopEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
std::atomic<bool> isStopped = false; // the event alone would cost a system call per replayed event

BOOL WINAPI OnControl(DWORD event)
{
    if (event > CTRL_BREAK_EVENT || IsStopped()) {
        return FALSE;
    }
    isStopped = true;
    return SetEvent(stopEvent);
}

std::string ReadAll(HANDLE file, const std::string& name, ExitCode code)
{
    constexpr DWORD kPiece = 1 << 20;
    constexpr size_t kLargest = size_t{1} << 30;
    std::string bytes;
    for (DWORD count = 1; count != 0;) {
        const size_t size = bytes.size();
        bytes.resize(size + kPiece);
        DWORD error = ReadFile(file, bytes.data() + size, kPiece, &count, nullptr) ? ERROR_SUCCESS : GetLastError();
        error = size > kLargest ? ERROR_FILE_TOO_LARGE : error;
        if (error != ERROR_SUCCESS && error != ERROR_BROKEN_PIPE) {
            throw Failure(code, name + ": cannot be read: " + Describe(HRESULT_FROM_WIN32(error)));
        }
        bytes.resize(size + count); // 0 for a closed pipe
    }
    return bytes;
}

} // namespace

void CatchControlC()
{
    SetConsoleCtrlHandler(OnControl, TRUE);
}

bool IsStopped(DWORD milliseconds)
{
    return isStopped || (milliseconds != 0 && WaitForSingleObject(stopEvent, milliseconds) == WAIT_OBJECT_0);
}

std::string InputName(const std::string& path)
{
    return path == "-" ? "stdin" : path;
}

std::string ComputerName()
{
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = L"";
    DWORD size = ARRAYSIZE(name);
    GetComputerNameExW(ComputerNameNetBIOS, name, &size);
    return ToUtf8(name);
}

std::string ReadInput(const std::string& path, ExitCode code)
{
    const std::string name = InputName(path);
    UniqueFile file;
    if (path != "-") {
        const HANDLE handle = CreateFileW(ToWide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (handle == INVALID_HANDLE_VALUE) {
            throw Failure(code, name + ": cannot be opened: " + Describe(HRESULT_FROM_WIN32(GetLastError())) +
                                    "; check its name and rights");
        }
        file.reset(handle);
    }
    // On a separate thread: after Ctrl+C, the program does not wait for a pipe or a keyboard.
    std::packaged_task<std::string()> task([file = std::move(file), name, code] {
        return ReadAll(file ? file.get() : GetStdHandle(STD_INPUT_HANDLE), name, code);
    });
    std::future<std::string> bytes = task.get_future();
    const ThreadHandle thread = StartThread(std::move(task));
    // For the thread's end, not only for its result: under Wine, a process that exits while a thread ends was seen to
    // return that thread's exit code.
    while (WaitForSingleObject(thread.get(), 20) == WAIT_TIMEOUT) {
        if (IsStopped()) {
            throw Failure(code, name + ": stopped by Ctrl+C before all of it was read; nothing was delivered");
        }
    }
    return bytes.get();
}

} // namespace orvel::console
