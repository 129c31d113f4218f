// A million events and ten thousand collections of both metrics take no more memory and handles than the first few.

#include "tests/support/module_under_test.h"

#include <cstdio>
#include <map>
#include <string>

namespace {

size_t PrivateBytes()
{
    size_t bytes = 0;
    MEMORY_BASIC_INFORMATION region{};
    for (const char* at = nullptr; VirtualQuery(at, &region, sizeof(region)) != 0;
         at = static_cast<const char*>(region.BaseAddress) + region.RegionSize) {
        bytes += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize : 0;
    }
    return bytes;
}

TEST_F(ModuleTest, AMillionEventsTakeAtMost64KiBMore)
{
    constexpr DWORD kRounds = 5000; // with a collection of each metric
    constexpr DWORD kCrashes = 180;
    constexpr DWORD kAgentEvents = 20;
    // Opens each publisher once: the module leaves every handle open, and each takes memory of the replay log.
    std::map<std::wstring, EVT_HANDLE> publishers;
    DWORD publishersOpened = 0;
    const Patch<decltype(EvtOpenPublisherMetadata)> patch(
        module, "EvtOpenPublisherMetadata", [&](auto open, auto session, auto publisher, auto... arguments) {
            ++publishersOpened;
            EVT_HANDLE& handle = publishers[publisher];
            return handle != nullptr ? handle : handle = open(session, publisher, arguments...);
        });
    logger.levels = 0;
    Replay().SetMode(ReplayOnCallingThread);
    LoadEvents(Event(L"Faulting application name: a.exe, version: 1.0.0.0&#10;Exception code: 0xc0000005") +
               AgentEvent(L"User is logging in") +
               AgentEvent(L"Response 200 from Manager MOUNTED-READ;C:\\plinth;{1}&#13;&#10;"));
    ASSERT_EQ(Subscribe(kCrash, EventsOf(L"Application Error")) | Subscribe(kLamina, EventsOf(L"korvex")), S_OK);

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
    const DWORD contexts = Replay().OpenHandles(ReplayContextHandle), handles = Handles();
    const size_t bytes = PrivateBytes();
    written = 0;
    publishersOpened = 0;
    for (DWORD i = 0; i < kRounds; ++i) {
        round();
    }
    const auto growth = static_cast<long long>(PrivateBytes() - bytes);
    EXPECT_EQ(written, size_t{kRounds} * (1 + kCrashes + 4 + 2));
    EXPECT_EQ(Replay().OpenHandles(ReplayContextHandle), contexts);
    EXPECT_EQ(Handles(), handles);
    EXPECT_EQ(publishersOpened, 1'000'000U);
    EXPECT_LE(growth, 0x10000); // the heap may take one more region of the system
    std::printf("%lu events, %lld bytes more in the process\n", publishersOpened, growth);
}

} // namespace
