#include "tools/replay/event_time.h"
#include "tools/replay/query.h"
#include "tools/replay/xml_reader.h"

#include <gtest/gtest.h>

#include <string>

namespace orvel::replay {
namespace {

const Node& SampleEvent()
{
    static const XmlDocument document(
        "<Event><System><Provider Name='Application Error'/><EventID>1000</EventID><Level>2</Level>"
        "<Keywords>0x80000000000000</Keywords><TimeCreated SystemTime='2026-01-22T02:01:56.1870423Z'/></System>"
        "<EventData><Data Name='App'>a.exe</Data><Data>-7</Data><Data>2026-01-22T02:01:57.1870423Z</Data></EventData>"
        "</Event>");
    return document.Root();
}

TEST(ReplayQuery, SelectsAsTheEventLogDoes)
{
    const std::pair<const wchar_t*, bool> kCases[] = {
        {L" * ", true},
        {L"Event/System[EventID=1000]", true},
        {L"*[System[Provider[@Name='Application Error'] and (EventID=1 or EventID=1000)]]", true},
        {L"*[System/EventID=1000 or System/Level=1 and System/Level=3]", true},
        {L"*[(System/EventID=1000 or System/Level=1) and System/Level=3]", false},
        {L"*[System[2 <= Level and 3>Level and 1000 != Level]]", true},
        {L"*[EventData[Data[@Name=\"App\"]='a.exe' and Data[position()>1]='-7' and Data[2] < 0]]", true},
        {L"*[*/*[@Name][2]]", false},
        {L"*[EventData/Data[4]]", false},
        {L"*[System[band(Keywords,36028797018963968)]]", true},
        {L"*[System[band(1,Keywords)]]", false},
        {L"*[System/TimeCreated[timediff(@SystemTime) <= 86400000]]", true},
        {L"*[timediff(System/TimeCreated/@SystemTime,EventData/Data[3]) = 1000]", true},
        {L"*[System/TimeCreated[@SystemTime>='2026-01-22T02:01:56.187Z' and @SystemTime<'2026-01-22T02:01:57Z']]",
         true},
    };
    for (const auto& [text, expected] : kCases) {
        EXPECT_EQ(Query::Parse(text).Matches(SampleEvent()), expected) << testing::Message() << text;
    }
}

TEST(ReplayQuery, TellsTheFirstConditionThatFailedAndWhatItMet)
{
    const std::pair<const wchar_t*, const wchar_t*> kCases[] = {
        {L"*[System[Level=2 and EventID=1001 and Level=9]]", L"EventID is 1000, the query wants 1001"},
        {L"*[System[EventID=1 or EventID>1000]]", L"EventID is 1000, the query wants 1 or more than 1000"},
        {L"*[System[EventID=1 or Level!=2]]",
         L"EventID is 1000, the query wants 1; Level is 2, the query wants another than 2"},
        {L"*[System[Provider[@Name='x']]]", L"Provider/@Name is 'Application Error', the query wants 'x'"},
        {L"*[System/Channel]", L"System has no Channel"},
        {L"*[UserData[a=1]]", L"Event has no UserData"},
        {L"*[EventData/Data[@Name='App']='b.exe']", L"Data is 'a.exe' (one of 3 Data), the query wants 'b.exe'"},
        {L"*[EventData/Data[@Name='Path']]", L"Data/@Name is 'App' (one of 3 Data), the query wants 'Path'"},
        {L"*[System[band(Keywords,1)]]", L"Keywords is 0x80000000000000, the query wants a bit of 1"},
        {L"*[System/Level[2]]", L"Level is number 1, the query wants 2"},
        {L"*[System/TimeCreated[timediff(@SystemTime) > 5]]", L"timediff() is 0, the query wants more than 5"},
        {L"*", L""},
    };
    for (const auto& [text, expected] : kCases) {
        EXPECT_EQ(Query::Parse(text).Explain(SampleEvent()), expected) << testing::Message() << text;
    }
}

TEST(ReplayQuery, RefusesWhatItDoesNotUnderstandAndSaysWhere)
{
    std::wstring many = L"*[a=1";
    for (int i = 1; i < 20; ++i) {
        many += L" or a=1";
    }
    EXPECT_NO_THROW(Query::Parse(many + L"]"));
    const std::pair<std::wstring, size_t> kCases[] = {
        {L"", 0},
        {L"/Event", 0},
        {L"* or *", 2},
        {L"*[a", 3},
        {L"*[a=]", 4},
        {L"*[a='x]", 4},
        {L"*[a<'x']", 2},
        {L"*[not(a)]", 2},
        {L"*[a=b]", 2},
        {L"*[a=1.5]", 4},
        {L"*[a=0x10]", 4},
        {L"*[a=-1]", 4},
        {L"*[1]", 0},
        {L"*['x']", 2},
        {L"*[a=1 and]", 9},
        {L"*[a=1=1]", 5},
        {L"*[a::b]", 2},
        {L"*[timediff('x')=1]", 2},
        {L"*[@a[1]]", 4},
        {L"*[band(a,b)]", 2},
        {many + L" or b]", many.size() + 4},
        {L"*[" + std::wstring(100'000, L'('), 66},
    };
    for (const auto& [text, position] : kCases) {
        SCOPED_TRACE(testing::Message() << text.substr(0, 200));
        try {
            Query::Parse(text);
            ADD_FAILURE() << "was taken";
        } catch (const QueryError& error) {
            EXPECT_EQ(error.code, text.size() > 100 ? kQueryTooComplex : kInvalidQuery);
            EXPECT_EQ(error.position, position);
        }
    }
}

TEST(ReplayQuery, ReadsEventTimes)
{
    const std::pair<const wchar_t*, std::optional<uint64_t>> kCases[] = {
        {L"1601-01-01T00:00:00Z", 0},
        {L"2024-02-29T23:59:59.123456789Z", 133'537'247'991'234'567},
        {L"2023-02-29T00:00:00Z", std::nullopt},
        {L"2024-01-01T24:00:00Z", std::nullopt},
        {L"2024-01-01T00:00:00.Z", std::nullopt},
        {L"2024-01-01T00:00:00", std::nullopt},
        {L"1600-12-31T23:59:59Z", std::nullopt},
    };
    for (const auto& [text, expected] : kCases) {
        EXPECT_EQ(ParseEventTime(text), expected) << testing::Message() << text;
    }
}

} // namespace
} // namespace orvel::replay
