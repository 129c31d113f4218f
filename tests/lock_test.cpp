// What a metric's lock covers: an event and a collection of one metric exclude each other, those of two metrics do not.

#include "tests/support/module_under_test.h"

#include <chrono>
#include <future>

namespace {

class LockTest : public ModuleTest {
protected:
    /// Starts a call on another thread and returns whether it ends within a time that is long for it.
    bool EndsMeanwhile(const std::function<void()>& call)
    {
        other = std::async(std::launch::async, call);
        return other.wait_for(std::chrono::milliseconds(200)) == std::future_status::ready;
    }

    std::future<void> other;
    std::function<void()> duringFormat; // called once, while an event's message is formatted
    const Patch<decltype(EvtFormatMessage)> patch{module, "EvtFormatMessage", [this](auto format, auto... arguments) {
                                                      if (const auto call = std::exchange(duringFormat, nullptr)) {
                                                          call();
                                                      }
                                                      return format(arguments...);
                                                  }};
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
    ASSERT_EQ(Subscribe(kLamina, L"<metric><channel>System</channel><query>*</query></metric>"), S_OK);
    ASSERT_EQ(Subscribe(), S_OK);
    duringFormat = [&] { EXPECT_TRUE(EndsMeanwhile([&] { EXPECT_EQ(Collect(kLamina), S_OK); })); };
    Deliver(0);
    other.get();
}

} // namespace
