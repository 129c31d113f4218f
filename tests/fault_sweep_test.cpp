// Makes every call of the module to the platform, the C runtime and its host fail once: runs a scenario again and
// again, each time with the next of its calls failing as that call is documented to fail.

#include "tests/support/module_under_test.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string_view>
#include <tuple>
#include <type_traits>

namespace {

Lines transcript; // what the host saw, step by step: lines, values, results

/// The state of the current run. It has one thread: the replay log delivers on the caller's own.
struct Run {
    bool isCounting = false;
    int calls = 0;
    int failing = 0;    // the number of the call that is to fail, from 1
    std::string failed; // its name, once it has failed
    size_t before = 0;  // the length of the transcript then
    DWORD events = 0;   // delivered to the module
    std::map<std::pair<std::string_view, const void*>, std::string_view> open; // closer and handle: who opened it

    bool Fails(const char* call)
    {
        const bool fails = isCounting && ++calls == failing;
        if (fails) {
            failed = call;
            before = transcript.size();
        }
        return fails;
    }
};
Run run;

/// Its log calls always return failures.
class SweptLogger : public RecordingLogger {
public:
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR category, LONG* mask) override
    {
        return run.Fails("GetLogLevels") ? E_FAIL : RecordingLogger::GetLogLevels(category, mask);
    }
};
SweptLogger* logger;

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
SweptSink* sink;

/// Makes a call of the module and returns its result or what it threw.
HRESULT Step(const std::wstring& name, const std::function<HRESULT()>& call)
{
    HRESULT hr = S_OK;
    try {
        hr = call();
    } catch (const _com_error& error) {
        hr = error.Error();
    }
    std::ranges::move(logger->Take(), std::back_inserter(transcript));
    std::ranges::move(sink->Take(), std::back_inserter(transcript));
    wchar_t code[16];
    _snwprintf(code, 16, L" 0x%08lx", hr);
    transcript.push_back(name + code);
    return hr;
}

// An exception from a delivery would end the platform's thread, so it is caught and recorded here.
EVT_SUBSCRIBE_CALLBACK moduleCallback;
DWORD WINAPI CatchInDelivery(EVT_SUBSCRIBE_NOTIFY_ACTION action, void* context, EVT_HANDLE event)
{
    ++run.events;
    Step(L"event", [&] { return static_cast<HRESULT>(moduleCallback(action, context, event)); });
    return ERROR_SUCCESS;
}

// Return what a call opened, from its result and arguments.
const void* Opened(...)
{
    return nullptr;
}
const void* Opened(const void* result, auto...)
{
    return result != INVALID_HANDLE_VALUE ? result : nullptr;
}
const void* Opened(LSTATUS status, HKEY, const wchar_t*, DWORD, REGSAM, HKEY* key)
{
    return status == ERROR_SUCCESS ? *key : nullptr;
}
const void* Opened(DWORD length, DWORD, const void*, DWORD, DWORD, wchar_t* text, DWORD, va_list*)
{
    return length != 0 ? *reinterpret_cast<void**>(text) : nullptr;
}

/// Makes an import fail when it is its turn. `closer` must release what it opens.
template <ImportName kName, typename Function, bool kCanFail = true>
void Open(HMODULE module, const char* closer, auto failure, DWORD error = ERROR_ACCESS_DENIED)
{
    Patch<Function>::Install(module, kName.text, [=](auto call, auto... arguments) -> decltype(call(arguments...)) {
        if (kCanFail && run.Fails(kName.text)) {
            SetLastError(error);
            return failure;
        }
        const auto result = call(arguments...);
        if (const void* const handle = Opened(result, arguments...)) {
            run.open[{closer, handle}] = kName.text;
        }
        return result;
    });
}

template <ImportName kName, typename Function>
void Fail(HMODULE module, auto failure)
{
    Open<kName, Function>(module, "", failure);
}

/// Makes an import that releases its last argument fail when it is its turn. It releases it even then, so that only the
/// module can leak.
template <ImportName kName, typename Function>
void Close(HMODULE module, auto... failure)
{
    Patch<Function>::Install(module, kName.text, [=](auto call, auto... arguments) -> decltype(call(arguments...)) {
        run.open.erase({kName.text, std::get<sizeof...(arguments) - 1>(std::tie(arguments...))});
        if constexpr (sizeof...(failure) == 0) {
            call(arguments...);
        } else {
            const auto result = call(arguments...);
            const bool fails = run.Fails(kName.text);
            SetLastError(fails ? ERROR_ACCESS_DENIED : GetLastError());
            return fails ? (failure, ...) : result;
        }
    });
}

template <bool kCanFail>
void ReplaceStrings(HMODULE module)
{
    Close<"SysFreeString", decltype(SysFreeString)>(module);
    Open<"SysAllocString", decltype(SysAllocString), kCanFail>(module, "SysFreeString", nullptr);
    Open<"SysAllocStringLen", decltype(SysAllocStringLen), kCanFail>(module, "SysFreeString", nullptr);
}

void ReplaceImports(HMODULE module)
{
    ReplaceStrings<true>(module);
    Close<"VariantClear", decltype(VariantClear)>(module, DISP_E_ARRAYISLOCKED);
    Patch<decltype(VariantClear)>::Install(module, "VariantClear", [](auto clear, VARIANT* value) {
        run.open.erase({"SysFreeString", value->vt == VT_BSTR ? value->bstrVal : nullptr});
        return clear(value);
    });
    Close<"free", void(void*)>(module);
    Open<"malloc", void*(size_t)>(module, "free", nullptr);
    Open<"calloc", void*(size_t, size_t)>(module, "free", nullptr);
    Open<"HeapAlloc", decltype(HeapAlloc)>(module, "HeapFree", nullptr, ERROR_NOT_ENOUGH_MEMORY);
    Close<"HeapFree", decltype(HeapFree)>(module, FALSE);
    Patch<decltype(EvtSubscribe)>::Install(module, "EvtSubscribe", [](auto subscribe, auto... arguments) {
        moduleCallback = std::exchange(std::get<6>(std::tie(arguments...)), &CatchInDelivery);
        return subscribe(arguments...);
    });
    Open<"EvtSubscribe", decltype(EvtSubscribe)>(module, "EvtClose", nullptr);
    Open<"EvtCreateRenderContext", decltype(EvtCreateRenderContext)>(module, "EvtClose", nullptr);
    Open<"EvtOpenPublisherMetadata", decltype(EvtOpenPublisherMetadata)>(module, "EvtClose", nullptr);
    Fail<"EvtRender", decltype(EvtRender)>(module, FALSE);
    Fail<"EvtFormatMessage", decltype(EvtFormatMessage)>(module, FALSE);
    Close<"EvtClose", decltype(EvtClose)>(module, FALSE);
    Open<"RegOpenKeyExW", decltype(RegOpenKeyExW)>(module, "RegCloseKey", ERROR_ACCESS_DENIED);
    Fail<"RegQueryValueExW", decltype(RegQueryValueExW)>(module, ERROR_ACCESS_DENIED);
    Close<"RegCloseKey", decltype(RegCloseKey)>(module, ERROR_ACCESS_DENIED);
    Open<"CreateFileW", decltype(CreateFileW)>(module, "CloseHandle", INVALID_HANDLE_VALUE);
    Fail<"GetFileSizeEx", decltype(GetFileSizeEx)>(module, FALSE);
    Fail<"SetFilePointerEx", decltype(SetFilePointerEx)>(module, FALSE);
    Fail<"ReadFile", decltype(ReadFile)>(module, FALSE);
    Close<"CloseHandle", decltype(CloseHandle)>(module, FALSE);
    Open<"FormatMessageW", decltype(FormatMessageW)>(module, "LocalFree", 0U);
    Close<"LocalFree", decltype(LocalFree)>(module, INVALID_HANDLE_VALUE);
    Fail<"GetComputerNameExW", decltype(GetComputerNameExW)>(module, FALSE);
    Fail<"FileTimeToSystemTime", decltype(FileTimeToSystemTime)>(module, FALSE);
}

/// The events and collections of a metric's life and the effects of failures, read from a file beside the program;
/// sweep/crash.txt explains it.
struct Scenario {
    explicit Scenario(const std::string& name)
    {
        SetEnvironmentVariableW(L"DENIED", ExpectedSuffix(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)).c_str());
        SetEnvironmentVariableW(L"ABSENT", ExpectedSuffix(HRESULT_FROM_WIN32(ERROR_NOT_FOUND)).c_str());
        std::wifstream file("sweep/" + name + ".txt");
        for (std::wstring line; std::getline(file, line);) {
            wchar_t text[4096] = L"";
            ExpandEnvironmentStringsW(line.c_str(), text, 4096);
            line = text;
            const std::wstring word = line.substr(0, line.find(L' '));
            const std::wstring rest = line.substr(std::min(word.size() + 1, line.size()));
            if (word == L"collect") {
                phases.emplace_back();
            } else if (word == L"replay") {
                phases.back() += rest;
            } else if (word == L"event") {
                const std::wstring time = L"2024-03-05T07:08:" + rest.substr(0, 2) + L"Z";
                phases.back() += Event(rest.substr(3), time.c_str(), words[L"publisher"].at(0).c_str());
            } else if (word.starts_with(L"+") || word.starts_with(L"-")) {
                std::wistringstream calls(word.substr(1));
                for (std::wstring call; std::getline(calls, call, L',');) {
                    effects.insert(call + L" " + word.front() + rest);
                }
            } else {
                words[word].push_back(rest);
            }
        }
        EXPECT_TRUE(phases.size() > 1 && !words[L"wanted"].empty()) << name;
    }
    std::map<std::wstring, Lines> words; // the lines that begin with them
    std::set<std::wstring> effects;      // call, + or -, and the line that comes or is missing
    Lines phases{1};                     // what is played before each collection; nothing fails in the last
};

class FaultSweepTest : public testing::TestWithParam<std::string> {
protected:
    /// Plays the scenario once and returns what the host saw.
    Lines Play(int failing)
    {
        run = {};
        run.failing = failing;
        transcript.clear();
        {
            SweptLogger theLogger;
            SweptSink theSink;
            HostObject host;
            logger = &theLogger;
            sink = &theSink;
            const ModuleUnderTest module;
            ReplaceImports(module);
            Replay().SetMode(ReplayOnCallingThread);
            const DWORD publishers = Replay().OpenHandles(ReplayPublisherHandle);
            const DWORD contexts = Replay().OpenHandles(ReplayContextHandle);
            Host(module, host);
            const DWORD opened = Replay().OpenHandles(ReplayPublisherHandle) - publishers;
            EXPECT_LE(run.events - opened, failing != 0 ? 1U : 0U) << "one for each event, but for a failed one";
            EXPECT_EQ(Replay().OpenHandles(ReplayContextHandle), contexts);
            EXPECT_EQ(Replay().OpenHandles(ReplaySubscriptionHandle), 0U);
        }
        for (const auto& [handle, opener] : run.open) {
            EXPECT_EQ(opener, "EvtOpenPublisherMetadata") << "was not released: " << handle.second;
        }
        return transcript;
    }

    /// Repeats a call that failed for lack of memory, which must then succeed.
    void Retry(const wchar_t* name, const std::function<HRESULT()>& call)
    {
        if (Step(name, call) == E_OUTOFMEMORY) {
            EXPECT_EQ(Step(name, call), S_OK);
        }
    }

    void Host(const ModuleUnderTest& module, HostObject& host)
    {
        const std::wstring& metric = scenario_.words[L"metric"].at(0);
        const _bstr_t name(metric.c_str()), other(std::wstring(metric).replace(0, 1, L"E").c_str());
        const auto good = Configuration();
        const auto bad = Configuration(L"<metric><channel>Application</channel></metric>");
        // The module frees the texts that the parser returns. The parser's own failures are not swept.
        [[maybe_unused]] static const bool once = (ReplaceStrings<false>(GetModuleHandleW(L"msxml3.dll")), true);
        ComPtr<IOrvelDataProvider> provider;
        const auto collect = [&] { return provider->QueryMetricEx(name, 0, sink); };
        const auto subscribe = [&] { return provider->SubscribeMetric(name, good.Get()); };
        const auto unsubscribe = [&] { return provider->UnsubscribeMetric(name); };
        sink->refusedOnce = scenario_.words[L"refused"].at(0);
        run.isCounting = true;
        Retry(L"create", [&] {
            provider = module.CreateProvider();
            return S_OK;
        });
        EXPECT_EQ(provider->SetHost(logger, &host), S_OK);
        Retry(L"subscribe", subscribe);
        const auto play = [&](const std::wstring& phase) {
            if (!phase.empty()) {
                LoadEvents(phase);
                EXPECT_EQ(Replay().Play(nullptr, nullptr), 0U);
            }
        };
        for (size_t phase = 0; phase + 1 < scenario_.phases.size(); ++phase) {
            play(scenario_.phases[phase]);
            Step(L"collect", collect);
        }
        // Nothing fails from here on, so everything must work again.
        run.isCounting = false;
        sink->refusedOnce.clear();
        if (Replay().OpenHandles(ReplaySubscriptionHandle) == 0) {
            EXPECT_EQ(unsubscribe(), S_OK);
            EXPECT_EQ(subscribe(), S_OK);
        }
        play(scenario_.phases.back());
        EXPECT_EQ(collect(), S_OK);
        EXPECT_EQ(sink->Take(), scenario_.words[L"wanted"]);
        run.isCounting = true;
        Step(L"subscribe without a query", [&] { return provider->SubscribeMetric(other, bad.Get()); });
        Retry(L"unsubscribe", unsubscribe);
        Retry(L"unsubscribe all", [&] { return provider->UnsubscribeAll(); });
        provider.Reset();
        EXPECT_EQ(logger->Take(), Lines());
        run.isCounting = false;
    }

    void Check(const Lines& baseline, const Lines& seen)
    {
        static const std::set<std::string> silent = {"EvtClose", "CloseHandle", "HeapFree", "RegCloseKey", "LocalFree"};
        if (silent.contains(run.failed)) {
            EXPECT_EQ(seen, baseline);
            return;
        }
        EXPECT_TRUE(std::equal(seen.begin(), seen.begin() + run.before, baseline.begin()))
            << "differs before the failure";
        for (const auto& line : seen) {
            EXPECT_TRUE(line.find(L"|crash_details") == line.npos || std::ranges::count(seen, line) == 1)
                << "reported twice: " << testing::PrintToString(line);
        }
        static const std::set<std::string> memory = {"malloc", "HeapAlloc", "SysAllocString", "SysAllocStringLen"};
        const std::string call = memory.contains(run.failed) ? "memory" : run.failed;
        const auto name = [&](const Lines& more, const Lines& fewer, wchar_t sign) {
            for (const auto& line : std::set(more.begin(), more.end())) {
                if (std::ranges::count(more, line) > std::ranges::count(fewer, line)) {
                    const std::wstring effect = std::wstring(call.begin(), call.end()) + L" " + sign + line;
                    EXPECT_TRUE(scenario_.effects.contains(effect)) << testing::PrintToString(effect);
                    occurred_.insert(effect);
                }
            }
        };
        name(seen, baseline, L'+');
        name(baseline, seen, L'-');
        if (run.failed == "GetLogLevels") {
            EXPECT_EQ(seen.size() + 1, baseline.size()) << "one line is lost, and nothing else";
        } else if (run.failed != "VariantClear") { // also called to clean up, where a failure cannot be reported
            EXPECT_NE(seen, baseline) << "the failure has no effect";
        }
    }

    Scenario scenario_{GetParam()};
    std::set<std::wstring> occurred_; // effects
};

TEST_P(FaultSweepTest, EveryCallFailsOnce)
{
    const Lines baseline = Play(0);
    const int calls = run.calls;
    std::map<std::string, int> counts;
    for (int call = 1; call <= calls && !HasFatalFailure(); ++call) {
        SCOPED_TRACE(testing::Message() << "call " << call);
        const Lines seen = Play(call);
        SCOPED_TRACE(run.failed);
        ++counts[run.failed];
        Check(baseline, seen);
    }
    for (const auto& effect : scenario_.effects) {
        EXPECT_TRUE(occurred_.contains(effect)) << "never occurred: " << testing::PrintToString(effect);
    }
    std::ofstream figures("fault_sweep_" + GetParam() + ".figures");
    figures << "Fault sweep, " << GetParam() << " metric: " << calls << " calls failed, one at a time:";
    for (const auto& [call, count] : counts) {
        figures << ' ' << call << ' ' << count;
    }
    figures << '\n';
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\services\\korvex");
}

INSTANTIATE_TEST_SUITE_P(Metric, FaultSweepTest, testing::Values("crash", "lamina"),
                         [](const auto& metric) { return metric.param; });

} // namespace
