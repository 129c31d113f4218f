// Unsubscribing, letting go and unloading while events arrive. A deadlock ends in the runner's time limit.

#include "tests/support/module_under_test.h"

#include <functional>
#include <string>
#include <system_error>
#include <thread>

namespace {

/// Runs with a platform whose EvtClose waits for running callbacks, and with one whose does not.
class LifetimeTest : public ModuleTest, public testing::WithParamInterface<DWORD> {
protected:
    LifetimeTest()
    {
        Replay().SetMode(GetParam());
        LoadEvents(Event(L"text"));
    }
    /// Runs a scenario with every way in which a host can end a metric, each with a fresh provider.
    void ForEachEnding(const std::function<void(const std::function<void()>& end)>& scenario)
    {
        const std::function<void()> endings[] = {[this] { Unsubscribe(); }, [this] { provider->UnsubscribeAll(); },
                                                 [this] { provider.Reset(); }};
        for (const auto& end : endings) {
            SCOPED_TRACE(&end - endings);
            CreateProvider();
            ASSERT_EQ(Subscribe(), S_OK);
            scenario(end);
        }
        provider.Reset();
        for (int wait = 0; wait < 200 && Replay().OpenHandles(ReplaySubscriptionHandle) != 0; ++wait) {
            Sleep(10); // for closings on other threads
        }
        EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 0U);
        EXPECT_EQ(Replay().ClosesInsideCallback() + Replay().InvalidHandles(), 0U);
    }
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
    const ImportPatch patch(module, "GetComputerNameExW", &GiveComputerName);
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
    computerName = [](wchar_t*, DWORD*) { return FALSE; };
    const ImportPatch patch(module, "GetComputerNameExW", &GiveComputerName);
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
        EXPECT_EQ(sink.Take().size(), 2U);
    });
}

TEST_P(LifetimeTest, ADeliveryAfterTheCloseFindsNoMetricNotEvenANewOne)
{
    Replay().SetMode(GetParam() | ReplayDeliverAfterClose);
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(Subscribe(), S_OK);
        Deliver(0);
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(sink.Take().size(), 2U) << "one flag and one record: only the last subscription counts";
        EXPECT_EQ(Unsubscribe(), S_OK);
    }
    Deliver(0);
}

INSTANTIATE_TEST_SUITE_P(Close, LifetimeTest, testing::Values(0, ReplayCloseDoesNotWait),
                         [](const auto& mode) { return mode.param == 0 ? "Waits" : "DoesNotWait"; });

TEST(UnloadTest, TheModuleIsReallyGoneAfterEachUse)
{
    LoadEvents(Event(L"text"));
    for (int round = 0; round < 20; ++round) {
        RecordingLogger logger;
        HostObject host;
        RecordingSink sink;
        {
            const ModuleUnderTest module;
            const auto provider = module.CreateProvider();
            EXPECT_EQ(provider->SetHost(&logger, &host), S_OK);
            EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), Configuration().Get()), S_OK);
            EXPECT_EQ(Replay().Deliver(0, 1), 0U);
            EXPECT_EQ(provider->QueryMetricEx(_bstr_t(kCrash), 0, &sink), S_OK);
            EXPECT_EQ(sink.Take().size(), 2U);
        }
        ASSERT_EQ(GetModuleHandleW(L"Orvel_eventlog.dll"), nullptr) << "round " << round;
    }
}

} // namespace
