#include "tools/bench/report.h"

#include <cstdio>
#include <utility>

namespace orvel::bench {

namespace {

template <typename... Arguments>
std::string Text(const char* format, Arguments... arguments)
{
    char text[256];
    std::snprintf(text, sizeof(text), format, arguments...);
    return text;
}

} // namespace

Report::Report(bool isJson, bool countsOnly, std::string wanted)
    : isJson_(isJson), countsOnly_(countsOnly), wanted_(std::move(wanted))
{
    if (!isJson_) {
        std::printf("%-48s %8s %8s %8s %8s %7s %7s %9s\n", "", "ratio", "bound", "own us", "total us", "calls",
                    "allocs", "bytes");
    }
}

bool Report::Try(const std::string& name, const std::function<std::vector<Check>()>& measure)
{
    constexpr int kAttempts = 3;
    names_.push_back(name);
    if (!IsWanted(name)) {
        return false;
    }
    hasRun_ = true;
    std::vector<std::string> above;
    for (int attempt = 0; attempt == 0 || (attempt < kAttempts && !above.empty()); ++attempt) {
        above.clear();
        for (const Check& check : measure()) {
            if (check.value > check.bound) {
                above.push_back(Text("%s: %s %.3f, at most %.3f", name.c_str(), check.what, check.value, check.bound));
            }
        }
    }
    regressions_.insert(regressions_.end(), above.begin(), above.end());
    return true;
}

void Report::Run(const std::string& name, const Bounds& bounds, const std::function<Cost()>& measure)
{
    Cost cost;
    const bool isWanted = Try(name, [&] {
        cost = measure();
        std::vector<Check> checks{{"calls of the platform and the host", cost.calls, bounds.calls},
                                  {"allocations", cost.allocations, bounds.allocations},
                                  {"bytes allocated", cost.bytes, bounds.bytes}};
        if (!countsOnly_) {
            checks.push_back({"own time, as a multiple of the ruler,", cost.own / cost.ruler, bounds.own});
        }
        return checks;
    });
    if (isWanted) {
        std::printf(isJson_ ? R"({"name":"%s","ratio":%.3f,"bound":%.3f,"own_us":%.3f,"total_us":%.3f,"calls":%.2f,)"
                              R"("allocations":%.2f,"bytes":%.0f})"
                              "\n"
                            : "%-48s %8.3f %8.3f %8.3f %8.3f %7.2f %7.2f %9.0f\n",
                    name.c_str(), cost.own / cost.ruler, bounds.own, cost.own, cost.total, cost.calls, cost.allocations,
                    cost.bytes);
        std::fflush(stdout);
    }
}

void Report::Run(const std::string& name, double bound, const std::function<double()>& measure)
{
    double ratio = 0;
    const bool isWanted = Try(name, [&] {
        ratio = measure();
        return std::vector<Check>{{"ratio", ratio, bound}};
    });
    if (isWanted) {
        std::printf(isJson_ ? R"({"name":"%s","ratio":%.3f,"bound":%.3f})"
                              "\n"
                            : "%-48s %8.3f %8.3f\n",
                    name.c_str(), ratio, bound);
        std::fflush(stdout);
    }
}

} // namespace orvel::bench
