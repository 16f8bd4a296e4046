#pragma once

#include "logging/level.h"

namespace Orva::Shared {

/// Type codes of the listeners, which are also the bits of the output selection.
namespace ListenerType {
constexpr int kEvent = 1;
constexpr int kDebug = 2;
constexpr int kQueuedFile = 4;
constexpr int kFile = 8;
constexpr int kConsole = 16;
}  // namespace ListenerType

/// Base of the log's outputs. A listener takes the entries whose level lies in its own range,
/// which policy sets at construction. `Log` is called by any thread, several at once.
class CorvaLogListener {
  public:
    /// One entry: see logging/log_data.h.
    class LogData;

    CorvaLogListener(const CorvaLogListener&) = delete;
    CorvaLogListener& operator=(const CorvaLogListener&) = delete;
    /// May throw: the logger ends all of its listeners, whatever becomes of one.
    virtual ~CorvaLogListener() noexcept(false) = default;

    /// Outputs one entry. Failures of the output are not reported.
    virtual void Log(const LogData& entry) = 0;

    /// One of `ListenerType`.
    [[nodiscard]] virtual int GetType() const = 0;

    [[nodiscard]] int MinLogLevel() const noexcept { return m_minLogLevel; }
    [[nodiscard]] int MaxLogLevel() const noexcept { return m_maxLogLevel; }

  protected:
    /// Whether the level range comes from policy, or stays "TraceIn" to "Error". All listeners of the
    /// service read it.
    enum class PolicyLevels : bool { kRead, kIgnore };

    explicit CorvaLogListener(PolicyLevels policyLevels = PolicyLevels::kRead);

    int m_minLogLevel = Level::kTraceIn;
    int m_maxLogLevel = Level::kError;
};

}  // namespace Orva::Shared
