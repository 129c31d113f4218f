#pragma once

#include "tools/bench/meter.h"

#include <functional>
#include <string>
#include <vector>

namespace orvel::bench {

/// The highest acceptable cost of one item. `own` is a multiple of the ruler (see Cost).
struct Bounds {
    double own;
    double calls;
    double allocations;
    double bytes;
};

/// Runs the selected cases, prints a line for each and compares it with its bounds. A case above a bound runs up to two
/// more times and is a regression if it stays above.
class Report {
public:
    /// `isJson`: prints one object per line instead of a table. `wanted`: the name of the only case to run; empty for
    /// all. `countsOnly`: takes few rounds and checks no times.
    Report(bool isJson, bool countsOnly, std::string wanted);

    /// Runs a case that measures what one item costs.
    void Run(const std::string& name, const Bounds& bounds, const std::function<Cost()>& measure);
    /// Runs a case that measures one ratio.
    void Run(const std::string& name, double bound, const std::function<double()>& measure);

    bool CountsOnly() const { return countsOnly_; }
    bool IsWanted(const std::string& name) const { return wanted_.empty() || name == wanted_; }
    /// Returns the names of all cases, selected or not.
    const std::vector<std::string>& Names() const { return names_; }
    bool HasRun() const { return hasRun_; }
    /// Returns one line per regression.
    const std::vector<std::string>& Regressions() const { return regressions_; }

private:
    struct Check {
        const char* what;
        double value;
        double bound;
    };
    /// Runs a case until its checks pass, three times at most. Returns whether it is selected.
    bool Try(const std::string& name, const std::function<std::vector<Check>()>& measure);

    const bool isJson_;
    const bool countsOnly_;
    const std::string wanted_;
    bool hasRun_ = false;
    std::vector<std::string> names_;
    std::vector<std::string> regressions_;
};

} // namespace orvel::bench
