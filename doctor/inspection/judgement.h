#pragma once

#include <string>
#include <vector>

#include "doctor/analysis/history.h"
#include "doctor/inspection/state.h"

namespace Inspection {

using Doctor::Severity;

/// One thing that a person who looks after the machine should know. The id is stable: scripts and
/// monitoring may rely on it.
struct Finding {
    std::string id;
    Severity severity = Severity::kNote;
    std::string subject;  ///< service, firmware, cable, wifi, wwan, airplane, remembered, policy, log
    std::string sentence;
    std::string remedy;  ///< may be empty
};

/// Judges the machine: gravest first, or first of all that all is well.
[[nodiscard]] std::vector<Finding> Judge(const State& state);

// Exit codes of `check`.
constexpr int kAllWell = 0;
constexpr int kWarnings = 1;
constexpr int kCannotWork = 2;
constexpr int kCannotBeTold = 3;

/// A fault outweighs what cannot be told, and that a warning: whoever relies on 0 or 1 can rely on
/// everything that matters having been looked at.
[[nodiscard]] int ExitCode(const std::vector<Finding>& findings);

}  // namespace Inspection
