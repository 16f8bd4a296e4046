#pragma once

#include <windows.h>

namespace Orva::Shared {

/// The local date and time, to the millisecond. How far local time is from the system's is looked up
/// once a second only, so a line may be a second late in following a change of that. With `GetLocalTime`,
/// queued calls of one thread miss their bound in `logging_bench`. Any thread.
[[nodiscard]] SYSTEMTIME LocalNow() noexcept;

}  // namespace Orva::Shared
