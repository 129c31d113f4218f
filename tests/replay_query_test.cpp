// What queries select, through the replay log itself. The cases are in tests/queries, which has a page about them.

#include "tests/support/module_under_test.h"
#include "tools/replay/event_time.h"

#include <fstream>
#include <sstream>

namespace orvel::replay {
namespace {

/// A file beside the program, with UTF-8 decoded.
std::wstring ReadText(const char* name)
{
    std::ifstream file(std::string("queries/") + name, std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    const std::string text = bytes.str();
    EXPECT_FALSE(text.empty()) << name;
    std::wstring wide(text.size(), L'\0');
    wide.resize(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                                        wide.data(), static_cast<int>(wide.size()))));
    return wide;
}

/// The lines of a file, without comments and empty lines.
std::vector<std::wstring> ReadLines(const char* name)
{
    std::vector<std::wstring> lines;
    std::wistringstream text(ReadText(name));
    for (std::wstring line; std::getline(text, line);) {
        if (!line.empty() && line.front() != L'#') {
            lines.push_back(line);
        }
    }
    return lines;
}

void LoadExport(const wchar_t* name)
{
    wchar_t message[512] = L"";
    EXPECT_EQ(Replay().Load((std::wstring(L"queries/") + name).c_str(), message, 512), 0U) << message;
}

struct Judgement {
    unsigned code = 0;
    ReplayProblem problem{};
    std::vector<int> selected; // EventRecordIDs of events.export.xml
    std::wstring reason;       // why the last event is left out
    int events = 0;
};

void CALLBACK KeepVerdict(void* judgement, const ReplayVerdict* verdict)
{
    auto& result = *static_cast<Judgement*>(judgement);
    if (verdict->reason == nullptr) {
        result.selected.push_back(1001 + result.events);
    }
    result.reason = verdict->reason != nullptr ? verdict->reason : L"";
    ++result.events;
}

Judgement Judge(const std::wstring& channel, const std::wstring& query)
{
    Judgement judgement;
    judgement.code = Replay().Judge(channel.c_str(), query.c_str(), &KeepVerdict, &judgement, &judgement.problem);
    return judgement;
}

/// The text of a member of a JSON object that has it as "name": "text".
std::wstring Member(const std::wstring& line, const std::wstring& name)
{
    std::wstring text;
    for (size_t i = line.find(L"\"" + name + L"\": \"") + name.size() + 5; line[i] != L'"'; ++i) {
        if (line[i] == L'\\') {
            ++i;
            text += line[i] == L'n' ? L'\n' : line[i] == L't' ? L'\t' : line[i];
        } else {
            text += line[i];
        }
    }
    return text;
}

TEST(ReplayQuery, SelectsTheEventsThatAnIndependentEvaluatorSelects)
{
    LoadExport(L"events.export.xml");
    const auto lines = ReadLines("queries.jsonl");
    EXPECT_EQ(lines.size(), 85U);
    for (const std::wstring& line : lines) {
        std::vector<int> expected;
        std::wistringstream numbers(line.substr(line.find(L"\"selects\": [") + 12));
        for (int number = 0; numbers >> number; numbers.ignore()) {
            expected.push_back(number);
        }
        const Judgement judgement = Judge(Member(line, L"channel"), Member(line, L"query"));
        EXPECT_EQ(judgement.code, 0U) << line << judgement.problem.reason;
        EXPECT_EQ(judgement.selected, expected) << testing::PrintToString(line);
    }
}

TEST(ReplayQuery, FollowsEachDocumentedRule)
{
    LoadExport(L"rules.export.xml");
    for (const std::wstring& line : ReadLines("rules.txt")) {
        SCOPED_TRACE(testing::PrintToString(line));
        const size_t first = line.find(L" | "), second = line.find(L" | ", first + 1);
        const Judgement judgement = Judge(L"application", line.substr(second + 3));
        std::wstring result = judgement.selected.empty() ? L"no" : L"yes";
        if (judgement.code != 0) {
            const std::wstring reason = judgement.problem.reason;
            const size_t place = reason.rfind(L"(at character ") + 14;
            result = std::to_wstring(judgement.code) + L"@" + reason.substr(place, reason.size() - place - 1);
            EXPECT_EQ(reason.find(L"documentation: ") == reason.npos, judgement.code == ERROR_NOT_SUPPORTED);
        }
        const std::wstring expected = line.substr(first + 3, second - first - 3);
        EXPECT_EQ(result, expected.substr(0, expected.find(L' '))) << judgement.problem.reason;
    }
}

TEST(ReplayQuery, ExplainsWhyAnEventIsLeftOut)
{
    LoadExport(L"rules.export.xml");
    const auto lines = ReadLines("explanations.txt");
    for (size_t i = 0; i + 1 < lines.size(); i += 2) {
        const Judgement judgement = Judge(L"Application", lines[i]);
        EXPECT_EQ(L"    " + judgement.reason, lines[i + 1]) << testing::PrintToString(lines[i]);
    }
}

TEST(ReplayQuery, LimitsExpressionsToTwentyAndThirtyTwo)
{
    LoadExport(L"rules.export.xml");
    std::wstring query = L"*[System/Level=2";
    const auto isTaken = [&](const std::wstring& text) { return Judge(L"Application", text).code == 0; };
    for (int count = 2; count <= 33; ++count) {
        query += L" or b";
        const std::wstring list =
            L"<QueryList><Query Path='Application'><Select>" + query + L"]</Select></Query></QueryList>";
        EXPECT_EQ(isTaken(query + L"]"), count <= 20) << count;
        EXPECT_EQ(isTaken(list), count <= 32) << count;
    }
    EXPECT_EQ(Judge(L"Application", query + L"]").code, 15026U);
}

TEST(ReplayQuery, ReadsEventTimes)
{
    const std::pair<const wchar_t*, std::optional<uint64_t>> kCases[] = {
        {L"1601-01-01T00:00:00Z", 0},
        {L"2024-02-29T23:59:59.123456789Z", 133'537'247'991'234'567},
        {L"2023-02-29T00:00:00Z", std::nullopt},
        {L"2024-01-01T24:00:00Z", std::nullopt},
        {L"2024-01-01T00:00:00.Z", std::nullopt},
        {L"2024-01-01T00:00:00+01:00", std::nullopt},
        {L"2024-01-01T00:00", std::nullopt},
        {L"1600-12-31T23:59:59Z", std::nullopt},
    };
    for (const auto& [text, expected] : kCases) {
        EXPECT_EQ(ParseEventTime(text), expected) << testing::PrintToString(text);
    }
}

} // namespace
} // namespace orvel::replay
