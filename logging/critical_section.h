#pragma once

#include <windows.h>

namespace Orva::Shared {

/// A critical section, for `std::lock_guard` and its like, that is seldom held for more than a moment:
/// whoever finds it taken spins and yields before it waits. With the section's own spin count, where those
/// who wait get it in turn, each after being woken, queued calls of four threads miss their bound in
/// `logging_bench`.
class CriticalSection {
  public:
    CriticalSection() noexcept { InitializeCriticalSection(&m_section); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() { DeleteCriticalSection(&m_section); }

    // NOLINTBEGIN(readability-identifier-naming): BasicLockable
    void lock() noexcept {
        for (int yields = 0; yields < kYields; ++yields) {
            for (int spins = 0; spins < kSpins; ++spins) {
                if (TryEnterCriticalSection(&m_section) != FALSE) {
                    return;
                }
                YieldProcessor();
            }
            SwitchToThread();
        }
        EnterCriticalSection(&m_section);
    }
    void unlock() noexcept { LeaveCriticalSection(&m_section); }
    // NOLINTEND(readability-identifier-naming)

  private:
    static constexpr int kYields = 256;
    static constexpr int kSpins = 64;

    CRITICAL_SECTION m_section{};
};

}  // namespace Orva::Shared
