// What a metric's lock covers: an event and a collection of one metric exclude each other. That two metrics share no
// lock is tested by ProviderTest.SinkMayUseTheProvider.

#include "tests/support/module_under_test.h"

#include <chrono>
#include <future>

namespace {

class LockTest : public ModuleTest {};

TEST_F(LockTest, CoversTheWholeEventAndTheWholeCollection)
{
    std::future<void> other;
    const auto expectBlocked = [&](const std::function<void()>& call) {
        other = std::async(std::launch::async, call);
        EXPECT_EQ(other.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    };
    std::function<void()> duringFormat; // called once, while an event's message is formatted
    const Patch<decltype(EvtFormatMessage)> patch(module, "EvtFormatMessage", [&](auto format, auto... arguments) {
        if (const auto call = std::exchange(duringFormat, nullptr)) {
            call();
        }
        return format(arguments...);
    });
    LoadEvents(Event(L"text") + AgentEvent(L"User is logging in"));
    for (const wchar_t* metric : {kCrash, kLamina}) {
        const auto deliver = [&] { Deliver(metric == kCrash ? 0 : 1); };
        const auto collect = [&] { EXPECT_EQ(Collect(metric), S_OK); };
        ASSERT_EQ(Subscribe(metric), S_OK);
        duringFormat = [&] { expectBlocked(collect); };
        deliver();
        other.get();
        deliver();
        sink.onNextLine = [&] { expectBlocked(deliver); };
        collect();
        other.get();
        EXPECT_EQ(Unsubscribe(metric), S_OK);
    }
}

} // namespace
