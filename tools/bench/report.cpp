#include "tools/bench/report.h"

#include <cstdio>
#include <utility>

namespace orvel::bench {

namespace {

struct Check {
    const char* what;
    double value;
    double bound;
};

/// Returns the figures that exceed their bounds.
std::vector<Check> Exceeded(const Cost& cost, const Bounds& bounds, bool countsOnly)
{
    std::vector<Check> checks{{"calls of the platform and the host", cost.calls, bounds.calls},
                              {"allocations", cost.allocations, bounds.allocations},
                              {"bytes allocated", cost.bytes, bounds.bytes}};
    if (!countsOnly) {
        checks.push_back({"ratio", cost.ratio, bounds.ratio});
    }
    std::erase_if(checks, [](const Check& check) { return check.value <= check.bound; });
    return checks;
}

} // namespace

Report::Report(Options options) : options_(std::move(options))
{
    if (!options_.isJson) {
        std::printf("%-48s %8s %8s %8s %8s %7s %7s %9s\n", "", "ratio", "bound", "own us", "total us", "calls",
                    "allocs", "bytes");
    }
}

void Report::Run(const std::string& name, const Bounds& bounds, const Work& work)
{
    RunCase(name, bounds, [&] { return Measure(options_.countsOnly ? 10 : 200, {work})[0]; });
}

void Report::RunGrowth(const std::string& name, double bound, int rounds, double times, const Work& many,
                       const Work& few)
{
    RunCase(name, {bound}, [&] {
        const std::vector<Cost> costs = Measure(rounds, {many, few});
        return Cost{.ratio = costs[0].own / costs[1].own / times};
    });
}

void Report::RunCase(const std::string& name, const Bounds& bounds, const std::function<Cost()>& measure)
{
    constexpr int kAttempts = 3;
    names_.push_back(name);
    if (!options_.wanted.empty() && options_.wanted != name) {
        return;
    }
    hasRun_ = true;
    Cost cost;
    std::vector<Check> exceeded;
    for (int attempt = 0; attempt == 0 || (attempt < kAttempts && !exceeded.empty()); ++attempt) {
        cost = measure();
        exceeded = Exceeded(cost, bounds, options_.countsOnly);
    }
    std::printf(options_.isJson ? R"({"name":"%s","ratio":%.3f,"bound":%.3f)" : "%-48s %8.3f %8.3f", name.c_str(),
                cost.ratio, bounds.ratio);
    if (bounds.calls != 0) {
        std::printf(options_.isJson ? R"(,"own_us":%.3f,"total_us":%.3f,"calls":%.2f,"allocations":%.2f,"bytes":%.0f)"
                                    : " %8.3f %8.3f %7.2f %7.2f %9.0f",
                    cost.own, cost.total, cost.calls, cost.allocations, cost.bytes);
    }
    std::puts(options_.isJson ? "}" : "");
    std::fflush(stdout);
    for (const auto& [what, value, bound] : exceeded) {
        std::fprintf(stderr, "regression: %s: %s %.3f, at most %.3f\n", name.c_str(), what, value, bound);
        hasRegression_ = true;
    }
}

int Report::ExitCode() const
{
    if (hasRun_) {
        return hasRegression_ ? 1 : 0;
    }
    std::fprintf(stderr, "bench: there is no case '%s'; the cases are:\n", options_.wanted.c_str());
    for (const std::string& name : names_) {
        std::fprintf(stderr, "  %s\n", name.c_str());
    }
    return 2;
}

} // namespace orvel::bench
