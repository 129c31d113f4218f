#include "tools/bench/rig.h"

#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace orvel::bench {

namespace {

constexpr DWORD kEvents = 50; // deliveries of an event per round
constexpr wchar_t kLogon[] = L"User is logging in: EXAMPLE\\someone, session 2";
constexpr wchar_t kResponse[] = L"Response 200 from Manager";
constexpr wchar_t kAllDone[] = L"Last volume loaded";

/// Returns the crash metric with events of another ID.
constexpr Metric CrashMetric(int eventId)
{
    return {kCrash.name, kCrash.publisher, eventId};
}

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
    std::wstring text = kResponse;
    for (size_t i = 0; i < markers; ++i) {
        text += L"MOUNTED-READ;";
    }
    return text;
}

struct EventCase {
    const char* name;
    std::wstring message;
    Bounds bounds;
};

/// Measures deliveries of each event after `prepare`.
void RunEventCases(Rig& rig, Report& report, const Metric& metric, const std::function<void()>& prepare,
                   const std::vector<EventCase>& cases)
{
    for (const auto& [name, message, bounds] : cases) {
        const DWORD event = rig.AddEvent(metric, message);
        report.Run(name, bounds, {prepare, [&] { rig.Deliver(event, kEvents); }});
    }
}

void RunCrashCases(Rig& rig, Report& report)
{
    const Provider provider = rig.Subscribe(kCrash);
    const auto collect = [&] { rig.Collect(provider, kCrash); };
    RunEventCases(rig, report, kCrash, collect,
                  {{"crash event, 200 characters", CrashMessage(200), {2.4, 13.1, 3.1, 1240}},
                   {"crash event, 1,000 characters", CrashMessage(1000), {4.2, 13.1, 3.1, 4440}},
                   {"crash event, 20,000 characters", CrashMessage(20000), {80, 13.1, 3.1, 83000}}});
    const DWORD event = rig.AddEvent(kCrash, CrashMessage(1000));
    report.Run("collected crash, 1,000 characters", {0.4, 9.2, 3.1, 2320},
               {[&] { rig.Deliver(event, kEvents); }, collect});
}

void RunLaminaCases(Rig& rig, Report& report)
{
    const std::wstring response = kResponse + Entries(3);
    const Provider provider = rig.Subscribe(kLamina);
    const DWORD logon = rig.AddEvent(kLamina, kLogon);
    const DWORD responded = rig.AddEvent(kLamina, response);
    const auto logOn = [&] {
        rig.Deliver(logon);
        rig.Deliver(responded);
    };
    RunEventCases(rig, report, kLamina, logOn,
                  {{"lamina event, nothing to do", L"Heartbeat of the agent, all is well", {0.6, 12, 2, 136}},
                   {"lamina event, logon", kLogon, {7, 31.2, 7, 800}},
                   {"lamina event, logon response with 3 plinths", response, {1.3, 25.3, 8.2, 1700}},
                   {"lamina event, volume attached",
                    L"New volume event (mounted): C:\\SnapVolumes\\a.vhd (VolumeType 2)",
                    {0.6, 12, 2, 192}},
                   {"lamina event, all done", kAllDone, {0.6, 12, 2, 102}},
                   {"lamina event, logoff", L"User is logging off", {0.6, 12, 2, 104}}});
    rig.Deliver(logon);
    rig.Deliver(rig.AddEvent(kLamina, kResponse + Entries(1000)));
    report.Run("collected plinth of a thousand", {0.4, 8.1, 3.1, 173},
               {.run = [&] { rig.Collect(provider, kLamina); }});
}

/// Runs the cases whose cost per item must not grow with the amount of data.
void RunGrowthCases(Rig& rig, Report& report)
{
    constexpr DWORD kMany = 1000000;
    constexpr DWORD kFew = 500;
    {
        constexpr Metric kOtherCrash = CrashMetric(1001);
        const Provider full = rig.Subscribe(kCrash);
        const Provider bare = rig.Subscribe(kOtherCrash);
        const DWORD toFull = rig.AddEvent(kCrash, CrashMessage(200));
        const DWORD toBare = rig.AddEvent(kOtherCrash, CrashMessage(200));
        bool isFull = false;
        const auto fill = [&] {
            if (!std::exchange(isFull, true)) {
                rig.Deliver(toFull, kMany);
            }
        };
        report.RunGrowth("crash event behind a million, to one behind none", 1.3, 200, 1,
                         {fill, [&] { rig.Deliver(toFull, kFew); }},
                         {[&] { rig.Collect(bare, kCrash); }, [&] { rig.Deliver(toBare, kFew); }});
        // The sink refuses the record after the last, so that the rest stays pending.
        report.Run("collected crash of a million", {0.4, 9.2, 3.1, 710},
                   {fill, [&] { rig.Collect(full, kCrash, kFew); }});
    }
    const Provider lamina = rig.Subscribe(kLamina);
    const DWORD long30000 = rig.AddEvent(kLamina, EndlessEntries(30000));
    const DWORD long3000 = rig.AddEvent(kLamina, EndlessEntries(3000));
    report.RunGrowth("entry without end of 30,000, to one of 3,000", 2, 50, 10,
                     {.run = [&] { rig.Deliver(long30000); }}, {.run = [&] { rig.Deliver(long3000); }});

    constexpr int kThreads = 16;
    std::vector<Provider> providers;
    std::vector<DWORD> events;
    for (int i = 0; i < kThreads; ++i) {
        providers.push_back(rig.Subscribe(CrashMetric(2000 + i)));
        events.push_back(rig.AddEvent(CrashMetric(2000 + i), CrashMessage(200)));
    }
    const auto collect = [&] {
        for (const Provider& provider : providers) {
            rig.Collect(provider, kCrash);
        }
    };
    const auto deliverOnThreads = [&] {
        std::vector<std::jthread> threads;
        for (const DWORD event : events) {
            threads.emplace_back([&rig, event] { rig.Deliver(event, 200); });
        }
    };
    const auto deliver = [&] {
        for (const DWORD event : events) {
            rig.Deliver(event, 200);
        }
    };
    report.RunGrowth("crash event on each of sixteen threads, to one", 1.3, 20, 1, {collect, deliverOnThreads},
                     {collect, deliver});
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
void RunLogCases(Rig& rig, const std::filesystem::path& logs, Report& report)
{
    constexpr size_t kFew = 50;
    constexpr size_t kMany = 1000;
    const std::wstring head = L"Manager status 200 response\r\n";
    const Provider provider = rig.Subscribe(kLamina);
    const DWORD logon = rig.AddEvent(kLamina, kLogon);
    const DWORD allDone = rig.AddEvent(kLamina, kAllDone);
    const auto search = [&](size_t entries, size_t inBackup) {
        const std::wstring current = (inBackup == 0 ? head : L"") + Entries(entries - inBackup);
        const std::wstring backup = head + Entries(inBackup);
        return Work{[&, current, backup, inBackup] {
                        WriteLog(logs / L"korvex.log", std::wstring(inBackup == 0 ? 0 : current.size() + 1, L'x'));
                        rig.Deliver(logon);
                        WriteLog(logs / L"korvex.log", current);
                        WriteLog(logs / L"korvex_bak.log", std::wstring(current.size() + 1, L'x') + backup);
                    },
                    [&] { rig.Deliver(allDone); }};
    };
    report.RunGrowth("entry of a log of 1,000, to one of 50", 2, 50, static_cast<double>(kMany) / kFew,
                     search(kMany, 0), search(kFew, 0));
    report.RunGrowth("entry of a log across a rotation, to one of the log", 1.4, 50, 1, search(kMany, kMany / 2),
                     search(kMany, 0));
}

/// Registers the agent's service, with its executable in `folder`, for this process only: redirects HKEY_LOCAL_MACHINE
/// to a key below HKEY_CURRENT_USER. Meanwhile nothing else is visible there, not even the computer's name.
class AgentService {
public:
    explicit AgentService(const std::filesystem::path& folder)
    {
        const std::wstring executable = (folder / L"agent.exe").wstring();
        HKEY root = nullptr;
        if (RegCreateKeyW(HKEY_CURRENT_USER, kRoot, &root) != ERROR_SUCCESS ||
            RegSetKeyValueW(root, L"SYSTEM\\CurrentControlSet\\services\\korvex", L"ImagePath", REG_SZ,
                            executable.c_str(),
                            static_cast<DWORD>((executable.size() + 1) * sizeof(wchar_t))) != ERROR_SUCCESS ||
            RegOverridePredefKey(HKEY_LOCAL_MACHINE, root) != ERROR_SUCCESS) {
            throw std::runtime_error("cannot write the registry key of the agent's service");
        }
        RegCloseKey(root);
    }
    ~AgentService()
    {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, kRoot);
    }
    AgentService(const AgentService&) = delete;
    AgentService& operator=(const AgentService&) = delete;

private:
    static constexpr wchar_t kRoot[] = L"Software\\OrvelBench";
};

} // namespace

void RunModuleCases(Rig& rig, const std::filesystem::path& agentFolder, Report& report, bool countsOnly)
{
    RunCrashCases(rig, report);
    if (!countsOnly) {
        RunGrowthCases(rig, report);
    }
    const AgentService service(agentFolder);
    RunLaminaCases(rig, report);
    if (!countsOnly) {
        RunLogCases(rig, agentFolder / L"Logs", report);
    }
}

} // namespace orvel::bench
