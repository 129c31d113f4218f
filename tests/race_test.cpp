// Many threads deliver while several hosts subscribe, collect, unsubscribe and release, and every event must be
// collected once. A deadlock ends in the runner's time limit.

#include "tests/support/module_under_test.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cwchar>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kDeliverers = 4; // even ones deliver crashes, odd ones plinths
constexpr int kHosts = 2;      // each with its own provider
constexpr int kRounds = 15;    // with kHosts * 2 metrics each: below the number of ended metrics that are remembered
constexpr int kEventsPerRound = 10;
constexpr int kNumbers = kHosts * kRounds * kEventsPerRound; // of each deliverer's events, from 1
constexpr const wchar_t* kNames[] = {kCrash, kLamina};
constexpr const wchar_t* kPublishers[] = {L"Application Error", L"korvex"};

/// The last number of each deliverer.
struct Counters : std::array<std::atomic<int>, kDeliverers> {
    std::array<int, kDeliverers> Read() const { return {at(0), at(1), at(2), at(3)}; }
};
Counters begun;
Counters done;
std::atomic<int> allowed;
std::atomic<int> collectedEvents;

void DeliverAll(size_t deliverer)
{
    for (int number = 1; number <= kNumbers; ++number) {
        while (number > allowed) {
            SwitchToThread();
        }
        begun[deliverer] = number;
        EXPECT_EQ(Replay().Deliver(static_cast<DWORD>(deliverer) * kNumbers + static_cast<DWORD>(number) - 1, 1), 0U);
        done[deliverer] = number;
    }
}

/// The numbers collected of each deliverer's events.
using Collected = std::array<std::vector<int>, kDeliverers>;

void Add(const Lines& lines, Collected& collected)
{
    collected[1] = collected[3] = {}; // a collection repeats all plinths
    for (const std::wstring& line : lines) {
        unsigned deliverer = 0;
        int number = 0;
        if (std::swscanf(line.c_str(), L"appcrash|crash_details|* [%*d] = Response 200 from Manager MOUNTED-READ;%u;%d",
                         &deliverer, &number) == 2 ||
            std::swscanf(line.c_str(), L"lamina|instances|* [%d] = %u", &number, &deliverer) == 2) {
            collected.at(deliverer).push_back(number);
        }
    }
}

class RaceTest : public ModuleTest, public testing::WithParamInterface<DWORD> {
protected:
    RaceTest()
    {
        provider.Reset();
        logger.levels = 1; // no error is expected, and other lines would only cost time
        Replay().SetMode(GetParam());
        std::wstring events;
        for (int i = 0; i < kDeliverers * kNumbers; ++i) {
            const std::wstring text = L"Response 200 from Manager MOUNTED-READ;" + std::to_wstring(i / kNumbers) +
                                      L";" + std::to_wstring(i % kNumbers + 1) + L"\r\n";
            events += Event(text, L"2024-03-05T07:08:09Z", kPublishers[i / kNumbers % 2]);
        }
        LoadEvents(events);
    }

    /// Subscribes, collects while events arrive, and ends in one of the ways there are. Whatever began after the
    /// subscription and was done before the last collection must be there once, in order, and nothing from before.
    void Round(ComPtr<IOrvelDataProvider>& own, RecordingSink& ownSink, int round)
    {
        if (!own) {
            own = module.CreateProvider();
            EXPECT_EQ(own->SetHost(&logger, &host), S_OK);
        }
        const auto earlier = done.Read();
        for (size_t kind = 0; kind < 2; ++kind) {
            EXPECT_EQ(own->SubscribeMetric(_bstr_t(kNames[kind]), configurations[kind].Get()), S_OK);
        }
        const auto since = begun.Read();
        allowed += kEventsPerRound;
        while (*std::min_element(begun.begin(), begun.end()) + 2 * kEventsPerRound < allowed) {
            SwitchToThread(); // a host that runs ahead would never meet an event
        }
        Collected collected;
        auto until = since;
        for (int collection = round % 3; collection >= 0; --collection) {
            Sleep(collection > 0 ? 0U : static_cast<DWORD>(round % 2));
            until = done.Read();
            if (collection == 0 && round % 5 == 4) {
                ownSink.onNextLine = [&] { own->UnsubscribeMetric(_bstr_t(kNames[0])); };
            }
            for (const wchar_t* name : kNames) {
                EXPECT_EQ(own->QueryMetricEx(_bstr_t(name), 0, &ownSink), S_OK);
            }
            Add(ownSink.Take(), collected);
        }
        ownSink.onNextLine = nullptr;
        own->UnsubscribeMetric(_bstr_t(kNames[round % 2]));
        if (round % 3 == 0) {
            own.Reset();
        } else {
            own->UnsubscribeAll();
        }
        for (size_t i = 0; i < kDeliverers; ++i) {
            const int first = collected[i].empty() ? since[i] + 1 : collected[i].front();
            int next = first;
            for (const int number : collected[i]) {
                EXPECT_EQ(number, next++) << "lost, doubled or out of order";
            }
            EXPECT_GT(first, earlier[i]) << "an event from before the subscription";
            EXPECT_LE(first, since[i] + 1) << "lost at the beginning";
            EXPECT_GT(next, until[i]) << "lost at the end";
            collectedEvents += next - first;
        }
    }

    const ComPtr<IXMLDOMElement> configurations[2] = {Configuration(EventsOf(kPublishers[0])),
                                                      Configuration(EventsOf(kPublishers[1]))};
};

TEST_P(RaceTest, CollectsEachEventOnceAndInOrder)
{
    collectedEvents = 0;
    for (int epoch = 0; epoch < 20; ++epoch) {
        std::fill(begun.begin(), begun.end(), 0);
        std::fill(done.begin(), done.end(), 0);
        allowed = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < kHosts; ++i) {
            threads.emplace_back([this] {
                RecordingSink ownSink;
                ComPtr<IOrvelDataProvider> own;
                for (int round = 0; round < kRounds; ++round) {
                    Round(own, ownSink, round);
                }
            });
        }
        for (size_t i = 0; i < kDeliverers; ++i) {
            threads.emplace_back(&DeliverAll, i);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(AreSubscribed(0));
        Replay().SetMode(GetParam() & ~DWORD{ReplayDeliverAfterClose}); // forgets the closed subscriptions
        Replay().SetMode(GetParam());
    }
    EXPECT_GT(collectedEvents, kNumbers) << "hardly an event met a subscription";
    EXPECT_EQ(Replay().ClosesInsideCallback() + Replay().InvalidHandles(), 0U);
    EXPECT_EQ(logger.Take(), Lines{});
}

INSTANTIATE_TEST_SUITE_P(Modes, RaceTest,
                         testing::Values(0, ReplayCloseDoesNotWait, ReplayOnCallingThread,
                                         ReplayOnCallingThread | ReplayCloseDoesNotWait,
                                         ReplayOnCallingThread | ReplayDeliverAfterClose,
                                         ReplayOnCallingThread | ReplayCloseDoesNotWait | ReplayDeliverAfterClose),
                         [](const auto& mode) { return "Mode" + std::to_string(mode.param); });

} // namespace
