// The provider as its host sees it: through the class factory and the vtable.

#include "tests/support/module_under_test.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <tuple>

namespace {

using namespace std::literals;

class ProviderTest : public ModuleTest {};

TEST_F(ProviderTest, InvalidArgumentsAreRefusedWithoutALine)
{
    const _bstr_t name(kCrash);
    EXPECT_EQ(provider->SubscribeMetric(nullptr, Configuration().Get()), E_INVALIDARG);
    EXPECT_EQ(provider->SubscribeMetric(name, nullptr), E_INVALIDARG);
    EXPECT_EQ(provider->SubscribeMetric(name, &host), E_INVALIDARG);
    const auto element = Configuration(L"<metric a='b'>text<!--c--><channel>Application</channel></metric>");
    for (const wchar_t* path : {L"text()", L"comment()", L"@a", L"/"}) {
        ComPtr<IXMLDOMNode> node;
        ASSERT_EQ(element->selectSingleNode(_bstr_t(path), node.GetAddressOf()), S_OK);
        EXPECT_EQ(provider->SubscribeMetric(name, node.Get()), E_INVALIDARG);
    }
    EXPECT_EQ(provider->UnsubscribeMetric(nullptr), E_INVALIDARG);
    EXPECT_EQ(provider->QueryMetric(nullptr, 0, &sink), E_INVALIDARG);
    EXPECT_EQ(provider->QueryMetricEx(nullptr, 0, &sink), E_INVALIDARG);
    EXPECT_EQ(provider->SetHost(nullptr, &host), E_INVALIDARG);
    EXPECT_EQ(provider->SetHost(&logger, nullptr), E_INVALIDARG);
    EXPECT_EQ(logger.asked, 0);
    EXPECT_EQ(provider->Reserved10() | provider->Reserved11() | provider->Reserved13() | provider->Reserved14() |
                  provider->Reserved15() | provider->Reserved16(),
              S_OK);
}

TEST_F(ProviderTest, NamesAreCreatedIgnoringCaseAndFoundExactly)
{
    constexpr wchar_t kCapitals[] = L"EVENTLOG|EVENTLOG_APPCRASH";
    EXPECT_EQ(Subscribe(kCapitals), S_OK);
    EXPECT_EQ(Subscribe(kCapitals), S_OK);
    EXPECT_EQ(Unsubscribe(), S_OK);
    const std::wstring name(kCapitals);
    for (const std::wstring& other : {L""s, L"\0"s, name.substr(0, 17), name + L" ", name + L'\0', L'\0' + name,
                                      name + L"\0x"s, name + std::wstring(1 << 20, L'x')}) {
        const _bstr_t unknown(SysAllocStringLen(other.data(), static_cast<UINT>(other.size())), false);
        EXPECT_EQ(provider->SubscribeMetric(unknown, Configuration().Get()), S_OK);
        EXPECT_EQ(provider->UnsubscribeMetric(unknown), S_OK);
        EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 1U);
    }
    EXPECT_EQ(Unsubscribe(kCapitals), S_OK);
    EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 0U);
    EXPECT_EQ(logger.Take(), (Lines{L"I created metric 'EVENTLOG|EVENTLOG_APPCRASH'.",
                                    L"I Subscribed from metric 'EVENTLOG|EVENTLOG_APPCRASH'.",
                                    L"I Unsubscribed from metric 'EVENTLOG|EVENTLOG_APPCRASH'."}));
}

TEST_F(ProviderTest, EveryLineAsksForItsLevelFirst)
{
    const HRESULT absent = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    const Lines all = {L"I created metric 'eventlog|eventlog_appcrash'.",
                       L"E Property 'query' was not found in the configuration.",
                       L"E Failed to subscribe metric 'eventlog|eventlog_appcrash'." + ExpectedSuffix(absent),
                       L"I created metric 'eventlog|eventlog_appcrash'.",
                       L"I Subscribed from metric 'eventlog|eventlog_appcrash'.",
                       L"I No application crash available",
                       L"I Metric 'Gr\u00F6\u00DFe|\u65E5\u672C' should be queried from internal metric.",
                       L"I Unsubscribed from metric 'eventlog|eventlog_appcrash'.",
                       L"I Unsubscribed all metrics."};
    for (const LONG levels : {0, 1, 2, 4, 7, ~7}) {
        logger.levels = levels;
        logger.asked = 0;
        EXPECT_EQ(Subscribe(kCrash, L"<metric><channel>Application</channel></metric>"), absent);
        EXPECT_EQ(Subscribe(), S_OK);
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(provider->QueryMetricEx(_bstr_t(L"Gr\u00F6\u00DFe|\u65E5\u672C"), 0, &sink), S_OK);
        EXPECT_EQ(Unsubscribe(), S_OK);
        EXPECT_EQ(provider->UnsubscribeAll(), S_OK);

        Lines wanted;
        std::ranges::copy_if(all, std::back_inserter(wanted),
                             [&](const auto& line) { return (levels & (line[0] == L'E' ? 1 : 4)) != 0; });
        EXPECT_EQ(logger.Take(), wanted) << "levels " << levels;
        EXPECT_EQ(logger.asked, static_cast<int>(all.size())) << "levels " << levels;
    }
}

TEST_F(ProviderTest, TakesANewHostBeforeReleasingTheOldOne)
{
    ASSERT_EQ(Subscribe(), S_OK);
    RecordingLogger newLogger;
    ULONG newReferences = 0;
    logger.onRelease = [&] { newReferences = newLogger.References(); };
    EXPECT_EQ(provider->SetHost(&newLogger, &host), S_OK);
    logger.onRelease = nullptr;
    EXPECT_EQ(newReferences, 1U);

    logger.Take();
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(logger.Take(), (Lines{L"I No application crash available"}));
    logger.onRelease = [&, isFirst = true]() mutable {
        if (std::exchange(isFirst, false)) {
            EXPECT_EQ(Subscribe(), S_OK);
        }
    };
    EXPECT_EQ(provider->UnsubscribeAll(), S_OK);
    EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 1U) << "subscribed while the metric released its logger";
    EXPECT_EQ(newLogger.Take(),
              (Lines{L"I created metric 'eventlog|eventlog_appcrash'.",
                     L"I Subscribed from metric 'eventlog|eventlog_appcrash'.", L"I Unsubscribed all metrics."}));
    logger.onRelease = nullptr;
    provider.Reset();
}

TEST_F(ProviderTest, HostObjectsMayReleaseTheProviderThatTakesThem)
{
    // The last reference: a host object that is released still uses the provider.
    IOrvelDataProvider* const last = provider.Get();
    ASSERT_EQ(Subscribe(), S_OK);
    logger.onRelease = [&, isFirst = true]() mutable {
        if (std::exchange(isFirst, false)) {
            const ComPtr<IOrvelDataProvider> again(last);
            EXPECT_EQ(again->UnsubscribeAll(), S_OK);
        }
    };
    provider.Reset();
    logger.onRelease = nullptr;

    CreateProvider();
    RecordingLogger newLogger;
    logger.onRelease = [&] { provider.Reset(); };
    EXPECT_EQ(provider->SetHost(&newLogger, &host), S_OK);
    logger.onRelease = nullptr;
    EXPECT_FALSE(provider);

    using Query = HRESULT WINAPI(IUnknown*, REFIID, void**);
    const auto release = [&](auto query, IUnknown* object, REFIID iid, void** out) {
        provider.Reset();
        return query(object, iid, out);
    };
    CreateProvider();
    {
        const auto element = Configuration();
        const Patch<Query> patch(element.Get(), 0, release);
        EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), element.Get()), S_OK);
        EXPECT_FALSE(provider);
    }
    CreateProvider();
    {
        ASSERT_EQ(Subscribe(), S_OK);
        const Patch<Query> patch(&sink, 0, release);
        EXPECT_EQ(provider->QueryMetric(_bstr_t(kCrash), 0, &sink), S_OK);
        EXPECT_FALSE(provider);
    }
    EXPECT_EQ(logger.References() + host.References() + newLogger.References(), 0U);
}

TEST_F(ProviderTest, SinkMayUseTheProvider)
{
    LoadEvents(Event(L"text"));
    ASSERT_EQ(Subscribe(), S_OK);
    RecordingLogger other;
    Deliver(0, 2);
    sink.onNextLine = [&] {
        EXPECT_EQ(Subscribe(kLamina), S_OK);
        EXPECT_EQ(Collect(kLamina), S_OK);
        EXPECT_EQ(provider->SetHost(&other, &host), S_OK);
        EXPECT_EQ(Unsubscribe(kLamina), S_OK);
        EXPECT_EQ(Subscribe(), S_OK) << "already subscribed";
    };
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take().size(), 3U);
    EXPECT_TRUE(AreSubscribed(1));
    provider.Reset();
}

TEST_F(ProviderTest, LoggerMayEndTheMetricOrTheProviderInAnyCall)
{
    const std::function<HRESULT()> calls[] = {[this] { return Subscribe(); }, [this] { return Collect(); },
                                              [this] { return Unsubscribe(); },
                                              [this] { return provider->UnsubscribeAll(); }};
    const std::function<void()> actions[] = {[this] { Unsubscribe(); }, [this] { provider->UnsubscribeAll(); },
                                             [this] { Subscribe(); }, [this] { provider.Reset(); }};
    for (const auto& call : calls) {
        for (const auto& action : actions) {
            SCOPED_TRACE(testing::Message() << "call " << &call - calls << ", action " << &action - actions);
            CreateProvider();
            if (&call != calls) {
                ASSERT_EQ(Subscribe(), S_OK);
            }
            logger.onNextLine = action;
            EXPECT_EQ(call(), S_OK);
            EXPECT_EQ(logger.onNextLine, nullptr);
            EXPECT_TRUE(AreSubscribed(provider ? 1 : 0));
            provider.Reset();
            EXPECT_TRUE(AreSubscribed(0));
        }
    }
}

TEST_F(ProviderTest, TakesTheWholeTextOfAChildElement)
{
    LoadEvents(Event(L"text"));
    const std::wstring megabytes(size_t{1} << 20, L'x');
    // A configuration, its result, and how many values one event brings.
    const std::tuple<std::wstring, HRESULT, size_t> cases[] = {
        {L"<m><channel>Appli<b>cat<i/>ion</b></channel><query>*[System[<b>EventID</b>=1000]]</query></m>", S_OK, 2},
        {L"<m><channel><![CDATA[Application]]></channel><query>*[System[EventID&lt;1001]]</query></m>", S_OK, 2},
        {L"<m><x><channel>Application</channel><query>*</query></x></m>", HRESULT_FROM_WIN32(ERROR_NOT_FOUND), 0},
        {L"<m channel='Application' query='*'/>", HRESULT_FROM_WIN32(ERROR_NOT_FOUND), 0},
        {L"<m><channel>Application</channel><channel>Nowhere</channel><query>*</query></m>", S_OK, 2},
        {L"<m><channel>Application</channel><query>*[EventData[Data='" + megabytes + L"']]</query></m>", S_OK, 0},
        {L"<m><channel>" + megabytes + L"</channel><query>*</query></m>", S_OK, 0},
        {L"<m><channel>Application</channel><query>" + std::wstring(size_t{1} << 16, L'(') + L"</query></m>", S_OK, 0},
        {L"<m><channel>Nowhere</channel><query>*</query></m>", S_OK, 0},
        {L"<m><channel/><query/></m>", S_OK, 0}};
    for (const auto& [xml, result, values] : cases) {
        SCOPED_TRACE(testing::PrintToString(xml.substr(0, 90)));
        EXPECT_EQ(Subscribe(kCrash, xml), result);
        Deliver(0);
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(Unsubscribe(), S_OK);
        EXPECT_EQ(sink.Take().size(), values);
    }
    EXPECT_EQ(Replay().InvalidHandles(), 0U) << "what the Event Log refused has nothing to close";
}

/// Configurations whose nodes return what the tests say. All elements of the parser share one vtable.
class FailingConfigurationTest : public ModuleTest {
protected:
    HRESULT result = S_OK;
    ComPtr<IXMLDOMNode> selected;
    Lines asked;
    const ComPtr<IXMLDOMElement> element = Configuration();
    const Patch<HRESULT WINAPI(IXMLDOMElement*, BSTR, IXMLDOMNode**)> select{
        element.Get(), 37, [this](auto, auto, BSTR name, IXMLDOMNode** node) {
            asked.emplace_back(name);
            selected.CopyTo(node);
            return result;
        }};
    const Patch<HRESULT WINAPI(IXMLDOMElement*, BSTR*)> getText{element.Get(), 26, [](auto, auto, BSTR* text) {
                                                                    *text = nullptr;
                                                                    return S_OK;
                                                                }};
};

TEST_F(FailingConfigurationTest, IsLoggedWithTheSystemText)
{
    // The system's text of the third has an insert.
    for (const HRESULT code :
         {E_ACCESSDENIED, static_cast<HRESULT>(0x8ABC1234), HRESULT_FROM_WIN32(ERROR_DISK_CHANGE)}) {
        result = code;
        EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), element.Get()), code);
        EXPECT_EQ(logger.Take(),
                  (Lines{L"I created metric 'eventlog|eventlog_appcrash'.",
                         L"E Failed to retrieve property 'channel' from the configuration." + ExpectedSuffix(code),
                         L"E Failed to subscribe metric 'eventlog|eventlog_appcrash'." + ExpectedSuffix(code)}));
    }
    EXPECT_EQ(asked, Lines(3, L"channel")) << "without a channel the query is not read";
    EXPECT_EQ(ExpectedSuffix(static_cast<HRESULT>(0x8ABC1234)), L"  Error code 0x8abc1234.");
    EXPECT_NE(ExpectedSuffix(HRESULT_FROM_WIN32(ERROR_DISK_CHANGE)).find(L"%1"), std::wstring::npos);
}

TEST_F(FailingConfigurationTest, MayHaveAPropertyWithoutText)
{
    selected = element;
    EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), element.Get()), S_OK);
    EXPECT_EQ(Unsubscribe(), S_OK);
    result = S_FALSE; // no match, whatever the node is
    EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), element.Get()), HRESULT_FROM_WIN32(ERROR_NOT_FOUND));
    EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 0U);
}

} // namespace
