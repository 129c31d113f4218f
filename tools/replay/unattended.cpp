#include "tools/replay/unattended.h"

#include "tools/native_thread.h"
#include "tools/replay/replay_control.h"

#include <cstdio>
#include <string>

namespace orvel::replay {

namespace {

constexpr DWORD kTimeToSubscribe = 1000;

void Play()
{
    Sleep(kTimeToSubscribe);
    const DWORD error = ReplayPlay(nullptr, nullptr);
    if (error != ERROR_SUCCESS) {
        std::fprintf(stderr, "replay log: the replay stopped with error %lu\n", error);
    }
}

DWORD Start()
{
    std::wstring path(32767, L'\0'); // the longest value of a variable
    path.resize(GetEnvironmentVariableW(L"ORVEL_REPLAY", path.data(), static_cast<DWORD>(path.size())));
    if (path.empty()) {
        return ERROR_SUCCESS;
    }
    wchar_t message[512] = L"";
    const DWORD error = ReplayLoad(path.c_str(), message, ARRAYSIZE(message));
    // The thread may outlive the code that loaded this DLL, so the DLL stays loaded.
    HMODULE self = nullptr;
    if (error == ERROR_SUCCESS &&
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                           reinterpret_cast<const wchar_t*>(&Play), &self)) {
        StartThread(&Play);
    } else {
        std::fprintf(stderr, "replay log: ORVEL_REPLAY: %ls\n", message);
    }
    return error;
}

} // namespace

DWORD StartUnattended()
{
    static const DWORD error = Start();
    return error;
}

} // namespace orvel::replay
