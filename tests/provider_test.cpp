// The provider as its host sees it: through the class factory and the vtable.

#include "tests/support/module_under_test.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>

namespace {

class ProviderTest : public ModuleTest {};

TEST_F(ProviderTest, InvalidArgumentsAreRefusedWithoutALine)
{
    const _bstr_t name(kCrash);
    EXPECT_EQ(provider->SubscribeMetric(nullptr, Configuration().Get()), E_INVALIDARG);
    EXPECT_EQ(provider->SubscribeMetric(name, nullptr), E_INVALIDARG);
    EXPECT_EQ(provider->SubscribeMetric(name, &host), E_INVALIDARG);
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
    for (const wchar_t* unknown : {L"eventlog|eventlog_appcrash ", L"eventlog|eventlog", L""}) {
        EXPECT_EQ(Subscribe(unknown), S_OK);
    }
    EXPECT_EQ(Replay().Calls(ReplayEvtSubscribe), 0U);
    EXPECT_EQ(logger.Take(), Lines{});

    EXPECT_EQ(Subscribe(kCapitals), S_OK);
    EXPECT_EQ(Subscribe(kCapitals), S_OK);
    EXPECT_EQ(Unsubscribe(), S_OK);
    EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 1U) << "one subscription, still there";
    EXPECT_EQ(Unsubscribe(kCapitals), S_OK);
    EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 0U);
    EXPECT_EQ(Replay().Calls(ReplayEvtSubscribe), 1U);
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
        const auto noQuery = Configuration(L"<metric><channel>Application</channel></metric>");
        EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), noQuery.Get()), absent);
        EXPECT_EQ(Subscribe(), S_OK);
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(provider->QueryMetricEx(_bstr_t(L"Gr\u00F6\u00DFe|\u65E5\u672C"), 0, &sink), S_OK);
        EXPECT_EQ(Unsubscribe(), S_OK);
        EXPECT_EQ(provider->UnsubscribeAll(), S_OK);

        Lines wanted;
        std::copy_if(all.begin(), all.end(), std::back_inserter(wanted),
                     [&](const std::wstring& line) { return (levels & (line[0] == L'E' ? 1 : 4)) != 0; });
        EXPECT_EQ(logger.Take(), wanted) << "levels " << levels;
        EXPECT_EQ(logger.asked, static_cast<int>(all.size())) << "levels " << levels;
    }
}

TEST_F(ProviderTest, WorksWithoutAHost)
{
    provider = module.CreateProvider();
    EXPECT_EQ(Subscribe(), S_OK);
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(provider->UnsubscribeAll(), S_OK);
    EXPECT_EQ(logger.asked, 0);
}

TEST_F(ProviderTest, TakesANewHostBeforeReleasingTheOldOne)
{
    ASSERT_EQ(Subscribe(), S_OK);
    const long taken = logger.taken + host.taken;
    EXPECT_EQ(provider->SetHost(&logger, &host), S_OK);
    EXPECT_EQ(logger.taken + host.taken, taken) << "the same objects again";

    RecordingLogger newLogger;
    ULONG newReferences = 0;
    logger.onRelease = [&] { newReferences = newLogger.References(); };
    EXPECT_EQ(provider->SetHost(&newLogger, &host), S_OK);
    logger.onRelease = nullptr;
    EXPECT_EQ(newReferences, 1U);

    logger.Take();
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(provider->UnsubscribeAll(), S_OK);
    EXPECT_EQ(logger.Take(), (Lines{L"I No application crash available"}));
    EXPECT_EQ(newLogger.Take(), (Lines{L"I Unsubscribed all metrics."}));
    provider.Reset();
}

/// Releases the test's provider when it is queried for an interface; forwards the query to `inner`.
class ReleasesTheProvider : public HostFake<IAgentHost> {
public:
    ReleasesTheProvider(ComPtr<IOrvelDataProvider>& held, IUnknown* inner) : provider_(held), inner_(inner) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        provider_.Reset();
        return inner_->QueryInterface(iid, out);
    }

private:
    ComPtr<IOrvelDataProvider>& provider_;
    IUnknown* inner_;
};

TEST_F(ProviderTest, HostMayReleaseTheProviderFromInsideTheCallThatTakesItsObjects)
{
    // The last reference: a host object that is released still uses the provider.
    IOrvelDataProvider* const last = provider.Get();
    logger.onRelease = [&, isFirst = true]() mutable {
        if (std::exchange(isFirst, false)) {
            const ComPtr<IOrvelDataProvider> again(last);
            EXPECT_EQ(again->UnsubscribeAll(), S_OK);
        }
    };
    ASSERT_EQ(Subscribe(), S_OK);
    provider.Reset();
    logger.onRelease = nullptr;

    CreateProvider();
    RecordingLogger newLogger;
    logger.onRelease = [&] { provider.Reset(); };
    EXPECT_EQ(provider->SetHost(&newLogger, &host), S_OK);
    logger.onRelease = nullptr;
    EXPECT_FALSE(provider);

    CreateProvider();
    const ComPtr<IXMLDOMElement> element = Configuration();
    ReleasesTheProvider configuration(provider, element.Get());
    EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), &configuration), S_OK);
    EXPECT_FALSE(provider);

    CreateProvider();
    ASSERT_EQ(Subscribe(), S_OK);
    ReleasesTheProvider asked(provider, &sink);
    EXPECT_EQ(provider->QueryMetric(_bstr_t(kCrash), 0, &asked), S_OK);
    EXPECT_FALSE(provider);
    EXPECT_EQ(logger.References() + host.References() + newLogger.References(), 0U);
}

/// Replaces one slot of an object's vtable by a function, for the life of this object.
class SlotPatch {
public:
    template <typename Function>
    SlotPatch(IUnknown* object, size_t slot, Function* function)
        : object_(reinterpret_cast<void***>(object)), table_(*object_)
    {
        std::copy_n(table_, copy_.size(), copy_.begin());
        copy_[slot] = reinterpret_cast<void*>(function);
        *object_ = copy_.data();
    }
    ~SlotPatch() { *object_ = table_; }
    SlotPatch(const SlotPatch&) = delete;
    SlotPatch& operator=(const SlotPatch&) = delete;

private:
    void*** const object_;
    void** const table_;
    std::array<void*, 64> copy_{};
};
constexpr size_t kGetText = 26;
constexpr size_t kSelectSingleNode = 37;

HRESULT domResult = S_OK;
Lines domAsked;
IXMLDOMNode* selected = nullptr;
HRESULT STDMETHODCALLTYPE Select(IXMLDOMElement*, BSTR name, IXMLDOMNode** node)
{
    domAsked.emplace_back(name);
    *node = selected;
    if (selected != nullptr) {
        selected->AddRef();
    }
    return domResult;
}
HRESULT STDMETHODCALLTYPE GetNoText(IXMLDOMNode*, BSTR* text)
{
    *text = nullptr;
    return S_OK;
}

TEST_F(ProviderTest, LogsAFailingConfigurationWithTheSystemText)
{
    const auto element = Configuration();
    const SlotPatch patch(element.Get(), kSelectSingleNode, &Select);
    // The system's text of the third has an insert.
    for (const HRESULT code :
         {E_ACCESSDENIED, static_cast<HRESULT>(0x8ABC1234), HRESULT_FROM_WIN32(ERROR_DISK_CHANGE)}) {
        domResult = code;
        EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), element.Get()), code);
        EXPECT_EQ(logger.Take(),
                  (Lines{L"I created metric 'eventlog|eventlog_appcrash'.",
                         L"E Failed to retrieve property 'channel' from the configuration." + ExpectedSuffix(code),
                         L"E Failed to subscribe metric 'eventlog|eventlog_appcrash'." + ExpectedSuffix(code)}));
    }
    EXPECT_EQ(domAsked, (Lines{L"channel", L"channel", L"channel"})) << "without a channel the query is not read";
    EXPECT_EQ(ExpectedSuffix(static_cast<HRESULT>(0x8ABC1234)), L"  Error code 0x8abc1234.");
    EXPECT_NE(ExpectedSuffix(HRESULT_FROM_WIN32(ERROR_DISK_CHANGE)).find(L"%1"), std::wstring::npos);
}

TEST_F(ProviderTest, TakesAPropertyWithoutTextAsEmpty)
{
    const auto element = Configuration();
    const auto node = Configuration();
    const SlotPatch select(element.Get(), kSelectSingleNode, &Select);
    const SlotPatch getText(node.Get(), kGetText, &GetNoText);
    domResult = S_OK;
    selected = node.Get();
    EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), element.Get()), S_OK);
    EXPECT_EQ(Unsubscribe(), S_OK);
    domResult = S_FALSE; // no match, whatever the node is
    EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), element.Get()), HRESULT_FROM_WIN32(ERROR_NOT_FOUND));
    selected = nullptr;
    EXPECT_EQ(Replay().Calls(ReplayEvtSubscribe), 1U);
    EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 0U);
}

} // namespace
