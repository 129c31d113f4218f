// What a metric's lock covers: an event and a collection of one metric exclude each other, those of two metrics do not.

#include "tests/support/module_under_test.h"

#include <chrono>
#include <future>

namespace {

std::function<void()> duringFormat; // called once, while an event's message is formatted
BOOL WINAPI FormatMeanwhile(EVT_HANDLE publisher, EVT_HANDLE event, DWORD id, DWORD count, PEVT_VARIANT values,
                            DWORD flags, DWORD size, LPWSTR buffer, DWORD* used)
{
    if (const auto meanwhile = std::exchange(duringFormat, nullptr)) {
        meanwhile();
    }
    decltype(&EvtFormatMessage) const format = Real("EvtFormatMessage");
    return format(publisher, event, id, count, values, flags, size, buffer, used);
}

class LockTest : public ModuleTest {
protected:
    /// Starts a call on another thread and returns whether it ends within a time that is long for it.
    template <typename Call>
    bool EndsMeanwhile(const Call& call)
    {
        other = std::async(std::launch::async, call);
        return other.wait_for(std::chrono::milliseconds(200)) == std::future_status::ready;
    }

    std::future<void> other;
    const ImportPatch patch{module, "EvtFormatMessage", &FormatMeanwhile};
};

TEST_F(LockTest, CoversTheWholeEventAndTheWholeCollection)
{
    LoadEvents(Event(L"text") + AgentEvent(L"User is logging in"));
    for (const wchar_t* metric : {kCrash, kLamina}) {
        const auto deliver = [&] { Deliver(metric == kCrash ? 0 : 1); };
        const auto collect = [&] { EXPECT_EQ(Collect(metric), S_OK); };
        ASSERT_EQ(Subscribe(metric), S_OK);
        duringFormat = [&] { EXPECT_FALSE(EndsMeanwhile(collect)); };
        deliver();
        other.get();
        deliver();
        sink.onNextLine = [&] { EXPECT_FALSE(EndsMeanwhile(deliver)); };
        collect();
        other.get();
        EXPECT_EQ(Unsubscribe(metric), S_OK);
    }
}

TEST_F(LockTest, IsNotSharedByTwoMetrics)
{
    LoadEvents(Event(L"text"));
    const auto elsewhere = Configuration(L"<metric><channel>System</channel><query>*</query></metric>");
    ASSERT_EQ(provider->SubscribeMetric(_bstr_t(kLamina), elsewhere.Get()), S_OK);
    ASSERT_EQ(Subscribe(), S_OK);
    duringFormat = [&] { EXPECT_TRUE(EndsMeanwhile([&] { EXPECT_EQ(Collect(kLamina), S_OK); })); };
    Deliver(0);
    other.get();
}

} // namespace
