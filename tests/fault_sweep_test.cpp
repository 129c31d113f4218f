// Every call that the module makes out of itself, to the platform, the runtime and its host, fails once: a scenario is
// run again and again, each time with the next of its calls failing as that call is documented to fail.

#include "tests/support/module_under_test.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <string_view>
#include <tuple>
#include <type_traits>

namespace {

/// What the hooks below know of the current run. One thread: the replay log delivers on the caller's own.
struct Run {
    bool isCounting = false;
    int calls = 0;
    int failing = 0;    // the number of the call that is to fail, from 1
    std::string failed; // its name, once it came
    std::map<std::pair<std::string_view, const void*>, std::string_view> open; // closer and handle: who opened it

    bool Fails(const char* call)
    {
        const bool fails = isCounting && ++calls == failing;
        if (fails) {
            failed = call;
        }
        return fails;
    }
};
Run run;
Lines transcript; // what the host saw: results, lines, values

/// A call of the module and its result, thrown or returned.
template <typename Call>
HRESULT Step(const std::wstring& name, const Call& call)
{
    HRESULT hr = S_OK;
    try {
        hr = call();
    } catch (const _com_error& error) {
        hr = error.Error();
    }
    wchar_t code[16];
    _snwprintf(code, 16, L" 0x%08lx", hr);
    transcript.push_back(name + code);
    return hr;
}

// What is thrown from an event would end the platform's thread; here it ends where the test can see it.
EVT_SUBSCRIBE_CALLBACK moduleCallback;
DWORD WINAPI CatchInDelivery(EVT_SUBSCRIBE_NOTIFY_ACTION action, void* context, EVT_HANDLE event)
{
    Step(L"event", [&] { return static_cast<HRESULT>(moduleCallback(action, context, event)); });
    return ERROR_SUCCESS;
}
template <typename Argument>
void WrapCallback(Argument& argument)
{
    if constexpr (std::is_same_v<Argument, EVT_SUBSCRIBE_CALLBACK>) {
        moduleCallback = std::exchange(argument, &CatchInDelivery);
    }
}

template <size_t size>
struct Name {
    consteval Name(const char (&literal)[size]) { std::copy_n(literal, size, text); }
    char text[size]{};
};

/// One import. `kCloser` names the function that gives back what this one opens: its result, or what its fifth argument
/// points to. A closer names itself; it does its work even when it fails, so that the books show the module's doing.
template <Name kName, Name kCloser, bool kCanFail, typename Function>
struct Hook;
template <Name kName, Name kCloser, bool kCanFail, typename Result, typename... Arguments>
struct Hook<kName, kCloser, kCanFail, Result(Arguments...)> {
    static constexpr std::string_view kMe = kName.text;
    static constexpr std::string_view kCloses = kCloser.text;
    static inline Result (*real)(Arguments...);
    static inline std::conditional_t<std::is_void_v<Result>, int, Result> failure;
    static inline DWORD error;

    static Result Call(Arguments... arguments)
    {
        const auto all = std::tie(arguments...);
        if constexpr (kMe == kCloses) {
            auto* const closed = std::get<sizeof...(Arguments) - 1>(all);
            if constexpr (std::is_same_v<decltype(closed), VARIANT* const>) {
                run.open.erase({"SysFreeString", closed->vt == VT_BSTR ? closed->bstrVal : nullptr});
            }
            run.open.erase({kCloses, closed});
        }
        if constexpr (std::is_void_v<Result>) {
            real(arguments...);
        } else {
            const bool fails = kCanFail && run.Fails(kName.text);
            (WrapCallback(arguments), ...);
            Result result = fails && kMe != kCloses ? failure : real(arguments...);
            if (fails) {
                SetLastError(error);
                return failure;
            }
            if constexpr (!kCloses.empty() && kMe != kCloses) {
                const void* opened = nullptr;
                if constexpr (std::is_pointer_v<Result>) {
                    opened = result;
                } else if ((result == 0) == (kMe == "RegOpenKeyExW")) {
                    opened = *reinterpret_cast<void**>(std::get<4>(all));
                }
                if (opened != nullptr && opened != INVALID_HANDLE_VALUE) {
                    run.open[{kCloses, opened}] = kMe;
                }
            }
            return result;
        }
    }
};

template <Name kName, Name kCloser, typename Function, bool kCanFail = true, typename Failure>
void Replace(HMODULE module, Failure failure, DWORD error = ERROR_ACCESS_DENIED)
{
    using This = Hook<kName, kCloser, kCanFail, Function>;
    This::failure = failure;
    This::error = error;
    This::real = reinterpret_cast<Function*>(
        ImportPatch::Exchange(ImportPatch::FindSlot(module, kName.text), reinterpret_cast<void*>(&This::Call)));
}

template <bool kCanFail>
void ReplaceStrings(HMODULE module)
{
    Replace<"SysFreeString", "SysFreeString", decltype(SysFreeString), kCanFail>(module, 0);
    Replace<"SysAllocString", "SysFreeString", decltype(SysAllocString), kCanFail>(module, BSTR{});
    Replace<"SysAllocStringLen", "SysFreeString", decltype(SysAllocStringLen), kCanFail>(module, BSTR{});
}

void ReplaceImports(HMODULE module)
{
    const auto noHandle = INVALID_HANDLE_VALUE;
    ReplaceStrings<true>(module);
    Replace<"VariantClear", "VariantClear", decltype(VariantClear)>(module, DISP_E_ARRAYISLOCKED);
    Replace<"free", "free", void(void*)>(module, 0);
    Replace<"malloc", "free", void*(size_t)>(module, nullptr);
    Replace<"calloc", "free", void*(size_t, size_t)>(module, nullptr);
    Replace<"HeapAlloc", "HeapFree", decltype(HeapAlloc)>(module, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    Replace<"HeapFree", "HeapFree", decltype(HeapFree)>(module, FALSE);
    Replace<"EvtSubscribe", "EvtClose", decltype(EvtSubscribe)>(module, EVT_HANDLE{});
    Replace<"EvtCreateRenderContext", "EvtClose", decltype(EvtCreateRenderContext)>(module, EVT_HANDLE{});
    Replace<"EvtOpenPublisherMetadata", "EvtClose", decltype(EvtOpenPublisherMetadata)>(module, EVT_HANDLE{});
    Replace<"EvtRender", "", decltype(EvtRender)>(module, FALSE);
    Replace<"EvtFormatMessage", "", decltype(EvtFormatMessage)>(module, FALSE);
    Replace<"EvtClose", "EvtClose", decltype(EvtClose)>(module, FALSE);
    Replace<"RegOpenKeyExW", "RegCloseKey", decltype(RegOpenKeyExW)>(module, ERROR_ACCESS_DENIED);
    Replace<"RegQueryValueExW", "", decltype(RegQueryValueExW)>(module, ERROR_ACCESS_DENIED);
    Replace<"RegCloseKey", "RegCloseKey", decltype(RegCloseKey)>(module, ERROR_ACCESS_DENIED);
    Replace<"CreateFileW", "CloseHandle", decltype(CreateFileW)>(module, noHandle);
    Replace<"GetFileSizeEx", "", decltype(GetFileSizeEx)>(module, FALSE);
    Replace<"SetFilePointerEx", "", decltype(SetFilePointerEx)>(module, FALSE);
    Replace<"ReadFile", "", decltype(ReadFile)>(module, FALSE);
    Replace<"CloseHandle", "CloseHandle", decltype(CloseHandle)>(module, FALSE);
    Replace<"FormatMessageW", "LocalFree", decltype(FormatMessageW)>(module, 0U);
    Replace<"LocalFree", "LocalFree", decltype(LocalFree)>(module, noHandle);
    Replace<"GetComputerNameExW", "", decltype(GetComputerNameExW)>(module, FALSE);
    Replace<"FileTimeToSystemTime", "", decltype(FileTimeToSystemTime)>(module, FALSE);
}

class SweptLogger : public RecordingLogger {
public:
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR category, LONG* mask) override
    {
        return run.Fails("GetLogLevels") ? E_FAIL : RecordingLogger::GetLogLevels(category, mask);
    }
    HRESULT STDMETHODCALLTYPE LogError(BSTR category, BSTR text) override
    {
        return run.Fails("Log") ? E_FAIL : RecordingLogger::LogError(category, text);
    }
    HRESULT STDMETHODCALLTYPE LogWarning(BSTR category, BSTR text) override
    {
        return run.Fails("Log") ? E_FAIL : RecordingLogger::LogWarning(category, text);
    }
    HRESULT STDMETHODCALLTYPE LogInfo(BSTR category, BSTR text) override
    {
        return run.Fails("Log") ? E_FAIL : RecordingLogger::LogInfo(category, text);
    }
};

/// Keeps only what it accepts.
class SweptSink : public RecordingSink {
public:
    HRESULT STDMETHODCALLTYPE WriteMetric(BSTR key, BSTR instance, VARIANT value) override
    {
        const bool refuses = key == refusedOnce || run.Fails("WriteMetric");
        refusedOnce = key == refusedOnce ? L"" : refusedOnce;
        return refuses ? E_ACCESSDENIED : RecordingSink::WriteMetric(key, instance, value);
    }
    std::wstring refusedOnce; // a key
};

/// What a metric goes through: events before its collections, and in the end events whose values are known.
struct Scenario {
    const wchar_t* metric;
    const wchar_t* refused;           // a key whose first value the sink refuses anyway
    std::vector<std::wstring> phases; // what is played before each collection
    std::wstring last;
    Lines wanted;
    Lines aftermath;                      // what an event that was lost, or a logon that was not prepared, leads to
    std::map<std::string, Lines> effects; // by call: what its failures bring, besides what they throw or keep back
};

Scenario CrashScenario()
{
    wchar_t name[64] = L"";
    DWORD size = 64;
    GetComputerNameExW(ComputerNameNetBIOS, name, &size);
    const std::wstring time = L"<br />Crash Time: 2024-03-05 07:08:09";
    const std::wstring host = std::wstring(L"<br />Host Name: ") + name;
    const std::wstring details = L"appcrash|crash_details|* [1] = ";
    const std::wstring denied = ExpectedSuffix(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    const Lines timeless = {details + L"first" + host, details + L"second" + host};
    return {kCrash,
            L"appcrash|contained",
            {Event(L"first"), L"", L"", Event(L"second"), L"", L""},
            Event(L"last"),
            {L"appcrash|contained [appcrash|contained] = true", details + L"last" + time + host},
            {},
            {{"EvtCreateRenderContext", timeless},
             {"EvtRender", timeless},
             {"FileTimeToSystemTime", timeless},
             {"calloc", timeless},
             {"GetComputerNameExW",
              {L"E Failed to query the NetBIOS name buffer length",
               L"E Failed to query the NetBIOS name of the local machine" + denied, details + L"first" + time}},
             {"FormatMessageW",
              {L"E Failed to write metric flag 'appcrash|contained'.  Error code 0x80070005.",
               L"E Failed to subscribe metric 'Eventlog|eventlog_appcrash'.  Error code 0x80070490."}},
             {"WriteMetric", {L"E Failed to collect metric 'appcrash|crash_details|*'." + denied}}}};
}

constexpr wchar_t kLamina[] = L"eventlog|eventlog_lamina";
constexpr wchar_t kServiceKey[] = L"SYSTEM\\CurrentControlSet\\services\\korvex";

std::wstring AgentEvent(const std::wstring& message, int second)
{
    const std::wstring time = L"2024-03-05T07:08:" + std::to_wstring(second) + L"Z";
    return Event(message, time.c_str(), L"korvex", 1);
}

Scenario LaminaScenario()
{
    const std::wstring response = L"Manager status 200 response\r\n";
    const auto entry = [](const std::wstring& id) { return L"MOUNTED-READ;C:\\" + id + L".vhd;" + id + L"\r\n"; };
    const auto file = [](const wchar_t* action, const std::wstring& name, const std::wstring& text) {
        return std::wstring(L"<replay:") + action + L" file='%TEMP%\\orvel-sweep\\Logs\\" + name + L"'>" + text +
               L"</replay:" + action + L">";
    };
    const auto value = [](const std::wstring& key, const std::wstring& name, const std::wstring& text) {
        return L"<replay:registry root='HKLM' key='" + (kServiceKey + key) + L"' name='" + name + L"'>" + text +
               L"</replay:registry>";
    };
    wchar_t folder[MAX_PATH] = L"";
    GetTempPathW(MAX_PATH, folder);
    const std::wstring rotate = L"<replay:rename from='%TEMP%\\orvel-sweep\\Logs\\korvex.log' "
                                L"to='%TEMP%\\orvel-sweep\\Logs\\korvex_bak.log'/>";
    const std::wstring logon = AgentEvent(L"User is logging in", 10);
    const std::wstring done = AgentEvent(L"Last volume loaded", 13);
    const auto grown = [&](const std::wstring& text) { return file(L"append", L"korvex.log", text); };
    const Lines known = {L"lamina|logon_timestamp [lamina] = #1709622491000",
                         L"lamina|logon_response_timestamp [lamina] = #1709622492000",
                         L"lamina|volumes_ready_timestamp [lamina] = #1709622493000",
                         L"lamina|all_done_timestamp [lamina] = #1709622494000",
                         L"lamina|mgr [lamina|mgr] = manager",
                         L"lamina|instances [lamina|instances] = true",
                         L"lamina|instances|* [e] = C:\\e.vhd"};
    const auto refused = [](const std::wstring& key) { return L"E Failed to collect metric 'lamina|" + key + L"'."; };
    const std::wstring denied = ExpectedSuffix(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    const std::wstring noManager = L"W Failed to get Lamina Manager host information from registry.  Error code ";
    const std::wstring managerNotFound = L"I Not found the manager host in registry.";
    const std::wstring noTime = L"I Not got time stamps for lamina event.";
    return {kLamina,
            L"lamina|logon_timestamp",
            {value(L"", L"ImagePath", folder + std::wstring(L"orvel-sweep\\agent.exe")) +
                 value(L"\\Parameters", L"Manager1", L"manager:443") + file(L"write", L"korvex.log", L"before\r\n") +
                 file(L"write", L"korvex_bak.log", L"") + logon + grown(response + entry(L"a")) +
                 AgentEvent(L"Response 200 from Manager", 11) +
                 AgentEvent(L"New volume event (mounted): (VolumeType 2)", 12) + done,
             L"", logon + grown(response + entry(L"b")) + rotate + grown(entry(L"c")) + done,
             logon + grown(response + entry(L"d")) + rotate + done},
            AgentEvent(L"User is logging off", 14) + AgentEvent(L"User is logging in", 11) +
                AgentEvent(L"Response received from Manager LOGIN " + entry(L"e"), 12) +
                AgentEvent(L"New volume finished processing VolumeType: 2", 13) +
                AgentEvent(L"All volumes finished processing", 14),
            known,
            {L"I No plinth mounted.", noTime, L"I No logs collected", L"E Failed to find login response from the log",
             L"E Failed to open backup log file, error: 2"},
            {{"CreateFileW", {L"E Failed to open log file, error: 5", L"E Failed to open backup log file, error: 5"}},
             {"GetFileSizeEx", {L"E Failed to get log file size, error: 5"}},
             {"SetFilePointerEx", {L"E Failed to set file pointer, error: 5"}},
             {"ReadFile",
              {L"E Failed to read from log file, error: 5", L"E Failed to read from backup log, error: 5",
               L"E Failed to read logs, error: 5"}},
             {"RegOpenKeyExW",
              {L"E Failed to open registry key for korvex, error: 5", noManager + L"0x80070005.", managerNotFound}},
             {"RegQueryValueExW",
              {L"E Failed to query value ImagePath, error: 5", noManager + L"0x80070005.", managerNotFound}},
             {"HeapAlloc", {noManager + L"0x8007000e.", managerNotFound}},
             {"EvtCreateRenderContext", {noTime}},
             {"EvtRender", {noTime}},
             {"EvtFormatMessage", {L"I Lamina Agent Event: "}},
             {"calloc", {noTime, L"I Lamina Agent Event: "}},
             {"FormatMessageW",
              {refused(L"logon_timestamp") + L"  Error code 0x80070005.",
               L"E Failed to write attach time metrics.  Error code 0x80070005.",
               L"E Failed to subscribe metric 'Eventlog|eventlog_lamina'.  Error code 0x80070490."}},
             {"WriteMetric",
              {refused(L"logon_response_timestamp") + denied, refused(L"volumes_ready_timestamp") + denied,
               refused(L"all_done_timestamp") + denied, refused(L"mgr") + denied, refused(L"instances|*") + denied,
               L"E Failed to write metric flag 'lamina|instances'." + denied, L"collect 0x80070005"}}}};
}

class FaultSweepTest : public testing::Test {
protected:
    /// One run; gives what the host saw.
    Lines Play(const Scenario& scenario, int failing)
    {
        run = {};
        run.failing = failing;
        transcript.clear();
        {
            SweptLogger logger;
            HostObject host;
            SweptSink sink;
            const ModuleUnderTest module;
            ReplaceImports(module.handle());
            Replay().SetMode(ReplayOnCallingThread);
            const DWORD publishers = Replay().OpenHandles(ReplayPublisherHandle);
            const DWORD contexts = Replay().OpenHandles(ReplayContextHandle);
            Host(scenario, module, logger, host, sink);
            EXPECT_EQ(Replay().OpenHandles(ReplayPublisherHandle), publishers + opened_);
            EXPECT_EQ(Replay().OpenHandles(ReplayContextHandle), contexts);
            EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 0U);
        }
        EXPECT_EQ(GetModuleHandleW(L"Orvel_eventlog.dll"), nullptr);
        for (const auto& [handle, opener] : run.open) {
            if (opener != "EvtOpenPublisherMetadata") {
                ADD_FAILURE() << opener << " was not given back: " << handle.second;
            }
        }
        return transcript;
    }

    /// What lack of memory made fail must succeed when it is tried again.
    template <typename Call>
    void Insist(const wchar_t* name, const Call& call)
    {
        if (Step(name, call) == E_OUTOFMEMORY) {
            EXPECT_EQ(Step(name, call), S_OK);
        }
    }

    void Host(const Scenario& scenario, const ModuleUnderTest& module, SweptLogger& logger, HostObject& host,
              SweptSink& sink)
    {
        const _bstr_t name(scenario.metric);
        const auto good = Configuration();
        const auto bad = Configuration(L"<metric><channel>Application</channel></metric>");
        // The texts that the configuration gives are the module's to free; the parser's own failures are not swept.
        [[maybe_unused]] static const bool once = (ReplaceStrings<false>(GetModuleHandleW(L"msxml3.dll")), true);
        ComPtr<IOrvelDataProvider> provider;
        const auto collect = [&] { return provider->QueryMetricEx(name, 0, &sink); };
        const auto subscribe = [&] { return provider->SubscribeMetric(name, good.Get()); };
        const auto unsubscribe = [&] { return provider->UnsubscribeMetric(name); };
        sink.refusedOnce = scenario.refused;
        run.isCounting = true;
        Insist(L"create", [&] {
            ComPtr<IClassFactory> factory;
            const HRESULT hr =
                module.GetClassObject(IID_IClassFactory, reinterpret_cast<void**>(factory.GetAddressOf()));
            return FAILED(hr) ? hr
                              : factory->CreateInstance(nullptr, __uuidof(IOrvelDataProvider),
                                                        reinterpret_cast<void**>(provider.ReleaseAndGetAddressOf()));
        });
        EXPECT_EQ(provider->SetHost(&logger, &host), S_OK);
        Insist(L"subscribe", subscribe);
        for (size_t phase = 0; phase < scenario.phases.size(); ++phase) {
            if (!scenario.phases[phase].empty()) {
                LoadEvents(scenario.phases[phase]);
                EXPECT_EQ(Replay().Play(nullptr, nullptr), 0U);
            }
            Step(L"collect", collect);
        }
        // The fault is over: from here on everything must be right again.
        run.isCounting = false;
        sink.refusedOnce.clear();
        if (Replay().OpenHandles(ReplaySubscriptionHandle) == 0) {
            EXPECT_EQ(unsubscribe(), S_OK);
            EXPECT_EQ(subscribe(), S_OK);
        }
        for (const auto& line : sink.Take()) {
            // Whatever went wrong, nothing may be reported twice that is to be reported once.
            EXPECT_TRUE(line.find(L"|crash_details") == line.npos || Count(line) == 0) << testing::PrintToString(line);
            transcript.push_back(line);
        }
        LoadEvents(scenario.last);
        EXPECT_EQ(Replay().Play(nullptr, nullptr), 0U);
        EXPECT_EQ(collect(), S_OK);
        EXPECT_EQ(sink.Take(), scenario.wanted);
        opened_ = Replay().Calls(ReplayEvtOpenPublisherMetadata);
        run.isCounting = true;
        const _bstr_t other(std::wstring(scenario.metric).replace(0, 1, L"E").c_str());
        Step(L"subscribe without a query", [&] { return provider->SubscribeMetric(other, bad.Get()); });
        Insist(L"unsubscribe", unsubscribe);
        Insist(L"unsubscribe all", [&] { return provider->UnsubscribeAll(); });
        provider.Reset();
        for (const auto& line : logger.Take()) {
            transcript.push_back(line);
        }
        run.isCounting = false;
    }

    static std::ptrdiff_t Count(const std::wstring& line)
    {
        return std::count(transcript.begin(), transcript.end(), line);
    }

    /// Fails each call in turn.
    void Sweep(const char* name, const Scenario& scenario)
    {
        const Lines baseline = Play(scenario, 0);
        const int calls = run.calls;
        std::map<std::string, int> counts;
        for (int call = 1; call <= calls && !HasFatalFailure(); ++call) {
            SCOPED_TRACE(testing::Message() << "call " << call);
            const Lines seen = Play(scenario, call);
            SCOPED_TRACE(run.failed);
            ++counts[run.failed];
            Check(scenario, baseline, seen);
        }
        for (const auto& [call, lines] : scenario.effects) {
            for (const auto& line : lines) {
                EXPECT_TRUE(came_.contains({call, line})) << call << ' ' << testing::PrintToString(line);
            }
        }
        std::ofstream figures("fault_sweep_" + std::string(name) + ".figures");
        figures << "Fault sweep, " << name << " metric: " << calls << " calls failed, one at a time:";
        for (const auto& [call, count] : counts) {
            figures << ' ' << call << ' ' << count;
        }
        figures << '\n';
    }

    void Check(const Scenario& scenario, const Lines& baseline, const Lines& seen)
    {
        static const std::set<std::string> silent = {
            "EvtClose", "EvtOpenPublisherMetadata", "CloseHandle", "HeapFree", "RegCloseKey", "LocalFree"};
        if (silent.contains(run.failed)) {
            EXPECT_EQ(seen, baseline);
            return;
        }
        std::set<std::wstring> added(seen.begin(), seen.end());
        for (const auto& line : baseline) {
            added.erase(line);
        }
        const auto row = scenario.effects.find(run.failed);
        const auto isIn = [](const Lines& lines, const std::wstring& line) {
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        };
        for (const auto& line : added) {
            // A moment may be that of the event before; the known ones at the end may not.
            EXPECT_TRUE(line.ends_with(run.failed == "VariantClear" ? L" 0x8002000d" : L" 0x8007000e") ||
                        (row != scenario.effects.end() && isIn(row->second, line)) || isIn(scenario.aftermath, line) ||
                        line.find(L" = #") != line.npos)
                << testing::PrintToString(line);
            came_.insert({run.failed, line});
        }
        if (run.failed == "GetLogLevels" || run.failed == "Log") {
            EXPECT_TRUE(seen.size() + 1 == baseline.size() && added.empty()) << "one line is lost, and nothing else";
        } else if (run.failed != "VariantClear") { // also called to clean up, when nobody can be told
            EXPECT_NE(seen, baseline) << "a failure that nobody saw";
        }
    }

    std::set<std::pair<std::string, std::wstring>> came_;
    DWORD opened_ = 0;
};

TEST_F(FaultSweepTest, Crash)
{
    Sweep("crash", CrashScenario());
}

TEST_F(FaultSweepTest, Lamina)
{
    Sweep("lamina", LaminaScenario());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kServiceKey);
}

} // namespace
