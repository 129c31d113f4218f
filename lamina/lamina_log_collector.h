#pragma once

#include "lamina/mounted_entries.h"
#include "lamina/owned_handles.h"

#include <OrvelAgent.h>
#include <windows.h>
#include <wrl/client.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// The plinths of one logon, and where they come from besides the events: what the layering agent's service appends to
/// its own log meanwhile. docs/lamina-log.md tells which ways of rotating that log are followed and which are not.
///
/// One thread at a time: the owning metric's lock is held around every call. The operations that return a truth value
/// have logged their failure when they give false; they throw only `_com_error` or std::bad_alloc with no memory left.
class CLaminaLogCollector {
public:
    /// `logger` may be null, then nothing is logged; a reference is taken on it.
    explicit CLaminaLogCollector(IAgentLogger* logger) : logger_(logger) {}

    /// Starts a logon: forgets the plinths and that the log was searched, finds the log directory and remembers how
    /// long the log is now. A log that does not exist yet is an empty one. False when the service's registry entry
    /// cannot be read or the log cannot be opened or measured; the place remembered before then stands.
    bool PrepareCollectLog();

    /// Reads what the log gained since PrepareCollectLog, following it into the backup if it was rotated.
    /// False when that cannot be read.
    bool CollectLog();

    /// The plinths found since PrepareCollectLog, in the order found, those found twice included.
    std::vector<PlinthInfo> GetPlinths() const { return plinths_; }

    /// Searches what the log gained for the plinths after the first login response, once per PrepareCollectLog: true
    /// without a search when it was done before. False when the log cannot be read or holds no login response.
    bool FindPlinthsInLog();

    /// Adds the plinths that the text lists from character `start` on. False when there is none.
    bool ParseMountedPlinths(std::wstring_view text, size_t start);

private:
    bool LocateLogDirectory();
    bool QueryImagePath(HKEY key);
    FileHandle OpenLogFile(const std::wstring& path, DWORD& error);
    bool GetLogFileSize(HANDLE file, uint32_t& size);
    bool ReadLogs(HANDLE file);
    bool SeekLogFile(HANDLE file, uint32_t offset);
    bool ReadLogText(HANDLE file, uint32_t bytes, std::wstring& text);
    bool ReadCurrentLog(HANDLE file);
    bool ReadBackupLog(std::wstring& text);
    bool ReadBackupTail(HANDLE file, std::wstring& text);
    bool ReadBackupAndCurrentLog(HANDLE file);

    template <typename... Arguments>
    void LogError(const wchar_t* format, Arguments... arguments) const;
    template <typename... Arguments>
    void LogInfo(const wchar_t* format, Arguments... arguments) const;

    std::wstring logDirectory_; ///< ends in a backslash; empty until it was found
    std::wstring logText_;
    uint32_t beginSize_ = 0; ///< bytes in the log at PrepareCollectLog; as all sizes, the low 32 bits
    uint32_t endSize_ = 0;   ///< bytes in the log at CollectLog
    bool searchDone_ = false;
    std::vector<PlinthInfo> plinths_;
    Microsoft::WRL::ComPtr<IAgentLogger> logger_;
};

} // namespace orvel
