#pragma once

#include <windows.h>

#include <functional>
#include <initializer_list>
#include <vector>

namespace orvel::bench {

/// What one item, an event or a collected value, costs. The counts are exact.
struct Cost {
    double own = 0;         ///< microseconds in the module's own code
    double total = 0;       ///< microseconds, with the platform's and the host's functions
    double ruler = 0;       ///< microseconds that a fixed piece of work took in the same rounds
    double calls = 0;       ///< of the platform's and the host's functions that are measured
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

/// Replaces the imports of the module that take time by functions that measure the call, for the life of the process,
/// and the callback of each subscription by one that takes a sample of each event. Own time contains the functions that
/// are not replaced: locks, last errors, thread slots, and what the C runtime copies and prints.
void MeasureImports(HMODULE module);

/// Takes a sample of a call into the module that handles `items()` items, counted after the call.
void TakeSample(const std::function<void()>& call, const std::function<long()>& items);

/// Forgets the samples of the running round, so that only what follows counts.
void DropSamples();

/// Runs each work once a round, one after the other, and returns for each what one of its items costs: the mean of the
/// middle half of its samples, less the measured cost of measuring. Other programs that take the processor away from a
/// few samples do not change that.
std::vector<Cost> Measure(int rounds, std::initializer_list<std::function<void()>> works);

} // namespace orvel::bench
