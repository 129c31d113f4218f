#pragma once

#include <functional>
#include <string>

namespace orvel::bench {

/// What one case came to. `ratio` is to stay at or below `goal`; `spread` is the distance between the quartiles of the
/// rounds' ratios, 0 for what was counted.
struct Figure {
    std::string name;
    double ratio;
    double goal;
    double spread;
};

/// Two ways to do the same amount of work, timed alternately.
struct Pair {
    std::function<void()> measured;
    std::function<void()> floor;
    std::function<void()> prepare; ///< before each timing, not timed; may be empty
};

/// Times both ways `rounds` times, one right after the other and in changing order, so that whatever else the machine
/// does meets both. Gives the median of the rounds' ratios.
Figure Compare(const std::string& name, double goal, int rounds, const Pair& pair);

/// Prints figures as they come.
class Report {
public:
    /// `isJson`: one object per line instead of a table.
    explicit Report(bool isJson);
    void Add(const Figure& figure);
    /// Whether every figure so far was within its goal.
    bool IsWithinGoals() const { return isWithinGoals_; }

private:
    const bool isJson_;
    bool isWithinGoals_ = true;
};

} // namespace orvel::bench
