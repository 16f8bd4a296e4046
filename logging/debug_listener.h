#pragma once

#include "logging/listener.h"

namespace Orva::Shared {

/// Shows entries in an attached debugger: function and message, without time, thread or level.
class CorvaLogListenerDebug final : public CorvaLogListener {
  public:
    CorvaLogListenerDebug() = default;

    void Log(const LogData& entry) override;

    [[nodiscard]] int GetType() const override { return ListenerType::kDebug; }
};

}  // namespace Orva::Shared
