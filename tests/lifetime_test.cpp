// Unsubscribing and releasing while events arrive, and events that arrive after it. A deadlock ends in the runner's
// time limit.

#include "tests/support/module_under_test.h"

#include <psapi.h>

#include <atomic>
#include <optional>
#include <system_error>
#include <thread>

namespace {

/// Lets one waiting thread go on. Not std::binary_semaphore: it can lose a wake-up where it is not built on futexes.
class Signal {
public:
    ~Signal() { CloseHandle(event_); }
    void Set() { SetEvent(event_); }
    void Await() { WaitForSingleObject(event_, INFINITE); }

private:
    HANDLE event_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

/// Runs with a platform whose EvtClose waits for running callbacks, and with one whose does not. Both go on calling
/// closed subscriptions, which must find no metric, not even a new one.
class LifetimeTest : public ModuleTest, public testing::WithParamInterface<DWORD> {
protected:
    LifetimeTest()
    {
        Replay().SetMode(GetParam() | ReplayDeliverAfterClose);
        LoadEvents(Event(L"text"));
    }
    /// Runs a scenario with every way in which a host can end a metric, each with a new provider.
    void ForEachEnding(const std::function<void(const std::function<void()>& end)>& scenario)
    {
        const std::function<void()> endings[] = {[this] { Unsubscribe(); }, [this] { provider->UnsubscribeAll(); },
                                                 [this] { provider.Reset(); }};
        for (size_t round = 0; round < 12; ++round) {
            SCOPED_TRACE(round);
            CreateProvider();
            ASSERT_EQ(Subscribe(), S_OK);
            scenario(endings[round % 3]);
        }
        provider.Reset();
        EXPECT_TRUE(AreSubscribed(0));
        EXPECT_EQ(Replay().ClosesInsideCallback() + Replay().InvalidHandles(), 0U);
    }
    /// Frees the module as a host does that waits for nothing, once its imports are its own again.
    void FreeTheModule()
    {
        computerName.reset();
        module.Free();
    }

    bool holdsDeliveries = false; // each sets `inside` and awaits `proceed`
    Signal inside;
    Signal proceed;
    std::optional<Patch<decltype(GetComputerNameExW)>> computerName{std::in_place, module, "GetComputerNameExW",
                                                                    [this](auto...) {
                                                                        if (holdsDeliveries) {
                                                                            inside.Set();
                                                                            proceed.Await();
                                                                        }
                                                                        return FALSE;
                                                                    }};
};

TEST_P(LifetimeTest, HostEndsTheMetricWhoseDeliveryIsRunning)
{
    holdsDeliveries = true;
    Signal closing;
    std::atomic isEnding = false;
    const Patch<decltype(EvtClose)> patch(module, "EvtClose", [&](auto close, EVT_HANDLE handle) {
        if (isEnding.exchange(false)) {
            closing.Set();
        }
        return close(handle);
    });
    ForEachEnding([&](const auto& end) {
        std::thread delivery([] { Deliver(0); });
        inside.Await();
        isEnding = true;
        std::thread ending(end);
        closing.Await();
        proceed.Set();
        ending.join();
        delivery.join();
    });
}

TEST_P(LifetimeTest, LoggerEndsTheMetricThatIsLogging)
{
    ForEachEnding([&](const auto& end) {
        logger.onNextLine = end;
        Deliver(0);
        EXPECT_EQ(logger.onNextLine, nullptr) << "the event logged nothing";
    });
}

TEST_P(LifetimeTest, SinkEndsTheMetricThatItReceivesWhileADeliveryWaits)
{
    ForEachEnding([&](const auto& end) {
        Deliver(0);
        std::thread delivery;
        sink.onNextLine = [&] {
            if constexpr (sizeof(void*) == 8) { // on x86 an exception ends the process (docs/hosting.md)
                EXPECT_THROW(Collect(), std::system_error) << "a collection inside itself";
            }
            delivery = std::thread([] { Deliver(0); });
            EXPECT_TRUE(Eventually([] { return Replay().OpenHandles(ReplayEventHandle) == 1; }));
            end();
        };
        EXPECT_EQ(Collect(), S_OK);
        delivery.join();
        EXPECT_EQ(sink.Take().size(), 2U) << "one flag and one record: only the last subscription counts";
    });
}

TEST_P(LifetimeTest, BlockedDeliveryRunsToItsEndAfterTheHostFreedTheModule)
{
    holdsDeliveries = true;
    ASSERT_EQ(Subscribe(), S_OK);
    std::thread delivery([] { Deliver(0); });
    inside.Await();
    std::thread ending([&] {
        FreeTheModule();
        provider.Reset(); // waits for the delivery if EvtClose does
    });
    if (GetParam() == ReplayCloseDoesNotWait) {
        ending.join();
    }
    EXPECT_TRUE(module.IsMapped());
    const DWORD opened = Replay().OpenHandles(ReplayPublisherHandle);
    proceed.Set();
    delivery.join();
    EXPECT_GT(Replay().OpenHandles(ReplayPublisherHandle), opened) << "the event was not handled";
    if (ending.joinable()) {
        ending.join();
    }
}

TEST_P(LifetimeTest, HostObjectsFreeTheModuleThatCallsThem)
{
    const auto release = [this] {
        FreeTheModule();
        provider.Reset();
    };
    ASSERT_EQ(Subscribe(), S_OK);
    if (GetParam() == ReplayCloseDoesNotWait) {
        logger.onNextLine = release;
        Deliver(0);
    } else {
        Deliver(0);
        sink.onNextLine = release;
        EXPECT_EQ(provider->QueryMetric(_bstr_t(kCrash), 0, &sink), S_OK);
    }
    EXPECT_FALSE(provider);
}

TEST_P(LifetimeTest, ModuleStaysMappedWhenThePoolHasNoMemory)
{
    EVT_HANDLE subscription = nullptr;
    ASSERT_EQ(Subscribe(), S_OK);
    {
        const Patch<decltype(TrySubmitThreadpoolCallback)> submit(module, "TrySubmitThreadpoolCallback",
                                                                  [&](auto, auto, void* handle, auto) {
                                                                      subscription = handle;
                                                                      return FALSE;
                                                                  });
        logger.onNextLine = [&] { Unsubscribe(); };
        Deliver(0);
        logger.Take();
        Deliver(0);
        EXPECT_EQ(logger.Take(), Lines{}) << "the event found the metric";
        EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 1U) << "closed inside the delivery";

        const Patch<decltype(CreateThreadpoolTimer)> timer(module, "CreateThreadpoolTimer",
                                                           [](auto...) { return nullptr; });
        EXPECT_EQ(Subscribe(), S_OK);
        EXPECT_EQ(Unsubscribe(), S_OK);
        EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 1U);
    }
    // What the module could not close and return, the test does.
    decltype(&EvtClose) const close = orvel::FunctionOf{Replay().module, "EvtClose"};
    EXPECT_TRUE(close(subscription));
    for (int references = 0; references < 2; ++references) {
        FreeLibrary(module);
        EXPECT_TRUE(module.IsMapped());
    }
}

INSTANTIATE_TEST_SUITE_P(Close, LifetimeTest, testing::Values(0, ReplayCloseDoesNotWait),
                         [](const auto& mode) { return mode.param == 0 ? "Waits" : "DoesNotWait"; });

TEST(ProcessEnd, ProviderCanBeReleasedAfterTheModuleIsDetached)
{
    EXPECT_EXIT(
        {
            const ModuleUnderTest module;
            ComPtr<IOrvelDataProvider> provider = module.CreateProvider();
            provider->SubscribeMetric(_bstr_t(kCrash), Configuration().Get());
            MODULEINFO loaded{};
            GetModuleInformation(GetCurrentProcess(), module, &loaded, sizeof(loaded));
            // As the loader does when the process ends, before it detaches a host's DLL that still holds the provider.
            reinterpret_cast<BOOL(WINAPI*)(HMODULE, DWORD, void*)>(loaded.EntryPoint)(module, DLL_PROCESS_DETACH,
                                                                                      &loaded);
            TlsSetValue(TlsAlloc(), &loaded); // takes the slot if the module has freed its own
            provider.Reset();
            TerminateProcess(GetCurrentProcess(), Replay().OpenHandles(ReplaySubscriptionHandle) == 0 ? 42 : 43);
        },
        testing::ExitedWithCode(42), "");
}

} // namespace
