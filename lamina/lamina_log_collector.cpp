#include "lamina/lamina_log_collector.h"

#include <utility>

namespace orvel {

namespace {

constexpr uint32_t kMaxReadBytes = 0x80000;
constexpr wchar_t kCurrentLogName[] = L"korvex.log";
constexpr wchar_t kBackupLogName[] = L"\\korvex_bak.log"; // the path has a double backslash, which Windows accepts
constexpr std::wstring_view kLoginResponseMarker = L"Manager status 200 response";

} // namespace

bool CLaminaLogCollector::PrepareCollectLog()
{
    LogInfo(L"PrepareCollectLog");
    plinths_.clear();
    plinths_.shrink_to_fit();
    searchDone_ = false;
    if (!LocateLogDirectory()) {
        return false;
    }
    DWORD error = ERROR_SUCCESS;
    const UniqueFile file = OpenLogFile(logDirectory_ + kCurrentLogName, error);
    if (error == ERROR_FILE_NOT_FOUND) {
        beginSize_ = 0;
        return true;
    }
    if (!file || !GetLogFileSize(file.get(), beginSize_)) {
        return false;
    }
    LogInfo(L"Got log file(korvex.log) size: %d", beginSize_);
    return true;
}

bool CLaminaLogCollector::CollectLog(std::wstring& text)
{
    LogInfo(L"CollectLog");
    DWORD error = ERROR_SUCCESS;
    const UniqueFile file = OpenLogFile(logDirectory_ + kCurrentLogName, error);
    if (error == ERROR_FILE_NOT_FOUND) {
        LogInfo(L"log is not availbe, read from backup log");
        return ReadBackupLog(text);
    }
    uint32_t endSize = 0;
    return file && GetLogFileSize(file.get(), endSize) && ReadLogs(file.get(), endSize, text);
}

void CLaminaLogCollector::ParseMountedPlinths(std::wstring_view text, size_t start)
{
    for (auto entry = FindNextMountedEntry(text, start); entry; entry = FindNextMountedEntry(text, entry->next)) {
        PlinthInfo plinth{std::wstring(entry->id), std::wstring(entry->path)};
        LogInfo(L"Find plinth path: %s", plinth.path.c_str());
        LogInfo(L"Find plinth id: %s", plinth.id.c_str());
        plinths_.push_back(std::move(plinth));
    }
}

void CLaminaLogCollector::FindPlinthsInLog()
{
    if (searchDone_) {
        return;
    }
    std::wstring text;
    if (CollectLog(text)) {
        const size_t response = text.find(kLoginResponseMarker);
        if (response != std::wstring::npos) {
            ParseMountedPlinths(text, response + kLoginResponseMarker.size());
        } else {
            LogError(L"Failed to find login response from the log");
        }
    }
    searchDone_ = true;
}

bool CLaminaLogCollector::LocateLogDirectory()
{
    HKEY opened = nullptr;
    LSTATUS error =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\services\\korvex", 0, KEY_READ, &opened);
    const UniqueKey key(opened);
    if (error != ERROR_SUCCESS) {
        LogError(L"Failed to open registry key for korvex, error: %d", error);
        return false;
    }
    wchar_t value[1024] = {};
    DWORD bytes = sizeof(value) - sizeof(wchar_t); // the last character stays zero, whatever the value's type
    error = RegQueryValueExW(key.get(), L"ImagePath", nullptr, nullptr, reinterpret_cast<BYTE*>(value), &bytes);
    if (error != ERROR_SUCCESS) {
        LogError(L"Failed to query value ImagePath, error: %d", error);
        return false;
    }
    LogInfo(L"korvex image path: %s", value);
    LogInfo(L"korvex image path: %s", value); // twice on purpose: log parsers expect both lines
    std::wstring path = value;
    std::erase(path, L'"');
    logDirectory_ = path.substr(0, path.rfind(L'\\')) + L"\\Logs\\"; // the whole path if it has no backslash
    LogInfo(L"korvex log path: %s", logDirectory_.c_str());
    return true;
}

UniqueFile CLaminaLogCollector::OpenLogFile(const std::wstring& path, DWORD& error)
{
    error = ERROR_SUCCESS;
    // Full sharing, so that the service can write, rename and delete its log meanwhile.
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        return UniqueFile(file);
    }
    error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND) {
        LogInfo(L"Log file not exist");
    } else {
        LogError(L"Failed to open log file, error: %d", error);
    }
    return nullptr;
}

bool CLaminaLogCollector::GetLogFileSize(HANDLE file, uint32_t& size)
{
    size = 0;
    LARGE_INTEGER fileSize{};
    if (!GetFileSizeEx(file, &fileSize)) {
        LogError(L"Failed to get log file size, error: %d", GetLastError());
        return false;
    }
    size = static_cast<uint32_t>(fileSize.QuadPart);
    return true;
}

bool CLaminaLogCollector::ReadLogs(HANDLE file, uint32_t endSize, std::wstring& text)
{
    if (endSize == beginSize_) {
        LogInfo(L"No logs collected");
        return true;
    }
    if (beginSize_ < endSize) {
        LogInfo(L"Read logs from korvex.log");
        return SeekLogFile(file, beginSize_) &&
               ReadLogText(file, endSize - beginSize_, text, L"Failed to read from log file, error: %d");
    }
    LogInfo(L"Read logs from korvex.log and korvex_bak.log");
    // The file was just opened, so that it is read from its start.
    return ReadBackupLog(text) && ReadLogText(file, endSize, text, L"Failed to read logs, error: %d");
}

bool CLaminaLogCollector::ReadBackupLog(std::wstring& text)
{
    DWORD error = ERROR_SUCCESS;
    const UniqueFile file = OpenLogFile(logDirectory_ + kBackupLogName, error);
    if (!file) {
        LogError(L"Failed to open backup log file, error: %d", error);
        return false;
    }
    uint32_t size = 0;
    if (!GetLogFileSize(file.get(), size)) {
        return false;
    }
    if (size == beginSize_) {
        return true;
    }
    if (size < beginSize_) {
        // Not a failure: the new log is still worth reading.
        LogError(L"Backup log file size less than the beginning size, must error occurred, abort");
        return true;
    }
    return SeekLogFile(file.get(), beginSize_) &&
           ReadLogText(file.get(), size - beginSize_, text, L"Failed to read from backup log, error: %d");
}

bool CLaminaLogCollector::SeekLogFile(HANDLE file, uint32_t offset)
{
    LARGE_INTEGER position{};
    position.QuadPart = offset;
    if (!SetFilePointerEx(file, position, nullptr, FILE_BEGIN)) {
        LogError(L"Failed to set file pointer, error: %d", GetLastError());
        return false;
    }
    return true;
}

bool CLaminaLogCollector::ReadLogText(HANDLE file, uint32_t bytes, std::wstring& text, const wchar_t* failure)
{
    if (bytes == 0) {
        return true;
    }
    bool isRead = false;
    if (bytes > kMaxReadBytes) {
        LogError(L"Asked to read %d bytes, exceed max read bytes", bytes);
    } else {
        // The extra unit terminates the text, which may also be shorter if the file shrank after its size was queried.
        const size_t start = text.size();
        text.resize(start + (bytes + 1) / sizeof(wchar_t) + 1);
        DWORD bytesRead = 0;
        isRead = ReadFile(file, text.data() + start, bytes, &bytesRead, nullptr) != FALSE;
        text.resize(isRead ? text.find(L'\0', start) : start);
    }
    if (!isRead) {
        // For a refused size, too, with whatever the last error is: log parsers expect the line.
        LogError(failure, GetLastError());
    }
    return isRead;
}

} // namespace orvel
