#pragma once

#include "doctor/inspection/state.h"

namespace Doctor {

/// Looks at this machine: enters COM for as long as that takes. With what the log says of the last
/// decision, as far as the log may be read.
[[nodiscard]] Inspection::State LookAtMachine();

}  // namespace Doctor
