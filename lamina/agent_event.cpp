#include "lamina/agent_event.h"

#include "host/text_search.h"

#include <string_view>

namespace orvel {

namespace {

struct Rule {
    std::wstring_view start; ///< how the message begins
    std::wstring_view part;  ///< what it holds besides, anywhere; empty for nothing
    AgentEventKind kind;
};

// The first rule that holds decides. Rows 1 to 5 and 6 to 9 are two wordings of the same agent. Only volumes of type 2
// count; others fall through to `Other`.
constexpr Rule kRules[] = {
    {L"User is logging in", L"", AgentEventKind::Logon},
    {L"User is logging off", L"", AgentEventKind::Logoff},
    {L"Response 200 from Manager", L"", AgentEventKind::LogonResponse},
    {L"Last volume loaded", L"", AgentEventKind::AllDone},
    {L"New volume event (mounted):", L"(VolumeType 2)", AgentEventKind::VolumeAttached},
    {L"User is logging out", L"", AgentEventKind::Logoff},
    {L"Response received from Manager", L"LOGIN", AgentEventKind::LogonResponse},
    {L"New volume finished processing", L"VolumeType: 2", AgentEventKind::VolumeAttached},
    {L"All volumes finished processing", L"", AgentEventKind::AllDone},
};

} // namespace

AgentEventKind ClassifyAgentEvent(const AgentEventRecord& event)
{
    const std::wstring_view message = event.message;
    for (const Rule& rule : kRules) {
        if (StartsWith(message, rule.start) && (rule.part.empty() || FindText(message, rule.part, 0) != message.npos)) {
            return rule.kind;
        }
    }
    return AgentEventKind::Other;
}

} // namespace orvel
