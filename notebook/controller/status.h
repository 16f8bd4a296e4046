#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "notebook/controller/service_manager.h"
#include "notebook/controller/system_registry.h"
#include "notebook/state/layout.h"

namespace Notebook {

/// What a status is made from; each part is read when it is first asked for.
class Snapshot {
  public:
    const Devices& TheDevices();
    const ServiceState& Service();

  private:
    std::unique_ptr<Devices> m_devices;
    std::optional<ServiceState> m_service;
};

/// All pairs but what is costly to find out, key=value, blanks between.
std::string StatusLine();
/// One value. Throws `CommandError` for a key that is none.
std::string StatusValue(Snapshot& snapshot, std::string_view key);

struct Condition {
    std::string key;
    std::string value;
    bool equal = true;
};
/// Reads KEY=VALUE or KEY!=VALUE.
Condition ParseCondition(const std::string& text);

/// What keeps the service from being settled; empty when nothing does: every event handled, no control and no
/// call in progress, no thread that sleeps or waits with a time limit, nothing due, and no call for so long.
std::string Unsettled(Micros quiet);

}  // namespace Notebook
