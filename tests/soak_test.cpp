// A million events and ten thousand collections of both metrics leave nothing open but what stays open by design.

#include "tests/support/allocation_counter.h"
#include "tests/support/module_under_test.h"

#include <cstdio>
#include <utility>

namespace {

struct Usage {
    long long blocks = AllocationCounter::HeldBlocks();
    long long bytes = AllocationCounter::HeldBytes();
    long long texts = AllocationCounter::HeldTexts();
    DWORD contexts = Replay().OpenHandles(ReplayContextHandle);
    DWORD publishers = Replay().OpenHandles(ReplayPublisherHandle);
    DWORD systemHandles = 0;
    size_t processBytes = 0;

    Usage()
    {
        GetProcessHandleCount(GetCurrentProcess(), &systemHandles);
        MEMORY_BASIC_INFORMATION region{};
        for (const char* at = nullptr; VirtualQuery(at, &region, sizeof(region)) != 0;
             at = static_cast<const char*>(region.BaseAddress) + region.RegionSize) {
            processBytes += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize : 0;
        }
    }
};

TEST_F(ModuleTest, SoakLeavesOnlyThePublishersOpen)
{
    constexpr DWORD kRounds = 5000; // with a collection of each metric
    constexpr DWORD kCrashes = 180;
    constexpr DWORD kAgentEvents = 20;
    const AllocationCounter counter(module);
    constexpr wchar_t kLamina[] = L"eventlog|eventlog_lamina";
    constexpr wchar_t kTime[] = L"2024-03-05T07:08:09Z";
    logger.levels = 0;
    Replay().SetMode(ReplayOnCallingThread);
    LoadEvents(Event(L"Faulting application name: a.exe, version: 1.0.0.0&#10;Exception code: 0xc0000005") +
               Event(L"User is logging in", kTime, L"korvex") +
               Event(L"Response 200 from Manager MOUNTED-READ;C:\\plinth;{1}&#13;&#10;", kTime, L"korvex"));
    for (const auto& [name, publisher] : {std::pair(kCrash, L"Application Error"), std::pair(kLamina, L"korvex")}) {
        const std::wstring xml =
            std::wstring(L"<metric><channel>Application</channel><query>*[System[Provider[@Name='") + publisher +
            L"']]]</query></metric>";
        ASSERT_EQ(provider->SubscribeMetric(_bstr_t(name), Configuration(xml.c_str()).Get()), S_OK);
    }

    size_t written = 0;
    const auto round = [&] {
        Deliver(0, kCrashes);
        for (DWORD i = 0; i < kAgentEvents; i += 2) {
            Deliver(1);
            Deliver(2);
        }
        EXPECT_EQ(Collect() | Collect(kLamina), S_OK);
        written += sink.Take().size();
    };
    round(); // fills the queue, the registry and the name of the computer to their lasting size
    const Usage before;
    written = 0;
    for (DWORD i = 0; i < kRounds; ++i) {
        round();
    }
    const Usage after;
    constexpr DWORD kEvents = kRounds * (kCrashes + kAgentEvents);
    static_assert(kEvents == 1'000'000);
    EXPECT_EQ(written, size_t{kRounds} * (1 + kCrashes + 4 + 2));
    EXPECT_EQ(after.blocks, before.blocks);
    EXPECT_LE(after.bytes, before.bytes + 4096); // the queue keeps a block more or less
    EXPECT_EQ(after.texts, before.texts);
    EXPECT_EQ(after.contexts, before.contexts);
    EXPECT_EQ(after.publishers - before.publishers, kEvents);
    EXPECT_EQ(after.systemHandles, before.systemHandles);
    // The rest of the growth is the replay log's own, a slot for each publisher left open.
    EXPECT_LT(after.processBytes, before.processBytes + size_t{kEvents} * 128);
    std::printf("%lu events: %lld blocks, %lld bytes, %lu publishers left open, %lld bytes more in the process\n",
                kEvents, after.blocks - before.blocks, after.bytes - before.bytes, after.publishers - before.publishers,
                static_cast<long long>(after.processBytes - before.processBytes));
}

} // namespace
