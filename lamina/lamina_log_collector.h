#pragma once

#include "host/log.h"
#include "host/owned_handles.h"
#include "lamina/mounted_entries.h"

#include <wrl/client.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// The plinths of one logon, and where they come from besides the events: what the layering agent's service appends to
/// its own log meanwhile. docs/lamina-log.md tells which ways of rotating that log are followed and which are not.
///
/// One thread at a time: the owning metric holds its lock around every call. Whoever gives false has logged why; all
/// throw only for lack of memory.
class CLaminaLogCollector {
public:
    /// `logger` may be null, then nothing is logged; a reference is taken on it.
    explicit CLaminaLogCollector(IAgentLogger* logger) : logger_(logger) {}

    /// Starts a logon: forgets the plinths and that the log was searched, finds the log directory and remembers how
    /// long the log is now; one that does not exist yet is empty. False when the service's registry entry cannot be
    /// read or the log cannot be opened or measured.
    bool PrepareCollectLog();

    /// Reads what the log gained since PrepareCollectLog, following it into the backup if it was rotated.
    bool CollectLog();

    /// The plinths found since PrepareCollectLog, in the order found, those found twice included. Changed by the other
    /// calls only, so that the owner may walk them under its lock.
    const std::vector<PlinthInfo>& GetPlinths() const { return plinths_; }

    /// Searches what the log gained for the plinths after the first login response, once per PrepareCollectLog: true
    /// without a search when it was done before. False when the log cannot be read or holds no login response.
    bool FindPlinthsInLog();

    /// Adds the plinths that the text lists from character `start` on. False, without a line, when there is none.
    bool ParseMountedPlinths(std::wstring_view text, size_t start);

private:
    bool LocateLogDirectory();
    bool QueryImagePath(HKEY key, std::wstring& path);
    FileHandle OpenLogFile(const std::wstring& path, DWORD& error);
    bool GetLogFileSize(HANDLE file, uint32_t& size);
    bool ReadLogs(HANDLE file);
    bool SeekLogFile(HANDLE file, uint32_t offset);
    bool ReadLogText(HANDLE file, uint32_t bytes, std::wstring& text);
    bool ReadCurrentLog(HANDLE file);
    bool ReadBackupLog(std::wstring& text, uint32_t more);
    bool ReadBackupAndCurrentLog(HANDLE file);

    template <typename... Arguments>
    void LogInfo(const wchar_t* format, Arguments... arguments) const
    {
        Log(logger_.Get(), LogLevel::Info, format, arguments...);
    }
    /// Always false, for the caller to give on.
    template <typename... Arguments>
    bool LogError(const wchar_t* format, Arguments... arguments) const
    {
        Log(logger_.Get(), LogLevel::Error, format, arguments...);
        return false;
    }

    std::wstring logDirectory_; ///< ends in a backslash; empty until it was found
    std::wstring logText_;
    uint32_t beginSize_ = 0; ///< bytes in the log at PrepareCollectLog; as all sizes, the low 32 bits
    uint32_t endSize_ = 0;   ///< bytes in the log at CollectLog
    bool searchDone_ = false;
    std::vector<PlinthInfo> plinths_;
    Microsoft::WRL::ComPtr<IAgentLogger> logger_;
};

} // namespace orvel
