#include "tools/bench/meter.h"

#include "tests/support/import_patch.h"

#include <oleauto.h>
#include <winevt.h>

#include <algorithm>
#include <cwchar>
#include <mutex>
#include <numeric>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

namespace orvel::bench {

namespace {

/// The measurements between Begin and End.
struct Sample {
    long long start = 0;
    long long total = 0;   // ticks
    long long outside = 0; // ticks
    long calls = 0;
    long allocations = 0;
    long long bytes = 0;
    long items = 1;
};

thread_local Sample current;
std::mutex samplesLock;
std::vector<Sample> samples;

long long Now()
{
    LARGE_INTEGER ticks;
    QueryPerformanceCounter(&ticks);
    return ticks.QuadPart;
}

double MicrosecondsPerTick()
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return 1e6 / static_cast<double>(frequency.QuadPart);
}

void Begin()
{
    current = {};
    current.start = Now();
}

Sample End()
{
    current.total = Now() - current.start;
    return current;
}

void Keep(const Sample& sample)
{
    const std::lock_guard guard(samplesLock);
    samples.push_back(sample);
}

EVT_SUBSCRIBE_CALLBACK moduleCallback;
DWORD WINAPI SampleEvent(EVT_SUBSCRIBE_NOTIFY_ACTION action, void* context, EVT_HANDLE event)
{
    Begin();
    const DWORD result = moduleCallback(action, context, event);
    Keep(End());
    return result;
}

/// Replaces one import: measures the call and forwards it.
template <ImportName kName, typename Function>
struct Import;
template <ImportName kName, typename Result, typename... Arguments>
struct Import<kName, Result(Arguments...)> {
    static constexpr std::string_view kImport = kName.text;
    static inline Result (*real)(Arguments...);

    static size_t AllocatedBytes(const std::tuple<Arguments&...>& arguments)
    {
        if constexpr (kImport == "malloc") {
            return std::get<0>(arguments);
        } else if constexpr (kImport == "calloc") {
            return std::get<0>(arguments) * std::get<1>(arguments);
        } else if constexpr (kImport == "HeapAlloc") {
            return std::get<2>(arguments);
        } else if constexpr (kImport == "SysAllocString") {
            return std::wcslen(std::get<0>(arguments)) * sizeof(wchar_t);
        } else if constexpr (kImport == "SysAllocStringLen") {
            return std::get<1>(arguments) * sizeof(wchar_t);
        }
        return 0;
    }

    static Result Call(Arguments... arguments)
    {
        const OutsideCall measured;
        const std::tuple<Arguments&...> all(arguments...);
        if constexpr (kImport == "malloc" || kImport == "calloc" || kImport == "HeapAlloc" ||
                      kImport.starts_with("SysAlloc")) {
            ++current.allocations;
            current.bytes += static_cast<long long>(AllocatedBytes(all));
        } else if constexpr (kImport == "EvtSubscribe") {
            moduleCallback = std::exchange(std::get<6>(all), &SampleEvent);
        }
        return real(arguments...);
    }
};

template <ImportName kName, typename Function>
void Replace(HMODULE module)
{
    using This = Import<kName, Function>;
    This::real = reinterpret_cast<Function*>(
        ImportPatch::Exchange(ImportPatch::FindSlot(module, kName.text), reinterpret_cast<void*>(&This::Call)));
}

using Nothing = Import<"nothing", int()>;
int DoNothing()
{
    return 0;
}

/// Measures a fixed piece of work that resembles the module's: copies a message of 1,000 characters one at a time.
Sample RunRuler()
{
    static const std::wstring message(1000, L'x');
    static std::wstring copy; // keeps its storage, so that no allocation is measured
    copy.clear();
    Begin();
    for (const wchar_t c : message) {
        copy.push_back(c);
    }
    return End();
}

/// Measures `calls` outside calls that do nothing, to determine the overhead of measuring.
Sample RunEmpty(int calls)
{
    Nothing::real = &DoNothing;
    int (*const volatile call)() = &Nothing::Call;
    Begin();
    for (int i = 0; i < calls; ++i) {
        call();
    }
    return End();
}

template <typename Value>
double MiddleMean(const std::vector<Sample>& all, Value value)
{
    std::vector<double> values;
    for (const Sample& sample : all) {
        values.push_back(static_cast<double>(value(sample)));
    }
    std::ranges::sort(values);
    const auto quarter = static_cast<std::ptrdiff_t>(values.size() / 4);
    return std::accumulate(values.begin() + quarter, values.end() - quarter, 0.0) /
           static_cast<double>(values.size() - 2 * static_cast<size_t>(quarter));
}

template <typename Value>
double Mean(const std::vector<Sample>& all, Value value)
{
    double sum = 0;
    double items = 0;
    for (const Sample& sample : all) {
        sum += static_cast<double>(value(sample));
        items += static_cast<double>(sample.items);
    }
    return sum / items;
}

} // namespace

OutsideCall::OutsideCall() : start_(Now()) {}

OutsideCall::~OutsideCall()
{
    current.outside += Now() - start_;
    ++current.calls;
}

void MeasureImports(HMODULE module)
{
    Replace<"EvtSubscribe", decltype(EvtSubscribe)>(module);
    Replace<"EvtCreateRenderContext", decltype(EvtCreateRenderContext)>(module);
    Replace<"EvtRender", decltype(EvtRender)>(module);
    Replace<"EvtOpenPublisherMetadata", decltype(EvtOpenPublisherMetadata)>(module);
    Replace<"EvtFormatMessage", decltype(EvtFormatMessage)>(module);
    Replace<"EvtClose", decltype(EvtClose)>(module);
    Replace<"malloc", void*(size_t)>(module);
    Replace<"calloc", void*(size_t, size_t)>(module);
    Replace<"free", void(void*)>(module);
    Replace<"HeapAlloc", decltype(HeapAlloc)>(module);
    Replace<"HeapFree", decltype(HeapFree)>(module);
    Replace<"SysAllocString", decltype(SysAllocString)>(module);
    Replace<"SysAllocStringLen", decltype(SysAllocStringLen)>(module);
    Replace<"SysFreeString", decltype(SysFreeString)>(module);
    Replace<"VariantClear", decltype(VariantClear)>(module);
    Replace<"FileTimeToSystemTime", decltype(FileTimeToSystemTime)>(module);
    Replace<"GetComputerNameExW", decltype(GetComputerNameExW)>(module);
    Replace<"RegOpenKeyExW", decltype(RegOpenKeyExW)>(module);
    Replace<"RegQueryValueExW", decltype(RegQueryValueExW)>(module);
    Replace<"RegCloseKey", decltype(RegCloseKey)>(module);
    Replace<"CreateFileW", decltype(CreateFileW)>(module);
    Replace<"GetFileSizeEx", decltype(GetFileSizeEx)>(module);
    Replace<"SetFilePointerEx", decltype(SetFilePointerEx)>(module);
    Replace<"ReadFile", decltype(ReadFile)>(module);
    Replace<"CloseHandle", decltype(CloseHandle)>(module);
}

void TakeSample(const std::function<void()>& call, const std::function<long()>& items)
{
    Begin();
    call();
    Sample sample = End();
    sample.items = items();
    Keep(sample);
}

void DropSamples()
{
    samples.clear();
}

std::vector<Cost> Measure(int rounds, std::initializer_list<std::function<void()>> works)
{
    constexpr int kEmptyCalls = 16;
    std::vector<Sample> rulers, bare, empty;
    std::vector<std::vector<Sample>> taken(works.size());
    for (int round = -1; round < rounds; ++round) { // the first one only warms up
        size_t which = 0;
        for (const auto& work : works) {
            DropSamples();
            work();
            if (round >= 0) {
                taken[which].insert(taken[which].end(), samples.begin(), samples.end());
            }
            ++which;
            for (int i = 0; i < 4; ++i) {
                rulers.push_back(RunRuler());
                bare.push_back(RunEmpty(0));
                empty.push_back(RunEmpty(kEmptyCalls));
            }
        }
    }

    const auto total = [](const Sample& s) { return s.total; };
    const auto inside = [](const Sample& s) { return s.total - s.outside; };
    const double base = MiddleMean(bare, total);
    const double perCall = (MiddleMean(empty, total) - base) / kEmptyCalls;
    const double perCallInside = (MiddleMean(empty, inside) - base) / kEmptyCalls;
    const double unit = MicrosecondsPerTick();
    std::vector<Cost> costs;
    for (const std::vector<Sample>& all : taken) {
        Cost cost;
        cost.own = unit * MiddleMean(all, [&](const Sample& s) {
                       return (static_cast<double>(inside(s)) - base - perCallInside * static_cast<double>(s.calls)) /
                              static_cast<double>(s.items);
                   });
        cost.total = unit * MiddleMean(all, [&](const Sample& s) {
                         return (static_cast<double>(s.total) - base - perCall * static_cast<double>(s.calls)) /
                                static_cast<double>(s.items);
                     });
        cost.ruler = unit * (MiddleMean(rulers, total) - base);
        cost.calls = Mean(all, [](const Sample& s) { return s.calls; });
        cost.allocations = Mean(all, [](const Sample& s) { return s.allocations; });
        cost.bytes = Mean(all, [](const Sample& s) { return s.bytes; });
        costs.push_back(cost);
    }
    return costs;
}

} // namespace orvel::bench
