// A million events and ten thousand collections of both metrics take no more memory and handles than the first few.

#include "tests/support/module_under_test.h"
#include "tools/function_of.h"

#include <cstdio>
#include <map>
#include <string>
#include <utility>

namespace {

/// Opens each publisher once: the module leaves every handle open, and each takes memory of the replay log.
std::map<std::wstring, EVT_HANDLE> publisherHandles;
DWORD publishersOpened = 0;
EVT_HANDLE WINAPI OpenOnce(EVT_HANDLE session, LPCWSTR publisher, LPCWSTR file, LCID locale, DWORD flags)
{
    decltype(&EvtOpenPublisherMetadata) const open = orvel::FunctionOf{Replay().module, "EvtOpenPublisherMetadata"};
    ++publishersOpened;
    EVT_HANDLE& handle = publisherHandles[publisher];
    if (handle == nullptr) {
        handle = open(session, publisher, file, locale, flags);
    }
    return handle;
}

struct Usage {
    DWORD contexts = Replay().OpenHandles(ReplayContextHandle);
    DWORD publishers = Replay().OpenHandles(ReplayPublisherHandle);
    DWORD systemHandles = 0;
    size_t bytes = 0; // private to the process

    Usage()
    {
        GetProcessHandleCount(GetCurrentProcess(), &systemHandles);
        MEMORY_BASIC_INFORMATION region{};
        for (const char* at = nullptr; VirtualQuery(at, &region, sizeof(region)) != 0;
             at = static_cast<const char*>(region.BaseAddress) + region.RegionSize) {
            bytes += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize : 0;
        }
    }
};

TEST_F(ModuleTest, SoakGrowsByNothing)
{
    constexpr DWORD kRounds = 5000; // with a collection of each metric
    constexpr DWORD kCrashes = 180;
    constexpr DWORD kAgentEvents = 20;
    const ImportPatch open(module, "EvtOpenPublisherMetadata", &OpenOnce);
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
    publishersOpened = 0;
    for (DWORD i = 0; i < kRounds; ++i) {
        round();
    }
    const Usage after;
    constexpr DWORD kEvents = kRounds * (kCrashes + kAgentEvents);
    static_assert(kEvents == 1'000'000);
    EXPECT_EQ(written, size_t{kRounds} * (1 + kCrashes + 4 + 2));
    EXPECT_EQ(after.contexts, before.contexts);
    EXPECT_EQ(after.publishers, before.publishers) << "closed, though the platform may still use it";
    EXPECT_EQ(publishersOpened, kEvents);
    EXPECT_EQ(after.systemHandles, before.systemHandles);
    EXPECT_LT(after.bytes, before.bytes + 0x10000);
    std::printf("%lu events, %lld bytes more in the process\n", kEvents,
                static_cast<long long>(after.bytes - before.bytes));
}

} // namespace
