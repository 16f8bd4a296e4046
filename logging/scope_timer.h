#pragma once

#include <cstdint>

#include "logging/logger.h"

namespace Orva::Shared {

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
