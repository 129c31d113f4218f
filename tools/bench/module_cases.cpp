#include "tools/bench/agent_service.h"
#include "tools/bench/rig.h"

#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace orvel::bench {

namespace {

constexpr wchar_t kCrashMetric[] = L"eventlog|eventlog_appcrash";
constexpr wchar_t kLaminaMetric[] = L"eventlog|eventlog_lamina";
constexpr wchar_t kCrashPublisher[] = L"Application Error";
constexpr wchar_t kCrashQuery[] = L"*[System[Provider[@Name='Application Error'] and EventID=1000]]";
constexpr wchar_t kLaminaPublisher[] = L"korvex";
constexpr wchar_t kLaminaQuery[] = L"*[System[Provider[@Name='korvex']]]";
constexpr int kThreads = 16;
constexpr int kThreadEvent = 2000;

/// Returns a crash message of about `length` characters, in lines as the system writes them.
std::wstring CrashMessage(size_t length)
{
    std::wstring message = L"Faulting application name: sample.exe, version: 1.0.0.0, time stamp: 0x5f000000";
    for (int line = 1; message.size() < length; ++line) {
        message += L"\r\nFaulting module path: C:\\Program Files\\Sample\\module" + std::to_wstring(line) + L".dll";
    }
    return message;
}

std::wstring Entries(size_t plinths)
{
    std::wstring text;
    for (size_t i = 0; i < plinths; ++i) {
        const std::wstring number = std::to_wstring(10000 + i);
        text += L"\r\nMOUNTED-READ;C:\\SnapVolumes\\plinth" + number + L".vhd;{7d2f1c3e-0000-4000-8000-0000000" +
                number + L"}\r\n";
    }
    return text;
}

/// Returns a logon response with `markers` entries, none of which is terminated.
std::wstring EndlessEntries(size_t markers)
{
    std::wstring text = L"Response 200 from Manager";
    for (size_t i = 0; i < markers; ++i) {
        text += L"MOUNTED-READ;";
    }
    return text;
}

/// The events of all cases.
struct Events {
    explicit Events(Rig& rig)
        : crash200(rig.AddEvent(kCrashPublisher, 1000, CrashMessage(200))),
          crash1000(rig.AddEvent(kCrashPublisher, 1000, CrashMessage(1000))),
          crash20000(rig.AddEvent(kCrashPublisher, 1000, CrashMessage(20000))),
          logon(rig.AddEvent(kLaminaPublisher, 218, L"User is logging in: EXAMPLE\\someone, session 2")),
          logoff(rig.AddEvent(kLaminaPublisher, 218, L"User is logging off")),
          volume(rig.AddEvent(kLaminaPublisher, 218,
                              L"New volume event (mounted): C:\\SnapVolumes\\a.vhd (VolumeType 2)")),
          allDone(rig.AddEvent(kLaminaPublisher, 218, L"Last volume loaded")),
          heartbeat(rig.AddEvent(kLaminaPublisher, 218, L"Heartbeat of the agent, all is well")),
          plinths3(rig.AddEvent(kLaminaPublisher, 218, L"Response 200 from Manager" + Entries(3))),
          plinths1000(rig.AddEvent(kLaminaPublisher, 218, L"Response 200 from Manager" + Entries(1000))),
          endlessFew(rig.AddEvent(kLaminaPublisher, 218, EndlessEntries(3000))),
          endlessMany(rig.AddEvent(kLaminaPublisher, 218, EndlessEntries(30000)))
    {
        for (int i = 0; i < kThreads; ++i) {
            threads.push_back(rig.AddEvent(kCrashPublisher, kThreadEvent + i, CrashMessage(200)));
        }
        rig.LoadEvents();
    }

    const DWORD crash200, crash1000, crash20000, logon, logoff, volume, allDone, heartbeat, plinths3, plinths1000,
        endlessFew, endlessMany;
    std::vector<DWORD> threads;
};

int Rounds(const Report& report)
{
    return report.CountsOnly() ? 10 : 200;
}

/// Returns the own time per item of `many`, divided by that of `few`.
double Growth(int rounds, const std::function<void()>& many, const std::function<void()>& few)
{
    const std::vector<Cost> costs = Measure(rounds, {many, few});
    return costs[0].own / costs[1].own;
}

void RunCrashCases(Rig& rig, Report& report, const Events& events)
{
    constexpr DWORD kEvents = 50;
    const Provider provider = rig.Subscribe(kCrashMetric, kCrashQuery);
    const auto deliver = [&](DWORD event) {
        return [&rig, &provider, event] {
            rig.Collect(provider, kCrashMetric);
            DropSamples();
            rig.Deliver(event, kFirst, kEvents);
        };
    };
    report.Run("crash event, 200 characters", {2.4, 13.1, 3.1, 1240},
               [&] { return Measure(Rounds(report), {deliver(events.crash200)})[0]; });
    report.Run("crash event, 1,000 characters", {4.2, 13.1, 3.1, 4440},
               [&] { return Measure(Rounds(report), {deliver(events.crash1000)})[0]; });
    report.Run("crash event, 20,000 characters", {80, 13.1, 3.1, 83000},
               [&] { return Measure(Rounds(report), {deliver(events.crash20000)})[0]; });
    report.Run("collected crash, 1,000 characters", {0.4, 9.2, 3.1, 2320}, [&] {
        return Measure(Rounds(report), {[&] {
                           rig.Deliver(events.crash1000, kFirst, kEvents);
                           DropSamples();
                           rig.Collect(provider, kCrashMetric);
                       }})[0];
    });
}

void RunLaminaCases(Rig& rig, Report& report, const Events& events)
{
    struct Case {
        const char* name;
        DWORD event;
        DWORD times;
        Bounds bounds;
    };
    const Case cases[] = {
        {"lamina event, nothing to do", events.heartbeat, 50, {0.6, 12, 2, 136}},
        {"lamina event, logon", events.logon, 50, {4, 31.2, 7, 800}},
        {"lamina event, logon response with 3 plinths", events.plinths3, 50, {1.3, 25.3, 8.2, 1700}},
        {"lamina event, volume attached", events.volume, 50, {0.6, 12, 2, 192}},
        {"lamina event, all done", events.allDone, 50, {0.6, 12, 2, 102}},
        {"lamina event, logoff", events.logoff, 50, {0.6, 12, 2, 104}},
    };
    const Provider provider = rig.Subscribe(kLaminaMetric, kLaminaQuery);
    const auto logOn = [&] {
        rig.Deliver(events.logon);
        rig.Deliver(events.plinths3);
        DropSamples();
    };
    for (const Case& c : cases) {
        report.Run(c.name, c.bounds, [&] {
            return Measure(Rounds(report), {[&] {
                               logOn();
                               rig.Deliver(c.event, kFirst, c.times);
                           }})[0];
        });
    }
    report.Run("collected plinth of a thousand", {0.4, 8.1, 3.1, 173}, [&] {
        rig.Deliver(events.logon);
        rig.Deliver(events.plinths1000);
        return Measure(Rounds(report), {[&] { rig.Collect(provider, kLaminaMetric); }})[0];
    });
}

/// Runs the cases whose cost per item must not grow with the amount of data.
void RunGrowthCases(Rig& rig, Report& report, const Events& events)
{
    constexpr char kEventBehind[] = "crash event behind a million, to one behind none";
    constexpr char kCollectedOf[] = "collected crash of a million";
    constexpr DWORD kMany = 1000000;
    constexpr DWORD kFew = 500;
    {
        const Provider full = rig.Subscribe(kCrashMetric, kCrashQuery);
        const Provider bare = rig.Subscribe(kCrashMetric, kCrashQuery, kSecond);
        if (report.IsWanted(kEventBehind) || report.IsWanted(kCollectedOf)) {
            rig.Deliver(events.crash200, kFirst, kMany);
        }
        report.Run(kEventBehind, 1.3, [&] {
            return Growth(
                Rounds(report), [&] { rig.Deliver(events.crash200, kFirst, kFew); },
                [&] {
                    rig.Collect(bare, kCrashMetric);
                    DropSamples();
                    rig.Deliver(events.crash200, kSecond, kFew);
                });
        });
        // The sink refuses the record after the last, so that the rest stays pending.
        report.Run(kCollectedOf, {0.4, 9.2, 3.1, 710},
                   [&] { return Measure(Rounds(report), {[&] { rig.Collect(full, kCrashMetric, kFew); }})[0]; });
    }
    report.Run("entry without end of 30,000, to one of 3,000", 2, [&] {
        const Provider lamina = rig.Subscribe(kLaminaMetric, kLaminaQuery);
        return Growth(
                   50, [&] { rig.Deliver(events.endlessMany); }, [&] { rig.Deliver(events.endlessFew); }) /
               10;
    });
    report.Run("crash event on each of sixteen threads, to one", 1.3, [&] {
        std::vector<Provider> providers;
        for (int i = 0; i < kThreads; ++i) {
            const std::wstring query = L"*[System[EventID=" + std::to_wstring(kThreadEvent + i) + L"]]";
            providers.push_back(rig.Subscribe(kCrashMetric, query.c_str()));
        }
        const auto empty = [&] {
            for (const Provider& provider : providers) {
                rig.Collect(provider, kCrashMetric);
            }
            DropSamples();
        };
        return Growth(
            20,
            [&] {
                empty();
                std::vector<std::jthread> threads;
                for (const DWORD event : events.threads) {
                    threads.emplace_back([&rig, event] { rig.Deliver(event, kFirst, 200); });
                }
            },
            [&] {
                empty();
                for (const DWORD event : events.threads) {
                    rig.Deliver(event, kFirst, 200);
                }
            });
    });
}

void WriteLog(const std::filesystem::path& path, const std::wstring& text)
{
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(text.data()), static_cast<std::streamsize>(text.size() * sizeof(wchar_t)));
    if (!file) {
        throw std::runtime_error("cannot write the agent's log");
    }
}

/// Measures the search of the agent's log at the end of a logon, per entry.
void RunLogCases(Rig& rig, const std::filesystem::path& logs, Report& report, const Events& events)
{
    constexpr size_t kFew = 50;
    constexpr size_t kMany = 1000;
    const std::wstring head = L"Manager status 200 response\r\n";
    const Provider provider = rig.Subscribe(kLaminaMetric, kLaminaQuery);
    const auto search = [&](size_t entries, size_t inBackup) {
        const std::wstring current = (inBackup == 0 ? head : L"") + Entries(entries - inBackup);
        const std::wstring backup = head + Entries(inBackup);
        return [&rig, &logs, &events, current, backup, inBackup] {
            WriteLog(logs / L"korvex.log", std::wstring(inBackup == 0 ? 0 : current.size() + 1, L'x'));
            rig.Deliver(events.logon);
            DropSamples();
            WriteLog(logs / L"korvex.log", current);
            WriteLog(logs / L"korvex_bak.log", std::wstring(current.size() + 1, L'x') + backup);
            rig.Deliver(events.allDone);
        };
    };
    constexpr double kTimes = static_cast<double>(kMany) / kFew;
    report.Run("entry of a log of 1,000, to one of 50", 2,
               [&] { return Growth(50, search(kMany, 0), search(kFew, 0)) / kTimes; });
    report.Run("entry of a log across a rotation, to one of the log", 1.4,
               [&] { return Growth(50, search(kMany, kMany / 2), search(kMany, 0)); });
}

} // namespace

void RunModuleCases(Rig& rig, const std::filesystem::path& agentFolder, Report& report)
{
    const Events events(rig);
    RunCrashCases(rig, report, events);
    if (!report.CountsOnly()) {
        RunGrowthCases(rig, report, events);
    }
    const AgentService service(agentFolder);
    RunLaminaCases(rig, report, events);
    if (!report.CountsOnly()) {
        RunLogCases(rig, agentFolder / L"Logs", report, events);
    }
}

} // namespace orvel::bench
