#include "logging/scope_timer.h"

#include <windows.h>
#include <realtimeapiset.h>

#include <algorithm>
#include <mutex>

#include "logging/logger.h"

namespace Orva::Shared {
namespace {

constexpr double kTicksPerMillisecond = 10000.0;
/// From here on elapsed times are written in seconds. A thousand seconds, not one: operations
/// that wait for services stay comparable in milliseconds.
constexpr double kFirstMillisecondsInSeconds = 1000000.0;
constexpr double kMillisecondsPerSecond = 1000.0;

std::uint64_t UnbiasedInterruptTime() noexcept {
    ULONGLONG now = 0;
    QueryUnbiasedInterruptTime(&now);
    return now;
}

}  // namespace

void TimingStatistics::Add(const char* functionName, double elapsedMilliseconds) {
    const std::string name(functionName != nullptr ? functionName : "");
    const std::lock_guard lock(m_lock);
    Record& record = m_records[name];
    record.totalMilliseconds += elapsedMilliseconds;
    ++record.count;
    m_longestName = std::max(m_longestName, static_cast<std::uint32_t>(name.size()));
}

TimingStatistics::Record TimingStatistics::Find(const std::string& functionName) const {
    const std::lock_guard lock(m_lock);
    const auto found = m_records.find(functionName);
    return found == m_records.end() ? Record{} : found->second;
}

std::uint32_t TimingStatistics::LongestName() const {
    const std::lock_guard lock(m_lock);
    return m_longestName;
}

LogScopeTimer::LogScopeTimer(CorvaLogger& logger, const char* functionName) noexcept
    : m_logger(logger), m_start(UnbiasedInterruptTime()), m_functionName(functionName) {}

void LogScopeTimer::End() {
    m_elapsedMilliseconds = static_cast<double>(UnbiasedInterruptTime() - m_start) / kTicksPerMillisecond;
    if (m_elapsedMilliseconds < kFirstMillisecondsInSeconds) {
        m_logger.Write(Level::kDiag, m_functionName, L"Elapsed time = %7.1Lf ms.", m_elapsedMilliseconds);
    } else {
        m_logger.Write(Level::kDiag, m_functionName, L"Elapsed time = %7.1Lf s.",
                       m_elapsedMilliseconds / kMillisecondsPerSecond);
    }
    m_logger.Statistics().Add(m_functionName, m_elapsedMilliseconds);
}

}  // namespace Orva::Shared
