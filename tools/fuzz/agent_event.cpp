// Checks the kind of a message and of all its prefixes: once a prefix has a kind, longer ones have the same.
#include "lamina/agent_event.h"

#include "tools/fuzz/fuzz.h"

void orvel::Fuzz(std::wstring_view text, std::string_view)
{
    const auto classify = [](std::wstring_view message) {
        return ClassifyAgentEvent({0, message.size(), std::wstring(message)});
    };
    AgentEventKind kind = AgentEventKind::Other;
    for (size_t size = 0; size <= text.size(); ++size) {
        const AgentEventKind longer = classify(text.substr(0, size));
        assert(longer == kind || kind == AgentEventKind::Other);
        kind = longer;
    }
    if (kind != AgentEventKind::Other) {
        assert(classify(text.substr(1)) == AgentEventKind::Other);
        const bool isVolume = text.starts_with(L"New volume") && text.find(L"VolumeType") != text.npos;
        assert((kind == AgentEventKind::VolumeAttached) == isVolume);
        assert((kind == AgentEventKind::LogonResponse) == text.starts_with(L"Response "));
        assert((kind == AgentEventKind::Logon) == text.starts_with(L"User is logging in"));
    }
}
