#pragma once

#include <windows.h>

namespace Orva::Shared {

/// A critical section, for `std::lock_guard` and its like, that is seldom held for more than a moment:
/// whoever finds it taken spins before it waits.
class CriticalSection {
  public:
    CriticalSection() noexcept {
        static_cast<void>(InitializeCriticalSectionAndSpinCount(&m_section, kSpinCount));
    }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() { DeleteCriticalSection(&m_section); }

    // NOLINTBEGIN(readability-identifier-naming): BasicLockable
    void lock() noexcept { EnterCriticalSection(&m_section); }
    void unlock() noexcept { LeaveCriticalSection(&m_section); }
    // NOLINTEND(readability-identifier-naming)

  private:
    /// What Windows' heap takes.
    static constexpr DWORD kSpinCount = 4000;

    CRITICAL_SECTION m_section{};
};

}  // namespace Orva::Shared
