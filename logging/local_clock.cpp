#include "logging/local_clock.h"

#include <atomic>
#include <cstdint>

namespace Orva::Shared {
namespace {

/// Time as files have it: units of 100 ns since 1601.
using Ticks = std::int64_t;

constexpr Ticks kTicksPerSecond = 10'000'000;
constexpr unsigned kHighBits = 32;

/// How far local time is ahead, and when that was looked up. Two threads may look it up at the
/// same time and find the same.
std::atomic<Ticks> offset{0};
std::atomic<Ticks> offsetTakenAt{0};

FILETIME ToFileTime(Ticks ticks) noexcept {
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> kHighBits)};
}

Ticks ToTicks(const FILETIME& time) noexcept {
    return static_cast<Ticks>(time.dwHighDateTime) << kHighBits | time.dwLowDateTime;
}

Ticks CurrentOffset(const FILETIME& system) noexcept {
    const Ticks now = ToTicks(system);
    const Ticks age = now - offsetTakenAt;
    if (age < 0 || age >= kTicksPerSecond) {
        FILETIME local = system;
        FileTimeToLocalFileTime(&system, &local);
        offset = ToTicks(local) - now;
        offsetTakenAt = now;
    }
    return offset;
}

}  // namespace

SYSTEMTIME LocalNow() noexcept {
    FILETIME system{};
    GetSystemTimeAsFileTime(&system);
    const FILETIME local = ToFileTime(ToTicks(system) + CurrentOffset(system));
    SYSTEMTIME time{};
    FileTimeToSystemTime(&local, &time);
    return time;
}

}  // namespace Orva::Shared
