#pragma once

#include "host/native_lock.h"
#include "tools/replay/replay_client.h"

#include <windows.h>
#include <OrvelAgent.h>
#include <winevt.h>

#include <deque>
#include <string>
#include <vector>

namespace orvel::bench {

/// Where the two texts of a plinth stand in an event's message.
struct Slice {
    size_t path;
    size_t pathLength;
    size_t id;
    size_t idLength;
};

/// A plinth that was kept.
struct Part {
    std::wstring id;
    std::wstring path;
};

/// The least that a client can do with an event: the calls to the platform and to the host that the module makes, in
/// the same order and with the same buffers, and keeping the text under the lock that collections of it need. It
/// searches nothing and looks only at the results that it needs to go on.
class FloorClient {
public:
    enum class Duty { Crash, Lamina, LaminaLogon };

    /// `logPath`: the agent's log, which a logon measures.
    FloorClient(const ReplayClient& replay, IAgentLogger& logger, std::wstring logPath);
    ~FloorClient();
    FloorClient(const FloorClient&) = delete;
    FloorClient& operator=(const FloorClient&) = delete;

    /// Takes the events of a channel that match a query.
    void Subscribe(const wchar_t* channel, const wchar_t* query);

    /// Writes the first of the kept texts as a collection of crashes writes its records, and lets go of them.
    void WriteTexts(IMetricSink& sink, size_t count);

    Duty duty = Duty::Crash;   ///< how events are handled from now on
    int questions = 0;         ///< log lines of a Lamina event after its first
    std::vector<Slice> slices; ///< plinths in a Lamina event, two log lines each

    std::deque<std::wstring> texts; ///< kept of crashes
    std::vector<Part> parts;        ///< kept of Lamina events

private:
    static DWORD WINAPI OnNotification(EVT_SUBSCRIBE_NOTIFY_ACTION action, void* client, EVT_HANDLE event);
    void HandleCrash(EVT_HANDLE event);
    void HandleLamina(EVT_HANDLE event);
    void MeasureLog();
    void AskLevel(int times);
    template <typename Take>
    EVT_HANDLE Render(EVT_HANDLE event, DWORD count, const wchar_t** paths, Take take);
    template <typename Keep>
    void Format(EVT_HANDLE event, const wchar_t* publisher, Keep keep);

    IAgentLogger& logger_;
    NativeLock lock_;
    const std::wstring logPath_;
    const std::wstring hostLine_;
    std::wstring timeLine_;
    std::wstring message_;
    ULONGLONG time_ = 0;
    LARGE_INTEGER logSize_{};
    std::vector<EVT_HANDLE> subscriptions_;

    decltype(&EvtSubscribe) subscribe_;
    decltype(&EvtCreateRenderContext) createContext_;
    decltype(&EvtRender) render_;
    decltype(&EvtOpenPublisherMetadata) openPublisher_;
    decltype(&EvtFormatMessage) format_;
    decltype(&EvtClose) close_;
};

/// Bare reads of a rotated log: the backup from `offset` on and the current log whole, each into a zeroed buffer of the
/// size that the module takes.
void ReadRotatedLog(const std::wstring& current, const std::wstring& backup, DWORD offset);

} // namespace orvel::bench
