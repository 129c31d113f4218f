#pragma once

#include "host/log.h"
#include "host/unique_resource.h"
#include "lamina/mounted_entries.h"

#include <wrl/client.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// Collects the plinths of one logon, from texts that the metric passes in and from what the layering agent's service
/// appends to its own log. docs/lamina-log.md describes which log rotations are supported.
///
/// The owning metric calls it under its lock. All failures are logged. Throws `_com_error` with E_OUTOFMEMORY, and
/// std::bad_alloc.
class CLaminaLogCollector {
public:
    /// `logger` may be null; the collector holds a reference to it.
    explicit CLaminaLogCollector(IAgentLogger* logger) : logger_(logger) {}

    /// Starts a logon: forgets the plinths, locates the log and remembers its size. A log that does not exist yet
    /// counts as empty. Returns false when the log cannot be located or opened, or its size cannot be queried.
    bool PrepareCollectLog();

    /// Adds the plinths that the text lists from character `start` on.
    void ParseMountedPlinths(std::wstring_view text, size_t start);

    /// Adds the plinths that the log lists after the first login response since PrepareCollectLog. Only the first call
    /// after each PrepareCollectLog searches.
    void FindPlinthsInLog();

    /// Returns the plinths since PrepareCollectLog in the order found, duplicates included. Valid until another method
    /// is called.
    const std::vector<PlinthInfo>& GetPlinths() const { return plinths_; }

private:
    // These return false after a failure, which they have logged. Texts are appended to `text`.
    bool LocateLogDirectory();
    /// Reads what was appended to the log since PrepareCollectLog, following a rotation into the backup.
    bool CollectLog(std::wstring& text);
    bool GetLogFileSize(HANDLE file, uint32_t& size);
    bool ReadLogs(HANDLE file, uint32_t endSize, std::wstring& text);
    bool ReadBackupLog(std::wstring& text);
    bool SeekLogFile(HANDLE file, uint32_t offset);
    /// `failure` is the format of the line for a failure; its argument is the last error.
    bool ReadLogText(HANDLE file, uint32_t bytes, std::wstring& text, const wchar_t* failure);

    /// Returns null on failure and sets `error` to its Win32 code, otherwise to 0.
    UniqueFile OpenLogFile(const std::wstring& path, DWORD& error);

    template <typename... Arguments>
    void LogInfo(const wchar_t* format, Arguments... arguments) const
    {
        Log(logger_.Get(), LogLevel::Info, format, arguments...);
    }
    template <typename... Arguments>
    void LogError(const wchar_t* format, Arguments... arguments) const
    {
        Log(logger_.Get(), LogLevel::Error, format, arguments...);
    }

    std::wstring logDirectory_; ///< ends in a backslash; empty before the first success of LocateLogDirectory
    uint32_t beginSize_ = 0;    ///< the log's size in bytes at PrepareCollectLog; only the low 32 bits, as all sizes
    bool searchDone_ = false;
    std::vector<PlinthInfo> plinths_;
    Microsoft::WRL::ComPtr<IAgentLogger> logger_;
};

} // namespace orvel
