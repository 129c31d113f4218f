// Unsubscribing and letting go while events arrive, and events that arrive after it. A deadlock ends in the runner's
// time limit.

#include "tests/support/module_under_test.h"

#include <functional>
#include <system_error>
#include <thread>

namespace {

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
    /// Runs a scenario with every way in which a host can end a metric, each with a fresh provider.
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
        for (int wait = 0; wait < 200 && Replay().OpenHandles(ReplaySubscriptionHandle) != 0; ++wait) {
            Sleep(10); // for closings on other threads
        }
        EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 0U);
        EXPECT_EQ(Replay().ClosesInsideCallback() + Replay().InvalidHandles(), 0U);
    }

    const ImportPatch patch{module, "GetComputerNameExW", &GiveComputerName};
};

/// Lets one waiting thread go on. The library's semaphore can lose a wake-up where it is not built on futexes.
class Signal {
public:
    ~Signal() { CloseHandle(event_); }
    void Give() { SetEvent(event_); }
    void Await() { WaitForSingleObject(event_, INFINITE); }

private:
    HANDLE event_ = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

TEST_P(LifetimeTest, TheHostEndsAMetricWhoseDeliveryIsRunning)
{
    Signal inside;
    Signal proceed;
    computerName = [&](wchar_t*, DWORD*) {
        inside.Give();
        proceed.Await();
        return FALSE;
    };
    ForEachEnding([&](const auto& end) {
        std::thread delivery([] { Deliver(0); });
        inside.Await();
        std::thread ending(end);
        Sleep(50); // a closing that waits is waiting now, one that does not wait is done
        EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
        proceed.Give();
        ending.join();
        delivery.join();
    });
}

TEST_P(LifetimeTest, TheLoggerEndsTheMetricThatIsLogging)
{
    ForEachEnding([&](const auto& end) {
        logger.onNextLine = end;
        Deliver(0);
        EXPECT_EQ(logger.onNextLine, nullptr) << "the event logged nothing";
    });
}

TEST_P(LifetimeTest, TheSinkEndsTheMetricThatItReceivesWhileADeliveryWaits)
{
    ForEachEnding([&](const auto& end) {
        Deliver(0);
        std::thread delivery;
        sink.onNextLine = [&] {
            EXPECT_THROW(Collect(), std::system_error) << "a collection inside itself";
            delivery = std::thread([] { Deliver(0); });
            Sleep(50); // the delivery waits for the collection now
            end();
        };
        EXPECT_EQ(Collect(), S_OK);
        delivery.join();
        EXPECT_EQ(sink.Take().size(), 2U) << "one flag and one record: only the last subscription counts";
    });
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
std::function<void()> onClose;
int opened = 0;

EVT_HANDLE WINAPI TakeSubscription(EVT_HANDLE, HANDLE, LPCWSTR, LPCWSTR, EVT_HANDLE, PVOID context,
                                   EVT_SUBSCRIBE_CALLBACK callback, DWORD)
{
    subscribed.push_back({callback, context});
    return &subscribed;
}

WINBOOL WINAPI CloseSubscription(EVT_HANDLE)
{
    if (onClose) {
        onClose();
    }
    return TRUE;
}

EVT_HANDLE WINAPI OpenNothing(EVT_HANDLE, LPCWSTR, LPCWSTR, LCID, DWORD)
{
    ++opened;
    return nullptr;
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

TEST_F(ModuleTest, NoDeliveryStartsWhileTheProviderEndsNorInsideItself)
{
    const ImportPatch take(module, "EvtSubscribe", &TakeSubscription);
    const ImportPatch close(module, "EvtClose", &CloseSubscription);
    const ImportPatch open(module, "EvtOpenPublisherMetadata", &OpenNothing);
    const ImportPatch create(module, "EvtCreateRenderContext", &CreateNothing);
    const ImportPatch format(module, "EvtFormatMessage", &FormatNothing);
    ASSERT_EQ(Subscribe() | Subscribe(L"eventlog|eventlog_lamina"), S_OK);
    ASSERT_EQ(subscribed.size(), 2U);
    Signal inside;
    Signal proceed;
    logger.Take();
    logger.onNextLine = [&] {
        EXPECT_THROW(subscribed[1].Deliver(), std::system_error);
        inside.Give();
        proceed.Await();
    };
    std::thread delivery([] { subscribed[1].Deliver(); });
    inside.Await();
    onClose = [&] {
        const int before = opened;
        subscribed[0].Deliver();
        EXPECT_EQ(opened, before) << "the crash metric took the event";
        proceed.Give();
        delivery.join();
        onClose = nullptr;
    };
    provider.Reset();
    EXPECT_FALSE(delivery.joinable()) << "the subscription of the running delivery was not closed";
    EXPECT_EQ(logger.references.load() + host.references.load(), 0);
    subscribed.clear();
}

} // namespace
