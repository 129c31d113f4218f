// What the layering agent's texts do not mean, and where its log may break off. The golden cases have both wordings.

#include "lamina/agent_event.h"
#include "lamina/mounted_entries.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace orvel {
namespace {

TEST(AgentEvent, NeedsTheWholeStartAndPartOfOneWording)
{
    const std::pair<const wchar_t*, AgentEventKind> cases[] = {
        {L"User is logging in\r\nagain", AgentEventKind::Logon},
        {L" User is logging in", AgentEventKind::Other},
        {L"User is logging i", AgentEventKind::Other},
        {L"user is logging in", AgentEventKind::Other},
        {L"Response received from Manager\r\nLOGIN", AgentEventKind::LogonResponse},
        {L"Response received from Manager: login", AgentEventKind::Other},
        {L"LOGIN: Response received from Manager", AgentEventKind::Other},
        {L"New volume event (mounted):(VolumeType 2)", AgentEventKind::VolumeAttached},
        {L"New volume event (mounted): (VolumeType 22) VolumeType: 2", AgentEventKind::Other},
        {L"New volume finished processing: (VolumeType 2)", AgentEventKind::Other},
        {L"", AgentEventKind::Other},
    };
    for (const auto& [message, kind] : cases) {
        EXPECT_EQ(ClassifyAgentEvent({1, 2, message}), kind) << testing::PrintToString(message);
    }
}

using Entries = std::vector<std::pair<std::wstring, std::wstring>>; // path and id

Entries FindAll(std::wstring_view text, size_t start = 0)
{
    Entries found;
    for (auto entry = FindNextMountedEntry(text, start); entry; entry = FindNextMountedEntry(text, entry->next)) {
        found.emplace_back(entry->path, entry->id);
    }
    return found;
}

// A log may be read while its last line is being written, and a search may start anywhere.
TEST(MountedEntries, AreFoundFromAnyStartToAnyEnd)
{
    const std::wstring first = L"..MOUNTED-READ;a\r\nb;1;\r2\n\r\r\n";
    const std::wstring text = first + L"MOUNTED-READ;;\r\nmounted-read;c;3\r\n";
    const size_t second = first.size() + std::wstring_view(L"MOUNTED-READ;;\r\n").size();
    EXPECT_EQ(FindAll(text), (Entries{{L"a\r\nb", L"1;\r2\n\r"}, {L"", L""}}));
    for (size_t at = 0; at <= text.size(); ++at) {
        EXPECT_EQ(FindAll(text, at).size(), size_t{at <= 2} + size_t{at <= first.size()}) << at;
        EXPECT_EQ(FindAll(text.substr(0, at)).size(), size_t{at >= first.size()} + size_t{at >= second}) << at;
    }
}

} // namespace
} // namespace orvel
