#pragma once

#include <cstdint>
#include <string>

namespace orvel {

/// What an event of the layering agent reports about a user's logon.
enum class AgentEventKind { Logon, LogonResponse, VolumeAttached, Logoff, AllDone, Other };

/// One event of the layering agent's service.
struct AgentEventRecord {
    uint32_t eventId = 0;
    uint64_t time = 0; ///< FILETIME: 100 ns since 1601-01-01 UTC; 0 when not known
    std::wstring message;
};

/// Returns the kind of an event. Only its message counts, in either wording of the agent; case matters.
AgentEventKind ClassifyAgentEvent(const AgentEventRecord& event);

} // namespace orvel
