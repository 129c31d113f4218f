#include "tools/bench/floor_client.h"

#include "tools/function_of.h"

#include <cstdlib>
#include <cwchar>
#include <mutex>

namespace orvel::bench {

namespace {

wchar_t category[] = L"eventlog";
const wchar_t* crashPaths[] = {L"Event/System/TimeCreated/@SystemTime"};
const wchar_t* laminaPaths[] = {L"Event/System/EventID", L"Event/System/TimeCreated/@SystemTime"};

std::wstring HostLine()
{
    wchar_t name[256] = L"";
    DWORD size = 256;
    GetComputerNameExW(ComputerNameNetBIOS, name, &size);
    return std::wstring(L"<br />Host Name: ") + name;
}

std::wstring TimeLine(ULONGLONG time)
{
    constexpr wchar_t kFormat[] = L"<br />Crash Time: %d-%02d-%02d %02d:%02d:%02d";
    const FILETIME fileTime{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
    SYSTEMTIME t{};
    FileTimeToSystemTime(&fileTime, &t);
    const int length = _scwprintf(kFormat, t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
    const size_t size = static_cast<size_t>(length) + 1;
    auto* buffer = static_cast<wchar_t*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size * sizeof(wchar_t)));
    swprintf_s(buffer, size, kFormat, t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
    std::wstring line(buffer, size - 1);
    HeapFree(GetProcessHeap(), 0, buffer);
    return line;
}

HANDLE OpenLog(const std::wstring& path)
{
    return CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

wchar_t* ReadText(HANDLE file, DWORD bytes)
{
    auto* text = static_cast<wchar_t*>(std::calloc((bytes + 1) / 2 + 1, sizeof(wchar_t)));
    DWORD read = 0;
    ReadFile(file, text, bytes, &read, nullptr);
    return text;
}

} // namespace

FloorClient::FloorClient(const ReplayClient& replay, IAgentLogger& logger, std::wstring logPath)
    : logger_(logger), logPath_(std::move(logPath)), hostLine_(HostLine())
{
    subscribe_ = FunctionOf{replay.module, "EvtSubscribe"};
    createContext_ = FunctionOf{replay.module, "EvtCreateRenderContext"};
    render_ = FunctionOf{replay.module, "EvtRender"};
    openPublisher_ = FunctionOf{replay.module, "EvtOpenPublisherMetadata"};
    format_ = FunctionOf{replay.module, "EvtFormatMessage"};
    close_ = FunctionOf{replay.module, "EvtClose"};
}

FloorClient::~FloorClient()
{
    for (const EVT_HANDLE subscription : subscriptions_) {
        close_(subscription);
    }
}

void FloorClient::Subscribe(const wchar_t* channel, const wchar_t* query)
{
    subscriptions_.push_back(
        subscribe_(nullptr, nullptr, channel, query, nullptr, this, &OnNotification, EvtSubscribeToFutureEvents));
}

DWORD WINAPI FloorClient::OnNotification(EVT_SUBSCRIBE_NOTIFY_ACTION, void* client, EVT_HANDLE event)
{
    auto& self = *static_cast<FloorClient*>(client);
    const std::lock_guard guard(self.lock_);
    if (self.duty == Duty::Crash) {
        self.HandleCrash(event);
    } else {
        self.HandleLamina(event);
    }
    return ERROR_SUCCESS;
}

void FloorClient::HandleCrash(EVT_HANDLE event)
{
    const EVT_HANDLE context =
        Render(event, 1, crashPaths, [&](const EVT_VARIANT* values) { timeLine_ = TimeLine(values[0].FileTimeVal); });
    Format(event, L"Application Error", [&](const wchar_t* message, size_t length) {
        std::wstring& text = texts.emplace_back();
        text.reserve(length + timeLine_.size() + hostLine_.size());
        text.append(message, length).append(timeLine_).append(hostLine_);
    });
    close_(context);
}

void FloorClient::HandleLamina(EVT_HANDLE event)
{
    const EVT_HANDLE context =
        Render(event, 2, laminaPaths, [&](const EVT_VARIANT* values) { time_ = values[1].FileTimeVal; });
    Format(event, L"korvex", [&](const wchar_t* message, size_t length) { message_.assign(message, length); });
    AskLevel(1 + questions);
    for (const Slice& slice : slices) {
        AskLevel(2);
        parts.push_back(
            {std::wstring(message_, slice.id, slice.idLength), std::wstring(message_, slice.path, slice.pathLength)});
    }
    if (duty == Duty::LaminaLogon) {
        MeasureLog();
    }
    close_(context);
}

void FloorClient::MeasureLog()
{
    AskLevel(1);
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\services\\korvex", 0, KEY_READ, &key);
    wchar_t path[1024] = {};
    DWORD bytes = sizeof(path) - sizeof(wchar_t);
    RegQueryValueExW(key, L"ImagePath", nullptr, nullptr, reinterpret_cast<BYTE*>(path), &bytes);
    AskLevel(3);
    RegCloseKey(key);
    const HANDLE file = OpenLog(logPath_);
    GetFileSizeEx(file, &logSize_);
    AskLevel(1);
    CloseHandle(file);
}

void FloorClient::AskLevel(int times)
{
    for (int i = 0; i < times; ++i) {
        LONG levels = 0;
        logger_.GetLogLevels(category, &levels);
    }
}

template <typename Take>
EVT_HANDLE FloorClient::Render(EVT_HANDLE event, DWORD count, const wchar_t** paths, Take take)
{
    const EVT_HANDLE context = createContext_(count, paths, EvtRenderContextValues);
    DWORD used = 0;
    DWORD properties = 0;
    if (GetLastError() == ERROR_SUCCESS &&
        !render_(context, event, EvtRenderEventValues, 0, nullptr, &used, &properties) &&
        GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        void* values = std::malloc(used);
        render_(context, event, EvtRenderEventValues, used, values, &used, &properties);
        if (GetLastError() == ERROR_SUCCESS) {
            take(static_cast<const EVT_VARIANT*>(values));
        }
        std::free(values);
    }
    return context;
}

template <typename Keep>
void FloorClient::Format(EVT_HANDLE event, const wchar_t* publisher, Keep keep)
{
    const EVT_HANDLE metadata = openPublisher_(nullptr, publisher, nullptr, 0, 0); // left open, as the module does
    DWORD used = 0;
    if (!format_(metadata, event, 0, 0, nullptr, EvtFormatMessageEvent, 0, nullptr, &used) &&
        GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        auto* message = static_cast<wchar_t*>(std::malloc(used * sizeof(wchar_t)));
        if (format_(metadata, event, 0, 0, nullptr, EvtFormatMessageEvent, used, message, &used)) {
            keep(message, used - 1);
        }
        std::free(message);
    }
}

void FloorClient::WriteTexts(IMetricSink& sink, size_t count)
{
    for (size_t ordinal = 1; ordinal <= count; ++ordinal) {
        const std::wstring number = std::to_wstring(ordinal);
        const BSTR key = SysAllocString(L"appcrash|crash_details|*");
        const BSTR instance = SysAllocStringLen(number.data(), static_cast<UINT>(number.size()));
        VARIANT value;
        VariantInit(&value);
        VariantClear(&value);
        value.bstrVal = SysAllocString(texts.front().c_str());
        value.vt = VT_BSTR;
        sink.WriteMetric(key, instance, value);
        VariantClear(&value);
        SysFreeString(instance);
        SysFreeString(key);
        texts.pop_front();
    }
}

void ReadRotatedLog(const std::wstring& current, const std::wstring& backup, DWORD offset)
{
    const HANDLE log = OpenLog(current);
    LARGE_INTEGER size{};
    GetFileSizeEx(log, &size);
    const HANDLE old = OpenLog(backup);
    LARGE_INTEGER oldSize{};
    GetFileSizeEx(old, &oldSize);
    LARGE_INTEGER position{};
    position.QuadPart = offset;
    SetFilePointerEx(old, position, nullptr, FILE_BEGIN);
    wchar_t* tail = ReadText(old, oldSize.LowPart - offset);
    CloseHandle(old);
    wchar_t* head = ReadText(log, size.LowPart);
    CloseHandle(log);
    std::free(tail);
    std::free(head);
}

} // namespace orvel::bench
