#pragma once

#include <windows.h>

#include <chrono>

namespace Platform {

/// Suspends the calling thread.
inline void Pause(std::chrono::milliseconds duration) {
    Sleep(static_cast<DWORD>(duration.count()));
}

}  // namespace Platform
