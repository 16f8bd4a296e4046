#include "logging/scope_timer.h"

#include <realtimeapiset.h>

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
