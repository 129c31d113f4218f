// Unusual input from the host, and what the host's objects may do while they are called.

#include "tests/support/module_under_test.h"

#include <functional>
#include <string>
#include <tuple>

namespace {

class HostInputTest : public ModuleTest {
protected:
    HostInputTest() { LoadEvents(Event(L"text")); }
    size_t ValuesOfOneEvent()
    {
        Deliver(0);
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(Unsubscribe(), S_OK);
        return sink.Take().size();
    }
    /// Waits for subscriptions that another thread closes, and returns how many are left.
    static DWORD SubscriptionsLeft(DWORD most)
    {
        for (int wait = 0; wait < 200 && Replay().OpenHandles(ReplaySubscriptionHandle) > most; ++wait) {
            Sleep(10);
        }
        return Replay().OpenHandles(ReplaySubscriptionHandle);
    }
};

TEST_F(HostInputTest, ComparesNamesOfAnyLengthWhole)
{
    ASSERT_EQ(Subscribe(), S_OK);
    const std::wstring ended(kCrash);
    for (const std::wstring& text : {std::wstring(), std::wstring(1, L'\0'), ended + L'\0', L'\0' + ended,
                                     ended + std::wstring(L"\0x", 2), ended + std::wstring(1 << 20, L'x')}) {
        const _bstr_t name(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())), false);
        EXPECT_EQ(provider->SubscribeMetric(name, Configuration().Get()), S_OK);
        EXPECT_EQ(provider->QueryMetricEx(name, 0, &sink), S_OK);
        EXPECT_EQ(provider->UnsubscribeMetric(name), S_OK);
    }
    EXPECT_EQ(Replay().Calls(ReplayEvtSubscribe), 1U);
    EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 1U) << "none of these is the name that was subscribed";
    EXPECT_EQ(ValuesOfOneEvent(), 2U);
}

TEST_F(HostInputTest, RefusesNodesThatAreNotElements)
{
    const auto element = Configuration(L"<metric a='b'>text<!--c--><channel>Application</channel></metric>");
    for (const wchar_t* path : {L"text()", L"comment()", L"@a", L"/"}) {
        ComPtr<IXMLDOMNode> node;
        ASSERT_EQ(element->selectSingleNode(_bstr_t(path), node.GetAddressOf()), S_OK);
        EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), node.Get()), E_INVALIDARG);
    }
    EXPECT_EQ(logger.asked, 0);
}

TEST_F(HostInputTest, TakesTheWholeTextOfAChildElement)
{
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
        EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), Configuration(xml.c_str()).Get()), result);
        EXPECT_EQ(ValuesOfOneEvent(), values);
    }
    EXPECT_EQ(Replay().InvalidHandles(), 0U) << "what the Event Log refused has nothing to close";
}

TEST_F(HostInputTest, SinkMayUseTheProvider)
{
    ASSERT_EQ(Subscribe(), S_OK);
    RecordingLogger other;
    Deliver(0, 2);
    sink.onNextLine = [&] {
        Sleep(20);
        EXPECT_EQ(Subscribe(kLamina), S_OK);
        EXPECT_EQ(Collect(kLamina), S_OK);
        EXPECT_EQ(provider->SetHost(&other, &host), S_OK);
        EXPECT_EQ(Unsubscribe(kLamina), S_OK);
        EXPECT_EQ(Subscribe(), S_OK) << "already subscribed";
    };
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take().size(), 3U);
    EXPECT_EQ(SubscriptionsLeft(1), 1U);
    EXPECT_EQ(ValuesOfOneEvent(), 2U);
    provider.Reset();
}

TEST_F(HostInputTest, SinkMayEndTheMetricThatItReceives)
{
    ASSERT_EQ(Subscribe(), S_OK);
    Deliver(0, 2);
    sink.onNextLine = [this] { EXPECT_EQ(Unsubscribe(), S_OK); };
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take().size(), 3U);
    EXPECT_EQ(SubscriptionsLeft(0), 0U);
}

TEST_F(HostInputTest, LoggerMayEndTheMetricOrTheProviderInAnyCall)
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
            const DWORD most = provider ? 1 : 0;
            EXPECT_LE(SubscriptionsLeft(most), most);
            provider.Reset();
            EXPECT_EQ(SubscriptionsLeft(0), 0U);
        }
    }
}

} // namespace
