// Unsubscribing and releasing while events arrive, and events that arrive after it. A deadlock ends in the runner's
// time limit.

#include "tests/support/module_under_test.h"

#include <functional>
#include <optional>
#include <system_error>
#include <thread>

namespace {

/// Whether an exception of the module reaches the test. On x86 it ends the process (docs/hosting.md).
constexpr bool kExceptionsPass = sizeof(void*) == 8;

/// Lets one waiting thread go on. Not std::binary_semaphore: it can lose a wake-up where it is not built on futexes.
class Signal {
public:
    ~Signal() { CloseHandle(event_); }
    void Set() { SetEvent(event_); }
    void Await() { WaitForSingleObject(event_, INFINITE); }

private:
    HANDLE event_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

std::function<void()> onClose; // called when the module closes a handle, before it is closed

WINBOOL WINAPI NoteAndClose(EVT_HANDLE handle)
{
    if (onClose) {
        onClose();
    }
    decltype(&EvtClose) const close = Real("EvtClose");
    return close(handle);
}

/// Runs with a platform whose EvtClose waits for running callbacks, and with one whose does not. Both go on calling
/// closed subscriptions, which must find no metric, not even a new one.
class LifetimeTest : public ModuleTest, public testing::WithParamInterface<DWORD> {
protected:
    LifetimeTest()
    {
        Replay().SetMode(GetParam() | ReplayDeliverAfterClose);
        LoadEvents(Event(L"text"));
        computerName = [](wchar_t*, DWORD*) { return FALSE; };
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
        EXPECT_TRUE(Eventually([] { return Replay().OpenHandles(ReplaySubscriptionHandle) == 0; }));
        EXPECT_EQ(Replay().ClosesInsideCallback() + Replay().InvalidHandles(), 0U);
    }

    /// Lets each delivery set `inside` and await `proceed`.
    void HoldDeliveries()
    {
        computerName = [this](wchar_t*, DWORD*) {
            inside.Set();
            proceed.Await();
            return FALSE;
        };
    }

    /// Frees the module as a host does that waits for nothing, once its imports are its own again.
    void FreeTheModule()
    {
        patch.reset();
        module.Free();
    }

    Signal inside;
    Signal proceed;
    std::optional<ImportPatch> patch{std::in_place, module, "GetComputerNameExW", &GiveComputerName};
};

TEST_P(LifetimeTest, HostEndsTheMetricWhoseDeliveryIsRunning)
{
    Signal closing;
    HoldDeliveries();
    const ImportPatch close(module, "EvtClose", &NoteAndClose);
    ForEachEnding([&](const auto& end) {
        std::thread delivery([] { Deliver(0); });
        inside.Await();
        onClose = [&] {
            onClose = nullptr;
            closing.Set();
        };
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
            if constexpr (kExceptionsPass) {
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

TEST_P(LifetimeTest, ModuleStaysMappedUntilTheLastSubscriptionIsClosed)
{
    Deliver(0);
    ASSERT_EQ(Subscribe(), S_OK);
    FreeTheModule();
    Deliver(0);
    EXPECT_EQ(Collect(), S_OK);
    EXPECT_EQ(sink.Take().size(), 2U);
    EXPECT_TRUE(module.IsMapped());
    provider.Reset();
}

TEST_P(LifetimeTest, BlockedDeliveryRunsToItsEndAfterTheHostFreedTheModule)
{
    HoldDeliveries();
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

TEST(ProcessEnd, ProviderCanBeReleasedAfterTheModuleIsDetached)
{
    EXPECT_EXIT(
        {
            // Detached in reverse order: the module first, then its host, then the Event Log.
            decltype(&ReplayOpenHandles) const openHandles = Replay().OpenHandles;
            const HMODULE lateHost = LoadLibraryW(L"late_host.dll");
            void (*const hold)(IUnknown*, decltype(openHandles)) = (orvel::FunctionOf{lateHost, "HoldProvider"});
            const ModuleUnderTest module;
            ComPtr<IOrvelDataProvider> provider = module.CreateProvider();
            provider->SubscribeMetric(_bstr_t(kCrash), Configuration().Get());
            hold(provider.Detach(), openHandles);
            std::exit(0);
        },
        testing::ExitedWithCode(42), "");
}

INSTANTIATE_TEST_SUITE_P(Close, LifetimeTest, testing::Values(0, ReplayCloseDoesNotWait),
                         [](const auto& mode) { return mode.param == 0 ? "Waits" : "DoesNotWait"; });

/// Stands between the module and the Event Log: subscriptions deliver, without an event, when the test calls their
/// callback.
struct Subscribed {
    EVT_SUBSCRIBE_CALLBACK callback;
    void* context;
    DWORD Deliver() const { return callback(EvtSubscribeActionDeliver, context, nullptr); }
};
std::vector<Subscribed> subscribed;
int closed = 0;

EVT_HANDLE WINAPI TakeSubscription(EVT_HANDLE, HANDLE, LPCWSTR, LPCWSTR, EVT_HANDLE, PVOID context,
                                   EVT_SUBSCRIBE_CALLBACK callback, DWORD)
{
    subscribed.push_back({callback, context});
    return &subscribed;
}

WINBOOL WINAPI CloseSubscription(EVT_HANDLE)
{
    ++closed;
    if (onClose) {
        onClose();
    }
    return TRUE;
}

EVT_HANDLE WINAPI CreateNothing(DWORD, LPCWSTR*, DWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
}

WINBOOL WINAPI FormatNothing(EVT_HANDLE, EVT_HANDLE, DWORD, DWORD, PEVT_VARIANT, DWORD, DWORD, LPWSTR, PDWORD)
{
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

PTP_TIMER WINAPI RefuseTimer(PTP_TIMER_CALLBACK, PVOID, PTP_CALLBACK_ENVIRON)
{
    return nullptr;
}

WINBOOL WINAPI RefuseCallback(PTP_SIMPLE_CALLBACK, PVOID, PTP_CALLBACK_ENVIRON)
{
    return FALSE;
}

/// A module whose subscriptions end in this file.
class UnansweredTest : public ModuleTest {
protected:
    UnansweredTest()
    {
        subscribed.clear();
        closed = 0;
    }

    const ImportPatch take{module, "EvtSubscribe", &TakeSubscription};
    const ImportPatch close{module, "EvtClose", &CloseSubscription};
    const ImportPatch create{module, "EvtCreateRenderContext", &CreateNothing};
    const ImportPatch format{module, "EvtFormatMessage", &FormatNothing};
};

TEST_F(UnansweredTest, ModuleStaysMappedWhenThePoolHasNoMemory)
{
    {
        const ImportPatch timer(module, "CreateThreadpoolTimer", &RefuseTimer);
        EXPECT_EQ(Subscribe(), S_OK);
        EXPECT_EQ(Unsubscribe(), S_OK);
        EXPECT_EQ(closed, 1);

        const ImportPatch callback(module, "TrySubmitThreadpoolCallback", &RefuseCallback);
        EXPECT_EQ(Subscribe(kLamina), S_OK);
        logger.onNextLine = [&] { Unsubscribe(kLamina); };
        subscribed[1].Deliver();
        EXPECT_EQ(closed, 1) << "closed inside the delivery";
        logger.Take();
        subscribed[1].Deliver();
        EXPECT_EQ(logger.Take(), Lines{}) << "the event found the metric";
    }
    // What the module could not return, the test does.
    for (int references = 0; references < 2; ++references) {
        FreeLibrary(module);
        EXPECT_TRUE(module.IsMapped());
    }
}

TEST_F(UnansweredTest, ProviderThatEndsClosesTheSubscriptionOfARunningDelivery)
{
    ASSERT_EQ(Subscribe() | Subscribe(kLamina), S_OK);
    ASSERT_EQ(subscribed.size(), 2U);
    Signal inside;
    Signal proceed;
    logger.Take();
    logger.onNextLine = [&] {
        if constexpr (kExceptionsPass) {
            EXPECT_THROW(subscribed[1].Deliver(), std::system_error) << "a delivery inside itself";
        }
        inside.Set();
        proceed.Await();
    };
    std::thread delivery([] { subscribed[1].Deliver(); });
    inside.Await();
    onClose = [&] {
        if (closed == 2) { // the other metric, without a delivery, came first
            proceed.Set();
            delivery.join();
        }
    };
    provider.Reset();
    onClose = nullptr;
    EXPECT_EQ(closed, 2);
    EXPECT_FALSE(delivery.joinable()) << "the subscription of the running delivery was not closed";
    EXPECT_EQ(logger.References() + host.References(), 0U);
    subscribed[0].Deliver();
    subscribed[1].Deliver();
    EXPECT_EQ(logger.Take().size(), 1U) << "only the delivery that was running logged";
}

} // namespace
