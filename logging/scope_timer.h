#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "logging/critical_section.h"

namespace Orva::Shared {

class CorvaLogger;

/// How long each operation took, summed up by its name. Any thread may record.
class TimingStatistics {
  public:
    struct Record {
        double totalMilliseconds = 0.0;
        int count = 0;
    };

    /// Counts one call; a null name counts as the empty one.
    void Add(const char* functionName, double elapsedMilliseconds);

    /// A copy of what was recorded so far for one operation; all zero when there is nothing.
    [[nodiscard]] Record Find(const std::string& functionName) const;
    /// Length of the longest operation name recorded so far, in characters.
    [[nodiscard]] std::uint32_t LongestName() const;

  private:
    std::map<std::string, Record> m_records;
    std::uint32_t m_longestName = 0;
    mutable CriticalSection m_lock;
};

/// Measures one run of an operation. Made only while the logger's timing is enabled.
class LogScopeTimer {
  public:
    /// Starts at the system's unbiased interrupt time. `functionName` must outlive the timer.
    LogScopeTimer(CorvaLogger& logger, const char* functionName) noexcept;

    /// Writes the elapsed time at level "Diag" and adds it to the logger's statistics.
    void End();

    [[nodiscard]] double ElapsedMilliseconds() const noexcept { return m_elapsedMilliseconds; }

  private:
    CorvaLogger& m_logger;
    std::uint64_t m_start;  ///< in units of 100 ns
    double m_elapsedMilliseconds = 0.0;
    const char* m_functionName;
};

}  // namespace Orva::Shared
