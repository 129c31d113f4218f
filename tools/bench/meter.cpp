#include "tools/bench/meter.h"

#include "tests/support/import_patch.h"

#include <oleauto.h>
#include <winevt.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <mutex>
#include <numeric>
#include <span>
#include <string>
#include <utility>

namespace orvel::bench {

namespace {

/// The measurements of one call into the module. Times are in ticks.
struct Sample {
    double total = 0;
    double outside = 0;
    double calls = 0;
    double allocations = 0;
    double bytes = 0;
    double items = 1;
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

Sample MeasureCall(const auto& call)
{
    current = {};
    const long long start = Now();
    call();
    current.total = static_cast<double>(Now() - start);
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
    DWORD result = ERROR_SUCCESS;
    Keep(MeasureCall([&] { result = moduleCallback(action, context, event); }));
    return result;
}

constexpr auto kNothing = [](const auto&...) {};

/// Replaces one import by a function that calls `kObserve` with the arguments, measures the call and forwards it.
template <ImportName kName, typename Function, auto kObserve = kNothing>
void Replace(HMODULE module)
{
    Patch<Function>::Install(module, kName.text, [](auto real, auto... arguments) {
        const OutsideCall measured;
        kObserve(arguments...);
        return real(arguments...);
    });
}

void CountAllocation(size_t bytes)
{
    ++current.allocations;
    current.bytes += static_cast<double>(bytes);
}

/// Measures a fixed piece of work that resembles the module's: copies a message of 1,000 characters one at a time.
Sample RunRuler()
{
    static const std::wstring message(1000, L'x');
    static std::wstring copy; // keeps its storage, so that no allocation is measured
    copy.clear();
    return MeasureCall([] {
        for (const wchar_t c : message) {
            copy.push_back(c);
        }
    });
}

/// Measures `calls` outside calls that do nothing, to determine the overhead of measuring.
Sample RunEmpty(int calls)
{
    using Function = int();
    int (*const volatile call)(Function*) = [](Function* real) {
        const OutsideCall measured;
        return real();
    };
    return MeasureCall([&] {
        for (int i = 0; i < calls; ++i) {
            call([] { return 0; });
        }
    });
}

/// Returns the mean of the middle half of a figure.
double MiddleMean(const std::vector<Sample>& all, auto figure)
{
    std::vector<double> values;
    std::ranges::transform(all, std::back_inserter(values), figure);
    std::ranges::sort(values);
    const size_t quarter = values.size() / 4;
    const auto middle = std::span(values).subspan(quarter, values.size() - 2 * quarter);
    return std::accumulate(middle.begin(), middle.end(), 0.0) / static_cast<double>(middle.size());
}

/// Returns the mean of a figure for each item.
double ItemMean(const std::vector<Sample>& all, double Sample::*figure)
{
    double sum = 0;
    double items = 0;
    for (const Sample& sample : all) {
        sum += sample.*figure;
        items += sample.items;
    }
    return sum / items;
}

} // namespace

OutsideCall::OutsideCall() : start_(Now()) {}

OutsideCall::~OutsideCall()
{
    current.outside += static_cast<double>(Now() - start_);
    ++current.calls;
}

void MeasureImports(HMODULE module)
{
    constexpr auto kReplaceCallback = [](auto&, auto&, auto&, auto&, auto&, auto&, auto& callback, auto&) {
        moduleCallback = std::exchange(callback, &SampleEvent);
    };
    constexpr auto kBytesOfMalloc = [](size_t size) { CountAllocation(size); };
    constexpr auto kBytesOfCalloc = [](size_t count, size_t size) { CountAllocation(count * size); };
    constexpr auto kBytesOfHeapAlloc = [](HANDLE, DWORD, size_t size) { CountAllocation(size); };
    constexpr auto kBytesOfText = [](const OLECHAR* text) { CountAllocation(std::wcslen(text) * sizeof(*text)); };
    constexpr auto kBytesOfLength = [](const OLECHAR*, UINT length) { CountAllocation(length * sizeof(OLECHAR)); };
    Replace<"EvtSubscribe", decltype(EvtSubscribe), kReplaceCallback>(module);
    Replace<"EvtCreateRenderContext", decltype(EvtCreateRenderContext)>(module);
    Replace<"EvtRender", decltype(EvtRender)>(module);
    Replace<"EvtOpenPublisherMetadata", decltype(EvtOpenPublisherMetadata)>(module);
    Replace<"EvtFormatMessage", decltype(EvtFormatMessage)>(module);
    Replace<"EvtClose", decltype(EvtClose)>(module);
    Replace<"malloc", void*(size_t), kBytesOfMalloc>(module);
    Replace<"calloc", void*(size_t, size_t), kBytesOfCalloc>(module);
    Replace<"free", void(void*)>(module);
    Replace<"HeapAlloc", decltype(HeapAlloc), kBytesOfHeapAlloc>(module);
    Replace<"HeapFree", decltype(HeapFree)>(module);
    Replace<"SysAllocString", decltype(SysAllocString), kBytesOfText>(module);
    Replace<"SysAllocStringLen", decltype(SysAllocStringLen), kBytesOfLength>(module);
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

void TakeSample(const std::function<long()>& call)
{
    double items = 0;
    Sample sample = MeasureCall([&] { items = call(); });
    sample.items = items;
    Keep(sample);
}

std::vector<Cost> Measure(int rounds, const std::vector<Work>& works)
{
    constexpr int kEmptyCalls = 16;
    std::vector<Sample> rulers, bare, empty;
    std::vector<std::vector<Sample>> taken(works.size());
    for (int round = -1; round < rounds; ++round) { // the first one only warms up
        for (size_t which = 0; which < works.size(); ++which) {
            works[which].prepare();
            samples.clear();
            works[which].run();
            if (round >= 0) {
                taken[which].insert(taken[which].end(), samples.begin(), samples.end());
            }
            for (int i = 0; i < 4; ++i) {
                rulers.push_back(RunRuler());
                bare.push_back(RunEmpty(0));
                empty.push_back(RunEmpty(kEmptyCalls));
            }
        }
    }

    const auto inside = [](const Sample& s) { return s.total - s.outside; };
    const double base = MiddleMean(bare, &Sample::total);
    const double perCall = (MiddleMean(empty, &Sample::total) - base) / kEmptyCalls;
    const double perCallInside = (MiddleMean(empty, inside) - base) / kEmptyCalls;
    const double ruler = MiddleMean(rulers, &Sample::total) - base;
    LARGE_INTEGER ticksPerSecond;
    QueryPerformanceFrequency(&ticksPerSecond);
    const double unit = 1e6 / static_cast<double>(ticksPerSecond.QuadPart); // microseconds per tick
    std::vector<Cost> costs;
    for (const std::vector<Sample>& all : taken) {
        const double own =
            MiddleMean(all, [&](const Sample& s) { return (inside(s) - base - perCallInside * s.calls) / s.items; });
        const double whole =
            MiddleMean(all, [&](const Sample& s) { return (s.total - base - perCall * s.calls) / s.items; });
        costs.push_back({own / ruler, unit * own, unit * whole, ItemMean(all, &Sample::calls),
                         ItemMean(all, &Sample::allocations), ItemMean(all, &Sample::bytes)});
    }
    return costs;
}

} // namespace orvel::bench
