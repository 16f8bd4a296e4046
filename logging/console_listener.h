#pragma once

#include "logging/listener.h"

namespace Orva::Shared {

/// Prints entries to standard output: function and message, without time, thread or level.
class CorvaLogListenerConsole final : public CorvaLogListener {
  public:
    CorvaLogListenerConsole() = default;

    void Log(const LogData& entry) override;

    [[nodiscard]] int GetType() const override { return ListenerType::kConsole; }
};

}  // namespace Orva::Shared
