#pragma once

#include "logging/listener.h"
#include "platform/handles.h"

// The outputs that need no more than a call of Windows. Failures of theirs are ignored.

namespace Orva::Shared {

/// Reports entries to the Windows event log, under the executable's base name. The event
/// identifier is the level's number; what is not registered as a source is shown without a
/// sentence around it.
class CorvaLogListenerEvent final : public CorvaLogListener {
  public:
    CorvaLogListenerEvent();

    /// Reports the entry's whole line. Nothing above "Error" gets here, whatever the range says.
    void Log(const LogData& entry) override;
    [[nodiscard]] int GetType() const override { return ListenerType::kEvent; }

  private:
    /// Empty when the source could not be registered: reports then fail quietly.
    Platform::UniqueEventSource m_source;
};

/// Shows entries in an attached debugger: function and message, without time, thread or level.
class CorvaLogListenerDebug final : public CorvaLogListener {
  public:
    void Log(const LogData& entry) override;
    [[nodiscard]] int GetType() const override { return ListenerType::kDebug; }
};

/// Prints the same to standard output.
class CorvaLogListenerConsole final : public CorvaLogListener {
  public:
    void Log(const LogData& entry) override;
    [[nodiscard]] int GetType() const override { return ListenerType::kConsole; }
};

}  // namespace Orva::Shared
