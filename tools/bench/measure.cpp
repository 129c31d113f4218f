#include "tools/bench/measure.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace orvel::bench {

namespace {

double Seconds(const std::function<void()>& prepare, const std::function<void()>& work)
{
    if (prepare) {
        prepare();
    }
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

Figure Compare(const std::string& name, double goal, int rounds, const Pair& pair)
{
    std::vector<double> ratios;
    for (int round = -1; round < rounds; ++round) { // the first one only warms up
        const bool isFloorFirst = round % 2 == 0;
        const double first = Seconds(pair.prepare, isFloorFirst ? pair.floor : pair.measured);
        const double second = Seconds(pair.prepare, isFloorFirst ? pair.measured : pair.floor);
        if (round >= 0) {
            ratios.push_back(isFloorFirst ? second / first : first / second);
        }
    }
    std::sort(ratios.begin(), ratios.end());
    const size_t quarter = ratios.size() / 4;
    return {name, ratios[ratios.size() / 2], goal, ratios[ratios.size() - 1 - quarter] - ratios[quarter]};
}

Report::Report(bool isJson) : isJson_(isJson)
{
    if (!isJson_) {
        std::printf("%-52s %7s %7s %7s\n", "", "ratio", "goal", "spread");
    }
}

void Report::Add(const Figure& figure)
{
    const bool isWithin = figure.ratio <= figure.goal + 0.0005; // as printed
    isWithinGoals_ = isWithinGoals_ && isWithin;
    if (isJson_) {
        std::printf(R"({"name":"%s","ratio":%.3f,"goal":%.3f,"spread":%.3f})"
                    "\n",
                    figure.name.c_str(), figure.ratio, figure.goal, figure.spread);
    } else {
        std::printf("%-52s %7.3f %7.3f %7.3f%s\n", figure.name.c_str(), figure.ratio, figure.goal, figure.spread,
                    isWithin ? "" : "  above its goal");
    }
    std::fflush(stdout);
}

} // namespace orvel::bench
