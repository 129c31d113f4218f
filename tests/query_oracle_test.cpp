// Random queries over random events, evaluated by the replay log and by MSXML's XPath, in the part of the language that
// the two share: no times, GUIDs, SIDs and hexadecimal numbers, no values of elements with children, no functions but
// position().

#include "tests/support/module_under_test.h"

#include <random>

namespace {

// Not in mingw's import libraries.
constexpr IID kIidDocument2 = {0x2933BF95, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

class Generator {
public:
    explicit Generator(unsigned start) : random_(start) {}

    std::wstring Event()
    {
        std::wstring event = L"<Event><System><Provider Name='" + Pick({L"A", L"B"}) + L"'/><EventID>" +
                             Pick({L"1", L"2", L"3"}) + L"</EventID>";
        event += Chance(2) ? L"<Level>" + Value() + L"</Level>" : L"";
        event += L"<Channel>Application</Channel></System><EventData>";
        for (unsigned count = random_() % 5; count != 0; --count) {
            event += L"<Data Name='" + Pick({L"a", L"b", L"c"}) + L"'>" + Value() + L"</Data>";
        }
        return event + L"</EventData></Event>";
    }

    std::wstring Query(unsigned depth = 3)
    {
        switch (random_() % (depth == 0 ? 4 : 7)) {
        case 0:
        case 1:
            return Pick({L"*", L"Event"}) + L"[" + Condition(depth) + L"]";
        case 2:
            return Compared(Pick({L"*/", L"Event/"}) + Leaf());
        case 3:
            return L"*/System[" + SystemCondition() + L"]";
        default:
            return Composed([&] { return Query(depth - 1); });
        }
    }

private:
    template <typename Part>
    std::wstring Composed(const Part& part)
    {
        return Chance(3) ? part() + Pick({L" and ", L" or "}) + part() : L"(" + part() + L")";
    }

    bool Chance(unsigned of) { return random_() % of != 0; }

    std::wstring Pick(std::initializer_list<const wchar_t*> choices)
    {
        return choices.begin()[random_() % choices.size()];
    }

    std::wstring Value() { return Pick({L"1", L"2", L"3", L"-1", L"2.5", L"x", L"y", L""}); }

    std::wstring Literal()
    {
        return Pick({L"0", L"1", L"2", L"2.5", L".5", L"'1'", L"'2.5'", L"'-1'", L"'x'", L"''", L"\"A\"", L"(3)"});
    }

    std::wstring Compared(const std::wstring& path)
    {
        const std::wstring comparison = Pick({L"=", L"!=", L"<", L"<=", L" > ", L">="});
        return Chance(4) ? path + comparison + Literal() : Literal() + comparison + path;
    }

    std::wstring DataPredicates()
    {
        std::wstring predicates;
        for (unsigned count = random_() % 3; count != 0; --count) {
            predicates += L"[" +
                          Pick({L"@Name='a'", L"@Name!='b'", L"1", L"2", L"position()>1", L"text()='x'",
                                L"@Name='c' or position()=1", L"text() and @*"}) +
                          L"]";
        }
        return predicates;
    }

    std::wstring Leaf()
    {
        return Chance(2) ? Pick({L"System/EventID", L"System/Level", L"System/*", L"*/Level", L"*/*", L"System/*[2]",
                                 L"System/Provider/@Name", L"child::System/attribute::Name"})
                         : L"EventData/" + Pick({L"Data", L"*"}) + DataPredicates() +
                               Pick({L"", L"", L"/@Name", L"/@*", L"/text()"});
    }

    std::wstring SystemCondition()
    {
        return Compared(Pick({L"EventID", L"Level", L"*", L"Provider/@Name"})) + Pick({L" and ", L" or "}) +
               Pick({L"Level", L"Lost", L"Provider[@Name='A']", L"(EventID>1)"});
    }

    std::wstring Condition(unsigned depth)
    {
        switch (random_() % (depth == 0 ? 3 : 7)) {
        case 0:
            return Compared(Leaf());
        case 1:
            return Leaf();
        case 2:
            return L"System[" + SystemCondition() + L"]";
        default:
            return Composed([&] { return Condition(depth - 1); });
        }
    }

    std::mt19937 random_;
};

ComPtr<IXMLDOMDocument2> Parse(const std::wstring& xml)
{
    ComPtr<IXMLDOMElement> root = Configuration(xml.c_str());
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
    Generator generator(20'260'302);
    std::wstring all;
    std::vector<std::wstring> events;
    std::vector<ComPtr<IXMLDOMDocument2>> documents;
    for (unsigned i = 0; i < kEvents; ++i) {
        events.push_back(generator.Event());
        documents.push_back(Parse(events.back()));
        all += events.back();
    }
    LoadEvents(all);
    unsigned evaluated = 0, selected = 0;
    for (unsigned i = 0; i < kQueries && !HasFailure(); ++i) {
        const std::wstring query = generator.Query();
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
