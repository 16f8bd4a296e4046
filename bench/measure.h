#pragma once

#include <functional>
#include <string>
#include <vector>

/// What the benchmarks here share: times are taken in turn, so that whatever else the machine does
/// falls on both, and the median of the rounds counts.
namespace Bench {

/// Medians of the same rounds.
struct Comparison {
    double ours;    ///< nanoseconds a call
    double others;  ///< nanoseconds a call
    double ratio;   ///< of a round: a machine that is slow for some rounds is slow for both of its times
};

/// The times of each round, in nanoseconds a call; both have as many.
[[nodiscard]] Comparison Medians(const std::vector<double>& ours, const std::vector<double>& others);

/// Each argument runs one round and returns its time.
[[nodiscard]] Comparison Compare(int rounds, const std::function<double()>& ours,
                                 const std::function<double()>& others);

[[nodiscard]] double Median(std::vector<double> values);

/// Nanoseconds that `what` takes, once.
[[nodiscard]] double Time(const std::function<void()>& what);

/// One table of comparisons.
class Table {
  public:
    Table(std::string title, std::string ours, std::string others);

    /// Prints a line at once. `atMost` is the greatest ratio that is wanted.
    void Add(const std::string& what, const Comparison& times, double atMost);

    /// Whether every ratio was within its bound.
    [[nodiscard]] bool AllWithin() const noexcept { return m_allWithin; }

  private:
    bool m_allWithin = true;
};

}  // namespace Bench
