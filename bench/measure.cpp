#include "bench/measure.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace Bench {

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

Comparison Medians(const std::vector<double>& ours, const std::vector<double>& others) {
    std::vector<double> ratios(ours.size());
    std::transform(ours.begin(), ours.end(), others.begin(), ratios.begin(), std::divides<>{});
    return {Median(ours), Median(others), Median(std::move(ratios))};
}

Comparison Compare(int rounds, const std::function<double()>& ours, const std::function<double()>& others) {
    // Once for memory, files and caches.
    static_cast<void>(ours());
    static_cast<void>(others());
    std::vector<double> ourTimes;
    std::vector<double> otherTimes;
    for (int round = 0; round < rounds; ++round) {
        // Neither always comes second.
        if (round % 2 == 0) {
            ourTimes.push_back(ours());
            otherTimes.push_back(others());
        } else {
            otherTimes.push_back(others());
            ourTimes.push_back(ours());
        }
    }
    return Medians(ourTimes, otherTimes);
}

double Time(const std::function<void()>& what) {
    const auto start = std::chrono::steady_clock::now();
    what();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
}

Table::Table(std::string title, std::string ours, std::string others) {
    std::printf("\n%s\n\n%-58s %12s %14s %7s %8s\n", title.c_str(), "", ours.c_str(), others.c_str(), "ratio",
                "at most");
}

void Table::Add(const std::string& what, const Comparison& times, double atMost) {
    const bool within = times.ratio <= atMost;
    m_allWithin = m_allWithin && within;
    std::printf("%-58s %9.1f ns %11.1f ns %7.2f %8.2f %s\n", what.c_str(), times.ours, times.others,
                times.ratio, atMost, within ? "" : " MISSED");
    std::fflush(stdout);
}

}  // namespace Bench
