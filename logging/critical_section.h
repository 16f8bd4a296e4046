#pragma once

#include <windows.h>

namespace Orva::Shared {

/// A critical section, deleted with its owner, that is seldom held for more than a moment: whoever finds it
/// taken spins before it waits.
class CriticalSection {
  public:
    CriticalSection() noexcept {
        static_cast<void>(InitializeCriticalSectionAndSpinCount(&m_section, kSpinCount));
    }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() { DeleteCriticalSection(&m_section); }

    void Enter() noexcept { EnterCriticalSection(&m_section); }
    void Leave() noexcept { LeaveCriticalSection(&m_section); }

  private:
    /// What Windows' heap takes.
    static constexpr DWORD kSpinCount = 4000;

    CRITICAL_SECTION m_section{};
};

/// Holds a critical section for a scope.
class CriticalSectionLock {
  public:
    explicit CriticalSectionLock(CriticalSection& section) noexcept : m_section(section) {
        m_section.Enter();
    }
    CriticalSectionLock(const CriticalSectionLock&) = delete;
    CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;
    ~CriticalSectionLock() { m_section.Leave(); }

  private:
    CriticalSection& m_section;
};

/// Leaves a section that the caller holds, for a scope.
class CriticalSectionGap {
  public:
    explicit CriticalSectionGap(CriticalSection& section) noexcept : m_section(section) { m_section.Leave(); }
    CriticalSectionGap(const CriticalSectionGap&) = delete;
    CriticalSectionGap& operator=(const CriticalSectionGap&) = delete;
    ~CriticalSectionGap() { m_section.Enter(); }

  private:
    CriticalSection& m_section;
};

}  // namespace Orva::Shared
