#pragma once

#include <windows.h>

namespace Orva::Shared {

/// The local date and time, to the millisecond. Every log entry asks for it, so how far local time
/// is from the system's is looked up once a second only. Any thread.
[[nodiscard]] SYSTEMTIME LocalNow() noexcept;

}  // namespace Orva::Shared
