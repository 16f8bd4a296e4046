#include "logging/local_clock.h"

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Orva::Shared {
namespace {

/// Time as files have it: units of 100 ns since 1601.
using Ticks = std::int64_t;
using TickDuration = std::chrono::duration<Ticks, std::ratio<1, 10'000'000>>;

constexpr Ticks kTicksPerSecond = TickDuration(std::chrono::seconds(1)).count();
/// From 1601 to 1970, where the C++ clock begins.
constexpr Ticks kTicksBefore1970 = 116'444'736'000'000'000;
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

Ticks LookUpOffset(Ticks now) noexcept {
    const FILETIME system = ToFileTime(now);
    FILETIME local = system;
    FileTimeToLocalFileTime(&system, &local);
    return ToTicks(local) - now;
}

Ticks CurrentOffset(Ticks now) noexcept {
    const Ticks age = now - offsetTakenAt.load(std::memory_order_acquire);
    if (age < 0 || age >= kTicksPerSecond) {
        offset.store(LookUpOffset(now), std::memory_order_relaxed);
        offsetTakenAt.store(now, std::memory_order_release);
    }
    return offset.load(std::memory_order_relaxed);
}

}  // namespace

SYSTEMTIME LocalNow() noexcept {
    using std::chrono::days;
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    const auto system = std::chrono::duration_cast<TickDuration>(sinceEpoch);
    const Ticks ahead = CurrentOffset(system.count() + kTicksBefore1970);
    const std::chrono::sys_time<TickDuration> local(system + TickDuration(ahead));
    const std::chrono::sys_days day = std::chrono::floor<days>(local);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(std::chrono::floor<std::chrono::milliseconds>(local - day));
    const auto word = [](auto number) { return static_cast<WORD>(number); };
    return {word(int(date.year())),
            word(unsigned(date.month())),
            word(std::chrono::weekday(day).c_encoding()),
            word(unsigned(date.day())),
            word(time.hours().count()),
            word(time.minutes().count()),
            word(time.seconds().count()),
            word(time.subseconds().count())};
}

}  // namespace Orva::Shared
