#pragma once

#include <string>
#include <vector>

#include "doctor/inspection/judgement.h"
#include "doctor/inspection/state.h"

/// What was found, for people and for programs. Texts that come from outside (names of adapters, values
/// of the registry) are shown without control characters.
namespace Inspection {

[[nodiscard]] std::string StateAsText(const State& state);
[[nodiscard]] std::string StateAsJson(const State& state);
[[nodiscard]] std::string FindingsAsText(const std::vector<Finding>& findings);
[[nodiscard]] std::string FindingsAsJson(const std::vector<Finding>& findings, const State& state);

}  // namespace Inspection
