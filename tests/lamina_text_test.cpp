// What the layering agent's texts mean: the kind of a message and the plinths that a text lists. Nothing of the
// platform is needed here.
#include "lamina/agent_event.h"
#include "lamina/mounted_entries.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

namespace orvel {
namespace {

AgentEventKind Classify(std::wstring message)
{
    return ClassifyAgentEvent({1, 2, std::move(message)});
}

TEST(AgentEvent, IsClassifiedByStartAndPart)
{
    const std::tuple<const wchar_t*, const wchar_t*, AgentEventKind> rules[] = {
        {L"User is logging in", L"", AgentEventKind::Logon},
        {L"User is logging off", L"", AgentEventKind::Logoff},
        {L"User is logging out", L"", AgentEventKind::Logoff},
        {L"Response 200 from Manager", L"", AgentEventKind::LogonResponse},
        {L"Response received from Manager", L"LOGIN", AgentEventKind::LogonResponse},
        {L"New volume event (mounted):", L"(VolumeType 2)", AgentEventKind::VolumeAttached},
        {L"New volume finished processing", L"VolumeType: 2", AgentEventKind::VolumeAttached},
        {L"Last volume loaded", L"", AgentEventKind::AllDone},
        {L"All volumes finished processing", L"", AgentEventKind::AllDone},
    };
    for (const auto& [start, part, kind] : rules) {
        const std::wstring least = std::wstring(start) + part;
        SCOPED_TRACE(testing::PrintToString(least));
        EXPECT_EQ(Classify(least), kind);
        EXPECT_EQ(Classify(std::wstring(start) + L", and so on\r\n" + part + L" tail"), kind);
        EXPECT_EQ(Classify(L" " + least), AgentEventKind::Other);
        EXPECT_EQ(Classify(least.substr(0, least.size() - 1)), AgentEventKind::Other);
        std::wstring other = least;
        other[0] = static_cast<wchar_t>(other[0] + (L'a' - L'A'));
        EXPECT_EQ(Classify(other), AgentEventKind::Other);
        // The part of the other wording does not do, and neither do the two in the wrong order.
        if (*part != L'\0') {
            EXPECT_EQ(Classify(std::wstring(start) + L" VolumeType 2, VolumeType: 1, login"), AgentEventKind::Other);
            EXPECT_EQ(Classify(std::wstring(part) + start), AgentEventKind::Other);
        }
    }
    EXPECT_EQ(Classify(L""), AgentEventKind::Other);
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

TEST(MountedEntries, AreTakenWhenComplete)
{
    const std::pair<const wchar_t*, Entries> cases[] = {
        {L"MOUNTED-READ;;\r\n", {{L"", L""}}},
        {L"MOUNTED-READ;p;a;b\r\n", {{L"p", L"a;b"}}},
        {L"MOUNTED-READ;p;i\n\rx\r\n", {{L"p", L"i\n\rx"}}},
        {L"MOUNTED-READ;a\r\nb;i\r\n", {{L"a\r\nb", L"i"}}},
        {L"MOUNTED-READ;MOUNTED-READ;i\r\n", {{L"MOUNTED-READ", L"i"}}},
        {L"MMOUNTED-READ;p;i\r\r\n", {{L"p", L"i\r"}}},
        {L"mounted-read;p;i\r\n", {}},
        {L"MOUNTED-READ p;i\r\n", {}},
        {L"MOUNTED-READ;p;i\nMOUNTED-READ;q;j\n", {}},
    };
    for (const auto& [text, entries] : cases) {
        EXPECT_EQ(FindAll(text), entries) << testing::PrintToString(text);
    }
}

// A log may be read while its last line is being written, and a search may start anywhere.
TEST(MountedEntries, AreFoundFromAnyStartToAnyEnd)
{
    const std::wstring first = L"..MOUNTED-READ;C:\\vols\\a.vhd;{1234}\r\n";
    const std::wstring text = first + L"MOUNTED-READ;C:\\vols\\b.vhd;{5678}\r\n";
    EXPECT_EQ(FindAll(text), (Entries{{L"C:\\vols\\a.vhd", L"{1234}"}, {L"C:\\vols\\b.vhd", L"{5678}"}}));
    for (size_t at = 0; at <= text.size(); ++at) {
        EXPECT_EQ(FindAll(text, at).size(), size_t{at <= 2} + size_t{at <= first.size()}) << at;
        EXPECT_EQ(FindAll(text.substr(0, at)).size(), size_t{at >= first.size()} + size_t{at >= text.size()}) << at;
    }
}

} // namespace
} // namespace orvel
