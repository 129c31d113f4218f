#include "lamina/lamina_log_collector.h"

#include "host/text_search.h"

#include <algorithm>
#include <utility>

namespace orvel {

namespace {

constexpr uint32_t kMaxReadBytes = 0x80000;
constexpr wchar_t kCurrentLogName[] = L"korvex.log";
constexpr wchar_t kBackupLogName[] = L"\\korvex_bak.log"; // after the directory's own backslash, harmlessly
constexpr std::wstring_view kLoginResponseMarker = L"Manager status 200 response";

} // namespace

bool CLaminaLogCollector::PrepareCollectLog()
{
    LogInfo(L"PrepareCollectLog");
    std::vector<PlinthInfo>().swap(plinths_);
    searchDone_ = false;
    if (!LocateLogDirectory()) {
        return false;
    }
    std::wstring().swap(logText_);
    DWORD error = ERROR_SUCCESS;
    const FileHandle file = OpenLogFile(logDirectory_ + kCurrentLogName, error);
    if (file && GetLogFileSize(file.get(), beginSize_)) {
        LogInfo(L"Got log file(korvex.log) size: %d", beginSize_);
        return true;
    }
    if (error == ERROR_FILE_NOT_FOUND) {
        beginSize_ = 0;
        return true;
    }
    return false;
}

bool CLaminaLogCollector::CollectLog()
{
    LogInfo(L"CollectLog");
    DWORD error = ERROR_SUCCESS;
    const FileHandle file = OpenLogFile(logDirectory_ + kCurrentLogName, error);
    if (file) {
        return GetLogFileSize(file.get(), endSize_) && ReadLogs(file.get());
    }
    if (error != ERROR_FILE_NOT_FOUND) {
        return false;
    }
    LogInfo(L"log is not availbe, read from backup log");
    return ReadBackupLog(logText_, 0);
}

bool CLaminaLogCollector::FindPlinthsInLog()
{
    if (searchDone_) {
        return true;
    }
    bool found = CollectLog();
    if (found) {
        const size_t response = FindText(logText_, kLoginResponseMarker, 0);
        found = response != logText_.npos;
        if (found) {
            ParseMountedPlinths(logText_, response + kLoginResponseMarker.size());
        } else {
            LogError(L"Failed to find login response from the log");
        }
    }
    searchDone_ = true;
    return found;
}

bool CLaminaLogCollector::ParseMountedPlinths(std::wstring_view text, size_t start)
{
    bool found = false;
    for (auto entry = FindNextMountedEntry(text, start); entry; entry = FindNextMountedEntry(text, entry->next)) {
        found = true;
        PlinthInfo plinth{std::wstring(entry->id), std::wstring(entry->path)};
        LogInfo(L"Find plinth path: %s", plinth.path.c_str());
        LogInfo(L"Find plinth id: %s", plinth.id.c_str());
        plinths_.push_back(std::move(plinth));
    }
    return found;
}

bool CLaminaLogCollector::LocateLogDirectory()
{
    RegistryKey key;
    const DWORD error = OpenMachineKey(L"SYSTEM\\CurrentControlSet\\services\\korvex", key);
    if (error != ERROR_SUCCESS) {
        return LogError(L"Failed to open registry key for korvex, error: %d", error);
    }
    std::wstring directory;
    if (!QueryImagePath(key.get(), directory)) {
        return false;
    }
    LogInfo(L"korvex image path: %s", directory.c_str()); // the second of two equal lines; hosts know them so
    std::erase(directory, L'"');
    directory.resize(std::min(directory.rfind(L'\\'), directory.size())); // without one it stays whole
    directory += L"\\Logs\\";
    logDirectory_ = std::move(directory); // only now: what is thrown before must not leave half a path
    LogInfo(L"korvex log path: %s", logDirectory_.c_str());
    return true;
}

bool CLaminaLogCollector::QueryImagePath(HKEY key, std::wstring& path)
{
    // The last character is kept from the registry, so that a value of any type and length ends.
    wchar_t value[1024] = {};
    DWORD bytes = sizeof(value) - sizeof(wchar_t);
    const LSTATUS error = RegQueryValueExW(key, L"ImagePath", nullptr, nullptr, reinterpret_cast<BYTE*>(value), &bytes);
    if (error != ERROR_SUCCESS) {
        return LogError(L"Failed to query value ImagePath, error: %d", error);
    }
    LogInfo(L"korvex image path: %s", value);
    path = value;
    return true;
}

/// Null on failure; `error` then holds the Win32 code, else 0.
FileHandle CLaminaLogCollector::OpenLogFile(const std::wstring& path, DWORD& error)
{
    error = ERROR_SUCCESS;
    // Shared in every way: the service goes on writing, renaming and deleting its log.
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        return FileHandle(file);
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
    LARGE_INTEGER whole{};
    if (!GetFileSizeEx(file, &whole)) {
        return LogError(L"Failed to get log file size, error: %d", GetLastError());
    }
    size = static_cast<uint32_t>(whole.QuadPart);
    return true;
}

bool CLaminaLogCollector::ReadLogs(HANDLE file)
{
    if (endSize_ == beginSize_) {
        logText_.clear();
        LogInfo(L"No logs collected");
        return true;
    }
    if (beginSize_ < endSize_) {
        LogInfo(L"Read logs from korvex.log");
        return ReadCurrentLog(file);
    }
    LogInfo(L"Read logs from korvex.log and korvex_bak.log");
    return ReadBackupAndCurrentLog(file);
}

bool CLaminaLogCollector::SeekLogFile(HANDLE file, uint32_t offset)
{
    LARGE_INTEGER position{};
    position.QuadPart = offset;
    return SetFilePointerEx(file, position, nullptr, FILE_BEGIN) ||
           LogError(L"Failed to set file pointer, error: %d", GetLastError());
}

/// Adds to `text`. After a failed read the last error is the read's own, for the caller's line: nothing is freed or
/// called in between.
bool CLaminaLogCollector::ReadLogText(HANDLE file, uint32_t bytes, std::wstring& text)
{
    if (bytes > kMaxReadBytes) {
        return LogError(L"Asked to read %d bytes, exceed max read bytes", bytes);
    }
    if (bytes == 0) {
        return true;
    }
    // Zeroed, with room for an odd last byte and one unit more: the text ends even if the file was cut short meanwhile.
    const size_t start = text.size();
    text.resize(start + (bytes + 1) / sizeof(wchar_t) + 1);
    DWORD bytesRead = 0;
    const bool read = ReadFile(file, text.data() + start, bytes, &bytesRead, nullptr) != FALSE;
    text.resize(read ? FindCharacter(text, L'\0', start) : start);
    return read;
}

bool CLaminaLogCollector::ReadCurrentLog(HANDLE file)
{
    if (!SeekLogFile(file, beginSize_)) {
        return false;
    }
    logText_.clear();
    return ReadLogText(file, endSize_ - beginSize_, logText_) ||
           LogError(L"Failed to read from log file, error: %d", GetLastError());
}

/// Makes room for `more` bytes that will be read behind.
bool CLaminaLogCollector::ReadBackupLog(std::wstring& text, uint32_t more)
{
    text.clear();
    DWORD error = ERROR_SUCCESS;
    const FileHandle file = OpenLogFile(logDirectory_ + kBackupLogName, error);
    if (!file) {
        return LogError(L"Failed to open backup log file, error: %d", error);
    }
    uint32_t size = 0;
    if (!GetLogFileSize(file.get(), size)) {
        return false;
    }
    if (size < beginSize_) {
        // Logged as an error, yet a success: the new log's head is still worth reading.
        LogError(L"Backup log file size less than the beginning size, must error occurred, abort");
        return true;
    }
    text.reserve((std::min(size - beginSize_, kMaxReadBytes) + std::min(more, kMaxReadBytes)) / sizeof(wchar_t) + 4);
    return size == beginSize_ || (SeekLogFile(file.get(), beginSize_) &&
                                  (ReadLogText(file.get(), size - beginSize_, text) ||
                                   LogError(L"Failed to read from backup log, error: %d", GetLastError())));
}

bool CLaminaLogCollector::ReadBackupAndCurrentLog(HANDLE file)
{
    std::wstring text;
    if (!ReadBackupLog(text, endSize_)) {
        return false;
    }
    if (!ReadLogText(file, endSize_, text)) { // from the start: the file was only just opened
        return LogError(L"Failed to read logs, error: %d", GetLastError());
    }
    logText_ = std::move(text);
    return true;
}

} // namespace orvel
