#include "tools/bench/agent_service.h"
#include "tools/bench/allocation_counter.h"
#include "tools/bench/rig.h"

#include <thread>
#include <vector>

namespace orvel::bench {

namespace {

using Provider = Microsoft::WRL::ComPtr<IOrvelDataProvider>;

constexpr wchar_t kCrashPublisher[] = L"Application Error";
constexpr wchar_t kCrashQuery[] = L"*[System[Provider[@Name='Application Error'] and EventID=1000]]";
constexpr wchar_t kLaminaPublisher[] = L"korvex";
constexpr wchar_t kLaminaQuery[] = L"*[System[Provider[@Name='korvex']]]";

/// A crash message of about `length` characters, in lines as the system writes them.
std::wstring CrashMessage(size_t length)
{
    std::wstring message = L"Faulting application name: sample.exe, version: 1.0.0.0, time stamp: 0x5f000000";
    for (int line = 1; message.size() < length; ++line) {
        message += L"\r\nFaulting module path: C:\\Program Files\\Sample\\module" + std::to_wstring(line) + L".dll";
    }
    return message;
}

/// A logon response that lists plinths, and where their paths and ids stand in it.
struct Response {
    explicit Response(size_t plinths)
    {
        for (size_t i = 0; i < plinths; ++i) {
            const std::wstring number = std::to_wstring(10000 + i);
            const std::wstring path = L"C:\\SnapVolumes\\plinth" + number + L".vhd";
            const std::wstring id = L"{7d2f1c3e-0000-4000-8000-0000000" + number + L"}";
            message += L"\r\nMOUNTED-READ;";
            slices.push_back({message.size(), path.size(), message.size() + path.size() + 1, id.size()});
            message += path + L";" + id + L"\r\n";
        }
    }
    std::wstring message = L"Response 200 from Manager: LOGIN accepted";
    std::vector<Slice> slices;
};

/// The events of all cases.
struct Events {
    explicit Events(Rig& rig)
    {
        for (const size_t length : {size_t{20}, size_t{200}, size_t{1000}, size_t{20000}}) {
            crashes.push_back(rig.AddEvent(kCrashPublisher, 1000, CrashMessage(length)));
        }
        for (int i = 0; i < kThreads; ++i) {
            threads.push_back(rig.AddEvent(kCrashPublisher, kThreadEvent + i, CrashMessage(200)));
        }
        for (const wchar_t* message : {L"User is logging in: EXAMPLE\\someone, session 2", L"User is logging off",
                                       L"New volume event (mounted): C:\\SnapVolumes\\a.vhd (VolumeType 2)",
                                       L"Last volume loaded", L"Heartbeat of the agent, all is well"}) {
            lamina.push_back(rig.AddEvent(kLaminaPublisher, 218, message));
        }
        for (const Response& response : responses) {
            lamina.push_back(rig.AddEvent(kLaminaPublisher, 218, response.message));
        }
        rig.LoadEvents();
    }

    static constexpr int kThreads = 16;
    static constexpr int kThreadEvent = 2000;
    enum Lamina { kLogon, kLogoff, kVolume, kAllDone, kNothing, kResponse, kResponse100, kResponse1000 };

    const Response responses[3] = {Response(3), Response(100), Response(1000)};
    std::vector<DWORD> crashes; ///< messages of 20 (as it comes), 200, 1,000 and 20,000 characters
    std::vector<DWORD> threads; ///< one for each
    std::vector<DWORD> lamina;
};

/// Delivers an event to the module and to the floor's client.
Pair Both(Rig& rig, DWORD event, DWORD times, std::function<void()> prepare)
{
    return {[&rig, event, times] { rig.Deliver(event, kModule, times); },
            [&rig, event, times] { rig.Deliver(event, kFloor, times); }, std::move(prepare)};
}

void RunCrashCases(Rig& rig, Report& report, const Events& events)
{
    constexpr DWORD kRecords = 100000;
    constexpr DWORD kPart = kRecords / 100;
    const Provider provider = rig.Subscribe(kCrashMetric, kCrashQuery);
    rig.Subscribe(nullptr, kCrashQuery, kFloor);
    const auto empty = [&] {
        rig.Collect(*provider.Get(), kCrashMetric);
        rig.floor.texts.clear();
    };
    rig.floor.duty = FloorClient::Duty::Crash;
    report.Add(Compare("crash event, 200 characters", 1.10, 300, Both(rig, events.crashes[1], 100, empty)));
    report.Add(Compare("crash event, 1,000 characters", 1.10, 300, Both(rig, events.crashes[2], 100, empty)));
    report.Add(Compare("crash event, 20,000 characters", 1.10, 300, Both(rig, events.crashes[3], 20, empty)));
    empty();

    // In parts: the sink refuses the record after the last of a part, so that the rest stays pending.
    rig.Deliver(events.crashes[1], kModule, kRecords);
    rig.Deliver(events.crashes[1], kFloor, kRecords);
    report.Add(Compare("collection of 100,000 crashes", 1.10, 97,
                       {[&] { rig.Collect(*provider.Get(), kCrashMetric, kPart); },
                        [&] { rig.floor.WriteTexts(rig.sink, kPart); }, nullptr}));
    empty();
}

void RunLaminaCases(Rig& rig, const std::wstring& agentFolder, Report& report, const Events& events)
{
    struct Case {
        const char* name;
        Events::Lamina event;
        double goal;
        int questions;
    };
    constexpr Case kCases[] = {
        {"lamina event, nothing to do", Events::kNothing, 1.05, 0},
        {"lamina event, logon", Events::kLogon, 1.10, 0},
        {"lamina event, logon response with 3 plinths", Events::kResponse, 1.10, 1},
        {"lamina event, logon response with 1,000 plinths", Events::kResponse1000, 1.10, 1},
        {"lamina event, volume attached", Events::kVolume, 1.10, 0},
        {"lamina event, all done", Events::kAllDone, 1.10, 0},
        {"lamina event, logoff", Events::kLogoff, 1.10, 0},
    };
    const AgentService service(agentFolder);
    const Provider provider = rig.Subscribe(kLaminaMetric, kLaminaQuery);
    rig.Subscribe(nullptr, kLaminaQuery, kFloor);
    const auto logOn = [&] {
        rig.Deliver(events.lamina[Events::kLogon], kModule, 1);
        rig.Deliver(events.lamina[Events::kResponse], kModule, 1);
        std::vector<Part>().swap(rig.floor.parts); // the module gives its storage back, too
    };
    for (const Case& c : kCases) {
        rig.floor.duty = c.event == Events::kLogon ? FloorClient::Duty::LaminaLogon : FloorClient::Duty::Lamina;
        rig.floor.questions = c.questions;
        rig.floor.slices =
            c.event >= Events::kResponse ? events.responses[c.event - Events::kResponse].slices : std::vector<Slice>();
        report.Add(Compare(c.name, c.goal, 300,
                           Both(rig, events.lamina[c.event], c.event > Events::kResponse ? 1 : 50, logOn)));
    }
}

/// Allocations per item against the least number of them; `work` handles `items` items.
void Count(Report& report, const char* name, double least, DWORD items, const std::function<void()>& work)
{
    AllocationCounter::Take();
    work();
    report.Add({name, static_cast<double>(AllocationCounter::Take()) / items / least, 1.02, 0});
}

void RunCounts(Rig& rig, Report& report, const Events& events)
{
    constexpr DWORD kItems = 1200;
    constexpr DWORD kPlinths = 1000;
    const Provider crashes = rig.Subscribe(kCrashMetric, kCrashQuery);
    const Provider lamina = rig.Subscribe(kLaminaMetric, kLaminaQuery);
    rig.Deliver(events.crashes[1], kModule, kItems); // all that is allocated once only
    rig.Collect(*crashes.Get(), kCrashMetric);
    rig.Deliver(events.lamina[Events::kNothing], kModule, 1);

    const AllocationCounter counter(rig.module);
    // The buffers of the values, the message and the time line, the time line, the record's text.
    Count(report, "allocations of a crash event", 5, kItems, [&] { rig.Deliver(events.crashes[1], kModule, kItems); });
    // Key, instance and value.
    const long long held = AllocationCounter::HeldBytes();
    rig.sink.textBytes = 0;
    Count(report, "allocations of a collected crash", 3, kItems, [&] { rig.Collect(*crashes.Get(), kCrashMetric); });
    const auto beyond = static_cast<double>(held - AllocationCounter::HeldBytes() - rig.sink.textBytes);
    report.Add({"memory of a pending crash beyond its text, in 64 bytes", beyond / kItems / 64, 1, 0});
    // The buffers of the values and of the message.
    rig.logger.asked = 0;
    Count(report, "allocations of a lamina event, log off", 2, kItems,
          [&] { rig.Deliver(events.lamina[Events::kNothing], kModule, kItems); });
    report.Add({"log level questions of a lamina event", static_cast<double>(rig.logger.asked) / kItems, 1, 0});
    rig.Deliver(events.lamina[Events::kResponse1000], kModule, 1);
    Count(report, "allocations of a collected plinth", 3, kPlinths, [&] { rig.Collect(*lamina.Get(), kLaminaMetric); });
}

void RunScaleCases(Rig& rig, Report& report, const Events& events)
{
    constexpr DWORD kMany = 1000000;
    constexpr DWORD kFew = 5000;
    const DWORD event = events.crashes[0];
    {
        const Provider many = rig.Subscribe(kLaminaMetric, kLaminaQuery);
        const Provider few = rig.Subscribe(kLaminaMetric, kLaminaQuery, kOther);
        rig.Deliver(events.lamina[Events::kResponse1000], kModule, 1);
        rig.Deliver(events.lamina[Events::kResponse100], kOther, 1);
        report.Add(Compare("collected plinth of a thousand", 1.10, 300,
                           {[&] { rig.Collect(*many.Get(), kLaminaMetric); },
                            [&] {
                                for (int i = 0; i < 10; ++i) {
                                    rig.Collect(*few.Get(), kLaminaMetric);
                                }
                            },
                            nullptr}));
    }
    {
        const Provider full = rig.Subscribe(kCrashMetric, kCrashQuery);
        const Provider bare = rig.Subscribe(kCrashMetric, kCrashQuery, kOther);
        rig.Deliver(event, kModule, kMany);
        report.Add(Compare("crash event behind a million pending ones", 1.10, 30,
                           {[&] { rig.Deliver(event, kModule, kFew); }, [&] { rig.Deliver(event, kOther, kFew); },
                            [&] { rig.Collect(*bare.Get(), kCrashMetric); }}));
        // The sink refuses the one after the last, so that the rest stays.
        report.Add(Compare("collected crash of a million", 1.10, 30,
                           {[&] { rig.Collect(*full.Get(), kCrashMetric, kFew); },
                            [&] { rig.Collect(*bare.Get(), kCrashMetric, kFew); },
                            [&] {
                                rig.Collect(*bare.Get(), kCrashMetric);
                                rig.Deliver(event, kOther, kFew);
                            }}));
    }
}

/// Sixteen subscriptions, each delivered to by a thread of its own.
void RunThreadCase(Rig& rig, Report& report, const Events& events)
{
    std::vector<Provider> providers;
    std::vector<std::unique_ptr<FloorClient>> clients;
    for (int i = 0; i < Events::kThreads; ++i) {
        const std::wstring query = L"*[System[EventID=" + std::to_wstring(Events::kThreadEvent + i) + L"]]";
        providers.push_back(rig.Subscribe(kCrashMetric, query.c_str()));
        clients.push_back(std::make_unique<FloorClient>(rig.replay, rig.logger, L""));
        clients.back()->Subscribe(L"System", query.c_str());
    }
    const auto deliver = [&](Receiver receiver) {
        std::vector<std::thread> threads;
        for (const DWORD event : events.threads) {
            threads.emplace_back([&rig, event, receiver] { rig.Deliver(event, receiver, 200); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    };
    report.Add(Compare("crash event, sixteen threads", 1.10, 100,
                       {[&] { deliver(kModule); }, [&] { deliver(kFloor); },
                        [&] {
                            for (int i = 0; i < Events::kThreads; ++i) {
                                rig.Collect(*providers[static_cast<size_t>(i)].Get(), kCrashMetric);
                                clients[static_cast<size_t>(i)]->texts.clear();
                            }
                        }}));
}

} // namespace

void RunEventCases(Rig& rig, const std::wstring& agentFolder, Report& report)
{
    const Events events(rig);
    RunLaminaCases(rig, agentFolder, report, events); // before the heap has held a hundred thousand records
    RunCrashCases(rig, report, events);
    RunCounts(rig, report, events);
    RunScaleCases(rig, report, events);
    RunThreadCase(rig, report, events);
}

} // namespace orvel::bench
