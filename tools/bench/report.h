#pragma once

#include "tools/bench/meter.h"

#include <string>
#include <vector>

namespace orvel::bench {

struct Options {
    bool isJson = false;     ///< print one object per line instead of a table
    bool countsOnly = false; ///< take few rounds and check no times
    std::string wanted;      ///< the only case to run; empty for all
};

/// The highest acceptable cost of one item. A case of growth has a ratio only.
struct Bounds {
    double ratio;
    double calls = 0;
    double allocations = 0;
    double bytes = 0;
};

/// Runs the selected cases, prints a line for each and compares it with its bounds. A case above a bound runs up to two
/// more times and is a regression if it stays above.
class Report {
public:
    explicit Report(Options options);

    /// Runs a case that measures what one item costs.
    void Run(const std::string& name, const Bounds& bounds, const Work& work);

    /// Runs a case that divides the own time of one item of `many` by that of one item of `few`. `many` has `times` as
    /// many items in a sample.
    void RunGrowth(const std::string& name, double bound, int rounds, double times, const Work& many, const Work& few);

    /// Returns 0, or 1 if there was a regression. If no case was selected, prints the names of all and returns 2.
    int ExitCode() const;

private:
    void RunCase(const std::string& name, const Bounds& bounds, const std::function<Cost()>& measure);

    const Options options_;
    std::vector<std::string> names_;
    bool hasRun_ = false;
    bool hasRegression_ = false;
};

} // namespace orvel::bench
