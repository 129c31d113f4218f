// What queries select, through the replay log itself. The cases are in tests/queries, which has a page about them.

#include "tests/support/module_under_test.h"
#include "tools/utf8.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <random>
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

/// Makes events and queries at random; queries/grammar.txt explains how.
class Generator {
public:
    Generator()
    {
        const std::wregex separator(L": | \\| ");
        for (const std::wstring& line : ReadLines("grammar.txt")) {
            const Lines parts(std::wsregex_token_iterator(line.begin(), line.end(), separator, -1), {});
            grammar_[parts.front()].assign(parts.begin() + 1, parts.end());
        }
    }

    /// Returns one of a name's alternatives, with the names in it replaced likewise.
    std::wstring Make(const std::wstring& name)
    {
        const Lines& alternatives = grammar_.at(name);
        std::wstring text = alternatives.at(random_() % alternatives.size());
        for (size_t start = text.find(L'{'); start != text.npos; start = text.find(L'{', start)) {
            const size_t end = text.find(L'}', start);
            text.replace(start, end - start + 1, Make(text.substr(start + 1, end - start - 1)));
        }
        return text;
    }

private:
    std::map<std::wstring, Lines> grammar_{{L"none", {L""}}};
    std::mt19937 random_{20'260'302};
};

/// The numbers of the elements e in which MSXML's XPath finds the query, as in Evaluation::selected.
std::wstring SelectedByMsxml(IXMLDOMElement& events, const std::wstring& query)
{
    ComPtr<IXMLDOMNodeList> numbers;
    EXPECT_EQ(events.selectNodes(_bstr_t((L"e[" + query + L"]/@n").c_str()), numbers.GetAddressOf()), S_OK) << query;
    std::wstring selected;
    ComPtr<IXMLDOMNode> number;
    while (numbers->nextNode(number.ReleaseAndGetAddressOf()) == S_OK) {
        _bstr_t text;
        EXPECT_EQ(number->get_text(text.GetAddress()), S_OK);
        selected += (selected.empty() ? L"" : L",") + std::wstring(text);
    }
    return selected;
}

TEST(ReplayQuery, SelectsWhatMsxmlSelects)
{
    constexpr int kEvents = 40;
    Generator generator;
    std::wstring all, numbered;
    for (int i = 0; i < kEvents; ++i) {
        const std::wstring event = generator.Make(L"event");
        all += event;
        numbered += L"<e n='" + std::to_wstring(1001 + i) + L"'>" + event + L"</e>";
    }
    LoadEvents(all);
    const auto events = Configuration(L"<r>" + numbered + L"</r>");
    ptrdiff_t evaluated = 0, selected = 0;
    for (int i = 0; i < 400; ++i) {
        const std::wstring query = generator.Make(L"query");
        const Evaluation evaluation = Evaluate(L"Application", query);
        if (evaluation.code == 15026) { // more expressions than the Event Log takes
            continue;
        }
        ASSERT_EQ(evaluation.code, 0U) << query << L"\n" << evaluation.problem.reason;
        ASSERT_EQ(evaluation.selected, SelectedByMsxml(*events.Get(), query)) << query << L"\n" << numbered;
        evaluated += kEvents;
        selected += evaluation.selected.empty() ? 0 : std::ranges::count(evaluation.selected, L',') + 1;
    }
    EXPECT_GT(evaluated, 10'000);
    EXPECT_TRUE(selected > evaluated / 5 && selected < evaluated / 5 * 4) << selected << " of " << evaluated;
}

} // namespace
} // namespace orvel::replay
