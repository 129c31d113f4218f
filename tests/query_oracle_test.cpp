// Random queries over random events, both made after queries/grammar.txt and evaluated by the replay log and by MSXML's
// XPath.

#include "tests/support/module_under_test.h"

#include <fstream>
#include <map>
#include <random>

namespace {

// Not in mingw's import libraries.
constexpr IID kIidDocument2 = {0x2933BF95, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

class Generator {
public:
    Generator()
    {
        std::wifstream file("queries/grammar.txt");
        for (std::wstring line; std::getline(file, line);) {
            const size_t colon = line.find(L": ");
            size_t end = colon;
            while (end != line.npos) {
                const size_t start = end + (end == colon ? 2 : 3);
                end = line.find(L" | ", start);
                grammar_[line.substr(0, colon)].push_back(line.substr(start, end - start));
            }
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

ComPtr<IXMLDOMDocument2> Parse(const std::wstring& xml)
{
    const ComPtr<IXMLDOMElement> root = Configuration(xml);
    ComPtr<IXMLDOMDocument> document;
    ComPtr<IXMLDOMDocument2> result;
    EXPECT_EQ(root->get_ownerDocument(document.GetAddressOf()), S_OK);
    EXPECT_EQ(document->QueryInterface(kIidDocument2, reinterpret_cast<void**>(result.GetAddressOf())), S_OK);
    EXPECT_EQ(result->setProperty(_bstr_t(L"SelectionLanguage"), _variant_t(L"XPath")), S_OK);
    return result;
}

bool Selects(IXMLDOMDocument2& document, const std::wstring& query)
{
    ComPtr<IXMLDOMNode> node;
    const _bstr_t path((L"/self::node()[" + query + L"]").c_str());
    const HRESULT hr = document.selectSingleNode(path, node.GetAddressOf());
    EXPECT_TRUE(SUCCEEDED(hr)) << query;
    return hr == S_OK;
}

void CALLBACK KeepResult(void* results, const ReplayQueryResult* result)
{
    static_cast<std::vector<bool>*>(results)->push_back(result->reason == nullptr);
}

TEST(QueryOracle, ReplayLogAndMsxmlAgree)
{
    constexpr unsigned kEvents = 40;
    constexpr unsigned kQueries = 400;
    Generator generator;
    std::wstring all;
    std::vector<std::wstring> events;
    std::vector<ComPtr<IXMLDOMDocument2>> documents;
    for (unsigned i = 0; i < kEvents; ++i) {
        events.push_back(generator.Make(L"event"));
        documents.push_back(Parse(events.back()));
        all += events.back();
    }
    LoadEvents(all);
    unsigned evaluated = 0, selected = 0;
    for (unsigned i = 0; i < kQueries && !HasFailure(); ++i) {
        const std::wstring query = generator.Make(L"query");
        std::vector<bool> results;
        ReplayProblem problem{};
        const DWORD code = Replay().EvaluateQuery(L"Application", query.c_str(), &KeepResult, &results, &problem);
        if (code == 15026) { // more expressions than the Event Log takes
            continue;
        }
        ASSERT_EQ(code, 0U) << query << L"\n" << problem.reason;
        for (unsigned event = 0; event < kEvents; ++event) {
            ASSERT_EQ(results[event], Selects(*documents[event].Get(), query)) << query << L"\n" << events[event];
            selected += results[event] ? 1 : 0;
        }
        evaluated += kEvents;
    }
    EXPECT_GT(evaluated, 10'000U);
    EXPECT_TRUE(selected > evaluated / 5 && selected < evaluated / 5 * 4) << selected << " of " << evaluated;
}

} // namespace
