#include "logging/local_clock.h"

#include <atomic>
#include <bit>
#include <cstdint>

namespace Orva::Shared {
namespace {

/// Time as files have it: units of 100 ns since 1601.
using Ticks = std::int64_t;

constexpr Ticks kTicksPerSecond = 10'000'000;

/// How far local time is ahead, and when that was looked up. Two threads may look it up at the
/// same time and find the same.
std::atomic<Ticks> offset{0};
std::atomic<Ticks> offsetTakenAt{0};

}  // namespace

SYSTEMTIME LocalNow() noexcept {
    FILETIME system{};
    GetSystemTimeAsFileTime(&system);
    const auto now = std::bit_cast<Ticks>(system);
    const Ticks age = now - offsetTakenAt;
    if (age < 0 || age >= kTicksPerSecond) {
        FILETIME local = system;
        FileTimeToLocalFileTime(&system, &local);
        offset = std::bit_cast<Ticks>(local) - now;
        offsetTakenAt = now;
    }
    const auto local = std::bit_cast<FILETIME>(now + offset);
    SYSTEMTIME time{};
    FileTimeToSystemTime(&local, &time);
    return time;
}

}  // namespace Orva::Shared
