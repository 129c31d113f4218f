#pragma once

#include <windows.h>

#include <functional>
#include <vector>

namespace orvel::bench {

/// The cost of one item: an event or a collected value. Counts are exact; only times vary between runs.
struct Cost {
    double ratio = 0;       ///< own time, divided by the time that a fixed piece of work took in the same rounds
    double own = 0;         ///< microseconds in the module's own code
    double total = 0;       ///< microseconds, including the platform's and the host's functions
    double calls = 0;       ///< to the measured functions of the platform and the host
    double allocations = 0; ///< blocks and BSTRs
    double bytes = 0;       ///< allocated
};

/// Times the enclosing scope as a call of the module to the platform or to its host.
class OutsideCall {
public:
    OutsideCall();
    ~OutsideCall();
    OutsideCall(const OutsideCall&) = delete;
    OutsideCall& operator=(const OutsideCall&) = delete;

private:
    const long long start_;
};

/// Replaces the module's expensive imports with functions that measure the call, and the callback of each subscription
/// with one that takes a sample of each event, until the process ends. Own time includes the imports that are not
/// replaced: locks, last errors, thread slots, and copying and formatting by the C runtime.
void MeasureImports(HMODULE module);

/// Takes a sample of a call into the module. `call` returns the number of items that it handled.
void TakeSample(const std::function<long()>& call);

/// What a case does in each round. Only samples that `run` takes count.
struct Work {
    std::function<void()> prepare = [] {};
    std::function<void()> run;
};

/// Runs each of `works` once per round, in order, and returns the cost of one item of each. Times are the mean of the
/// middle half of the samples, less the measured overhead of measuring, so that a few interrupted samples do not
/// matter.
std::vector<Cost> Measure(int rounds, const std::vector<Work>& works);

} // namespace orvel::bench
