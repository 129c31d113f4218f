// What queries select, through the replay log itself. The cases are in tests/queries, which has a page about them.

#include "tests/support/module_under_test.h"
#include "tools/utf8.h"

#include <array>
#include <fstream>
#include <regex>

namespace orvel::replay {
namespace {

/// The lines of a file beside the program, without comments and empty lines.
std::vector<std::wstring> ReadLines(const char* name)
{
    std::vector<std::wstring> lines;
    std::ifstream file(std::string("queries/") + name);
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.front() != '#') {
            lines.push_back(ToWide(line));
        }
    }
    EXPECT_FALSE(lines.empty()) << name;
    return lines;
}

void LoadExport(const wchar_t* name)
{
    wchar_t message[512] = L"";
    EXPECT_EQ(Replay().Load((std::wstring(L"queries/") + name).c_str(), message, 512), 0U) << message;
}

struct Evaluation {
    unsigned code = 0;
    ReplayProblem problem{};
    std::wstring selected; // EventRecordIDs of events.export.xml
    std::wstring reason;   // why the last event is left out
    int events = 0;
};

void CALLBACK KeepResult(void* context, const ReplayQueryResult* result)
{
    auto& evaluation = *static_cast<Evaluation*>(context);
    if (result->reason == nullptr) {
        evaluation.selected += (evaluation.selected.empty() ? L"" : L",") + std::to_wstring(1001 + evaluation.events);
    }
    evaluation.reason = result->reason != nullptr ? result->reason : L"";
    ++evaluation.events;
}

Evaluation Evaluate(const std::wstring& channel, const std::wstring& query)
{
    Evaluation evaluation;
    evaluation.code =
        Replay().EvaluateQuery(channel.c_str(), query.c_str(), &KeepResult, &evaluation, &evaluation.problem);
    return evaluation;
}

/// The parts of a line that " | " separates.
std::array<std::wstring, 3> Parts(const std::wstring& line)
{
    const size_t first = line.find(L" | "), second = line.find(L" | ", first + 3);
    return {line.substr(0, first), line.substr(first + 3, second - first - 3), line.substr(second + 3)};
}

TEST(ReplayQuery, SelectsWhatAnIndependentEvaluatorSelects)
{
    LoadExport(L"events.export.xml");
    const auto lines = ReadLines("queries.txt");
    EXPECT_EQ(lines.size(), 85U);
    for (const std::wstring& line : lines) {
        const auto& [selected, channel, query] = Parts(line);
        const Evaluation evaluation = Evaluate(channel, std::regex_replace(query, std::wregex(L"\\\\n"), L"\n"));
        EXPECT_EQ(evaluation.code, 0U) << evaluation.problem.reason;
        EXPECT_EQ(evaluation.selected, selected) << testing::PrintToString(line);
    }
}

TEST(ReplayQuery, FollowsEachDocumentedRule)
{
    LoadExport(L"rules.export.xml");
    for (const std::wstring& line : ReadLines("rules.txt")) {
        SCOPED_TRACE(testing::PrintToString(line));
        const auto& [source, expected, query] = Parts(line);
        const Evaluation evaluation = Evaluate(L"application", query);
        std::wstring result = evaluation.selected.empty() ? L"no" : L"yes";
        if (evaluation.code != 0) {
            const std::wstring reason = evaluation.problem.reason;
            const size_t place = reason.rfind(L"(at character ") + 14;
            result = std::to_wstring(evaluation.code) + L"@" + reason.substr(place, reason.size() - place - 1);
            EXPECT_EQ(reason.find(L"documentation: ") == reason.npos, evaluation.code == ERROR_NOT_SUPPORTED);
        }
        EXPECT_EQ(result, expected.substr(0, expected.find(L' '))) << evaluation.problem.reason;
    }
}

TEST(ReplayQuery, ExplainsWhyAnEventIsLeftOut)
{
    LoadExport(L"rules.export.xml");
    const auto lines = ReadLines("explanations.txt");
    for (size_t i = 0; i + 1 < lines.size(); i += 2) {
        const Evaluation evaluation = Evaluate(L"Application", lines[i]);
        EXPECT_EQ(L"    " + evaluation.reason, lines[i + 1]) << testing::PrintToString(lines[i]);
    }
}

} // namespace
} // namespace orvel::replay
