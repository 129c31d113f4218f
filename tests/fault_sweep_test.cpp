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
    DWORD events = 0;   // delivered to the module
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
    ++run.events;
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

/// The results of its log calls are failures at all times.
class SweptLogger : public RecordingLogger {
public:
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR category, LONG* mask) override
    {
        return run.Fails("GetLogLevels") ? E_FAIL : RecordingLogger::GetLogLevels(category, mask);
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

/// What a metric goes through and may answer, as a file beside the program tells it; sweep/crash.txt says how.
struct Scenario {
    explicit Scenario(const std::string& name);

    std::wstring metric;
    std::wstring publisher;
    std::wstring refused;
    std::vector<std::wstring> phases{1}; // what is played before each collection; nothing fails in the last
    Lines wanted;
    Lines after;
    std::set<std::pair<std::string, std::wstring>> effects; // call and line
};

Scenario::Scenario(const std::string& name)
{
    wchar_t host[64] = L"";
    DWORD size = 64;
    GetComputerNameExW(ComputerNameNetBIOS, host, &size);
    wchar_t folder[MAX_PATH] = L"";
    GetTempPathW(MAX_PATH, folder);
    const std::pair<std::wstring, std::wstring> values[] = {
        {L"%HOST%", host},
        {L"%FOLDER%", folder},
        {L"%DENIED%", ExpectedSuffix(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED))}};
    std::wifstream file("sweep/" + name + ".txt");
    for (std::wstring line; std::getline(file, line);) {
        for (const auto& [placeholder, value] : values) {
            for (size_t at = line.find(placeholder); at != line.npos; at = line.find(placeholder)) {
                line.replace(at, placeholder.size(), value);
            }
        }
        const std::wstring word = line.substr(0, line.find(L' '));
        const std::wstring rest = line.substr(std::min(word.size() + 1, line.size()));
        const size_t space = std::min(rest.find(L' '), rest.size());
        if (word == L"metric" || word == L"publisher" || word == L"refused") {
            (word == L"metric" ? metric : word == L"publisher" ? publisher : refused) = rest;
        } else if (word == L"collect") {
            phases.emplace_back();
        } else if (word == L"replay") {
            phases.back() += rest;
        } else if (word == L"event") {
            const std::wstring second = (space == 1 ? L"0" : L"") + rest.substr(0, space);
            const std::wstring time = L"2024-03-05T07:08:" + second + L"Z";
            phases.back() += Event(rest.substr(space + 1), time.c_str(), publisher.c_str());
        } else if (word == L"wanted" || word == L"after") {
            (word == L"wanted" ? wanted : after).push_back(rest);
        } else if (word == L"effect") {
            for (size_t at = 0; at < space;) {
                const size_t end = std::min(rest.find(L',', at), space);
                effects.emplace(std::string(rest.begin() + static_cast<std::ptrdiff_t>(at),
                                            rest.begin() + static_cast<std::ptrdiff_t>(end)),
                                rest.substr(space + 1));
                at = end + 1;
            }
        } else {
            EXPECT_TRUE(line.empty() || line.starts_with(L'#')) << testing::PrintToString(line);
        }
    }
    EXPECT_TRUE(phases.size() > 1 && !wanted.empty()) << name;
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
            EXPECT_LE(run.events - opened_, failing != 0 ? 1U : 0U) << "one for each event, but for a failed one";
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
        const _bstr_t name(scenario.metric.c_str());
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
        for (size_t phase = 0; phase + 1 < scenario.phases.size(); ++phase) {
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
        LoadEvents(scenario.phases.back());
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
    void Sweep(const std::string& name)
    {
        const Scenario scenario(name);
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
        for (const auto& effect : scenario.effects) {
            EXPECT_TRUE(came_.contains(effect)) << effect.first << ' ' << testing::PrintToString(effect.second);
        }
        std::ofstream figures("fault_sweep_" + name + ".figures");
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
        for (const auto& line : added) {
            // A moment may be that of the event before; the known ones at the end may not.
            EXPECT_TRUE(line.ends_with(run.failed == "VariantClear" ? L" 0x8002000d" : L" 0x8007000e") ||
                        scenario.effects.contains({run.failed, line}) || line.find(L" = #") != line.npos ||
                        std::find(scenario.after.begin(), scenario.after.end(), line) != scenario.after.end())
                << testing::PrintToString(line);
            came_.insert({run.failed, line});
        }
        if (run.failed == "GetLogLevels") {
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
    Sweep("crash");
}

TEST_F(FaultSweepTest, Lamina)
{
    Sweep("lamina");
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\services\\korvex");
}

} // namespace
