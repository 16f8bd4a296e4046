#pragma once

#include <string_view>
#include <vector>

#include "tests/hunt/command.h"

namespace RandomEvents {

/// A short story in which each call is to fail once.
struct Scene {
    const char* name;
    Day day;
};

[[nodiscard]] const std::vector<Scene>& Scenes();
/// Throws `std::runtime_error` when there is none.
[[nodiscard]] const Scene& FindScene(std::string_view name);

}  // namespace RandomEvents
