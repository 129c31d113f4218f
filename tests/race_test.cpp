// Many threads deliver while several hosts subscribe, collect, unsubscribe and let go, and the books must balance. A
// deadlock ends in the runner's time limit.

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
constexpr int kHosts = 2;      // each with a provider of its own
constexpr int kRounds = 15;    // with kHosts * 2 metrics each: below the number of ended metrics that are remembered
constexpr int kEventsPerRound = 10;
constexpr int kNumbers = kHosts * kRounds * kEventsPerRound;
constexpr const wchar_t* kNames[] = {kCrash, L"eventlog|eventlog_lamina"};
constexpr const wchar_t* kPublishers[] = {L"Application Error", L"korvex"};

/// One deliverer's events, numbered from 1, as far as they were begun and as far as they are done.
struct Progress {
    std::atomic<int> begun = 0;
    std::atomic<int> done = 0;
};
using Counts = std::array<int, kDeliverers>;

class RaceTest : public ModuleTest, public testing::WithParamInterface<DWORD> {
protected:
    RaceTest()
    {
        provider.Reset();
        logger.levels = 1; // no error is expected, and other lines would only cost time
        Replay().SetMode(GetParam());
        for (const wchar_t* publisher : kPublishers) {
            configurations.push_back(
                Configuration((std::wstring(L"<metric><channel>Application</channel><query>*[System[Provider[@Name='") +
                               publisher + L"']]]</query></metric>")
                                  .c_str()));
        }
        std::wstring events;
        for (int deliverer = 0; deliverer < kDeliverers; ++deliverer) {
            for (int number = 1; number <= kNumbers; ++number) {
                std::wstring text = deliverer % 2 == 0 ? L"!" : L"Response 200 from Manager MOUNTED-READ;";
                text.append(std::to_wstring(deliverer)).append(1, L';').append(std::to_wstring(number));
                text += deliverer % 2 == 0 ? L"!" : L"\r\n";
                events += Event(text, L"2024-03-05T07:08:09Z", kPublishers[deliverer % 2]);
            }
        }
        LoadEvents(events);
    }

    static Counts Read(std::atomic<int> Progress::*count)
    {
        Counts counts{};
        for (size_t i = 0; i < counts.size(); ++i) {
            counts[i] = progress[i].*count;
        }
        return counts;
    }

    static void DeliverAll(int deliverer)
    {
        Progress& mine = progress[static_cast<size_t>(deliverer)];
        for (int number = 1; number <= kNumbers; ++number) {
            while (number > allowed) {
                SwitchToThread();
            }
            mine.begun = number;
            Deliver(static_cast<DWORD>(deliverer * kNumbers + number - 1));
            mine.done = number;
        }
    }

    /// Adds the numbers in the sink's lines to those that each deliverer's events brought.
    static void Book(const Lines& lines, std::array<std::vector<int>, kDeliverers>& collected)
    {
        for (const std::wstring& line : lines) {
            unsigned deliverer = 0;
            int number = 0;
            if (std::swscanf(line.c_str(), L"appcrash|crash_details|* [%*d] = !%u;%d!", &deliverer, &number) == 2 ||
                std::swscanf(line.c_str(), L"lamina|instances|* [%d] = %u", &number, &deliverer) == 2) {
                collected.at(deliverer).push_back(number);
            }
        }
    }

    /// Subscribes, collects while events arrive, and ends in one of the ways there are. Whatever began after the
    /// subscription and was done before the last collection must be there once, in order, and nothing from before.
    void Round(ComPtr<IOrvelDataProvider>& own, RecordingSink& ownSink, int round)
    {
        std::array<Counts, 2> earlier{};
        std::array<Counts, 2> since{};
        for (size_t kind = 0; kind < 2; ++kind) {
            earlier[kind] = Read(&Progress::done);
            EXPECT_EQ(own->SubscribeMetric(_bstr_t(kNames[kind]), configurations[kind].Get()), S_OK);
            since[kind] = Read(&Progress::begun);
        }
        allowed += kEventsPerRound;
        while (std::any_of(progress.begin(), progress.end(),
                           [](const Progress& p) { return p.begun + 2 * kEventsPerRound < allowed; })) {
            SwitchToThread(); // a host that runs ahead would never meet an event
        }
        std::array<std::vector<int>, kDeliverers> collected;
        Counts until{};
        for (int collection = round % 3; collection >= 0; --collection) {
            for (auto& plinths : {&collected[1], &collected[3]}) {
                plinths->clear(); // a collection repeats them all
            }
            Sleep(collection > 0 ? 0 : round % 2);
            until = Read(&Progress::done);
            if (collection == 0 && round % 5 == 4) {
                ownSink.onNextLine = [&] { own->UnsubscribeMetric(_bstr_t(kNames[0])); };
            }
            for (const wchar_t* name : kNames) {
                EXPECT_EQ(own->QueryMetricEx(_bstr_t(name), 0, &ownSink), S_OK);
            }
            Book(ownSink.Take(), collected);
        }
        if (round % 3 == 0) {
            own = module.CreateProvider();
            EXPECT_EQ(own->SetHost(&logger, &host), S_OK);
        } else if (round % 3 == 1) {
            own->UnsubscribeAll();
        } else {
            own->UnsubscribeMetric(_bstr_t(kNames[1]));
            own->UnsubscribeMetric(_bstr_t(kNames[0]));
        }
        ownSink.onNextLine = nullptr;
        for (size_t i = 0; i < kDeliverers; ++i) {
            const std::vector<int>& numbers = collected[i];
            if (numbers.empty()) {
                EXPECT_LE(until[i], since[i % 2][i]) << "all lost";
                continue;
            }
            EXPECT_GT(numbers.front(), earlier[i % 2][i]) << "an event from before the subscription";
            EXPECT_LE(numbers.front(), since[i % 2][i] + 1) << "lost at the beginning";
            EXPECT_GE(numbers.back(), until[i]) << "lost at the end";
            const auto broken =
                std::adjacent_find(numbers.begin(), numbers.end(), [](int a, int b) { return b != a + 1; });
            EXPECT_EQ(broken, numbers.end()) << "lost, doubled or out of order after " << *broken;
            booked += static_cast<int>(numbers.size());
        }
    }

    static inline std::array<Progress, kDeliverers> progress;
    static inline std::atomic<int> allowed = 0;
    static inline std::atomic<int> booked = 0;
    std::vector<ComPtr<IXMLDOMElement>> configurations;
};

TEST_P(RaceTest, EveryEventDeliveredBeforeTheCloseIsCollectedOnceAndInOrder)
{
    booked = 0;
    for (int epoch = 0; epoch < 20; ++epoch) {
        for (Progress& each : progress) {
            each.begun = each.done = 0;
        }
        allowed = 0;
        std::vector<std::thread> threads;
        threads.reserve(kHosts + kDeliverers);
        for (int i = 0; i < kHosts; ++i) {
            threads.emplace_back([this] {
                CoInitializeEx(nullptr, COINIT_MULTITHREADED);
                RecordingSink ownSink;
                ComPtr<IOrvelDataProvider> own = module.CreateProvider();
                EXPECT_EQ(own->SetHost(&logger, &host), S_OK);
                for (int round = 0; round < kRounds; ++round) {
                    Round(own, ownSink, round);
                }
                own.Reset();
                CoUninitialize();
            });
        }
        for (int i = 0; i < kDeliverers; ++i) {
            threads.emplace_back(&DeliverAll, i);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (int wait = 0; wait < 200 && module.CanUnloadNow() != S_OK; ++wait) {
            Sleep(10); // for closings on other threads
        }
        EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 0U);
        Replay().SetMode(GetParam() & ~DWORD{ReplayDeliverAfterClose}); // forgets the closed subscriptions
        Replay().SetMode(GetParam());
    }
    EXPECT_GT(booked, kNumbers) << "hardly an event met a subscription";
    EXPECT_EQ(Replay().ClosesInsideCallback() + Replay().InvalidHandles(), 0U);
    EXPECT_EQ(logger.Take(), Lines{});
    RecordProperty("booked", booked);
}

INSTANTIATE_TEST_SUITE_P(Modes, RaceTest,
                         testing::Values(0, ReplayCloseDoesNotWait, ReplayOnCallingThread,
                                         ReplayOnCallingThread | ReplayCloseDoesNotWait,
                                         ReplayOnCallingThread | ReplayDeliverAfterClose,
                                         ReplayOnCallingThread | ReplayCloseDoesNotWait | ReplayDeliverAfterClose),
                         [](const auto& mode) { return "Mode" + std::to_string(mode.param); });

} // namespace
