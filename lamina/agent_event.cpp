#include "lamina/agent_event.h"

#include <string_view>

namespace orvel {

namespace {

struct Rule {
    std::wstring_view start; // what the message begins with
    std::wstring_view part;  // what it also contains
    AgentEventKind kind;
};

// The first matching rule decides. Rows 1 to 5 are the agent's first wording, rows 6 to 9 its second, which shares the
// first's logon. Volumes other than type 2 do not count.
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
    for (const Rule& rule : kRules) {
        if (event.message.starts_with(rule.start) && event.message.find(rule.part) != std::wstring::npos) {
            return rule.kind;
        }
    }
    return AgentEventKind::Other;
}

} // namespace orvel
