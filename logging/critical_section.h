#pragma once

#include <windows.h>

namespace Orva::Shared {

/// A critical section, deleted with its owner.
class CriticalSection {
  public:
    /// Whoever finds it taken looks `spinCount` times whether it is free again before he sleeps.
    explicit CriticalSection(DWORD spinCount = 0) noexcept {
        static_cast<void>(InitializeCriticalSectionAndSpinCount(&m_section, spinCount));
    }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() { DeleteCriticalSection(&m_section); }

    void Enter() noexcept { EnterCriticalSection(&m_section); }
    void Leave() noexcept { LeaveCriticalSection(&m_section); }

  private:
    CRITICAL_SECTION m_section{};
};

/// Holds a critical section for a scope, with the one interruption that a waiter needs.
class CriticalSectionLock {
  public:
    explicit CriticalSectionLock(CriticalSection& section) noexcept : m_section(section) {
        m_section.Enter();
    }
    CriticalSectionLock(const CriticalSectionLock&) = delete;
    CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;
    ~CriticalSectionLock() { m_section.Leave(); }

    /// Does `work` outside of the section and holds it again afterwards, whatever happened.
    template <class Work>
    void Outside(Work work) {
        const Gap gap(m_section);
        work();
    }

  private:
    class Gap {
      public:
        explicit Gap(CriticalSection& section) noexcept : m_section(section) { m_section.Leave(); }
        Gap(const Gap&) = delete;
        Gap& operator=(const Gap&) = delete;
        ~Gap() { m_section.Enter(); }

      private:
        CriticalSection& m_section;
    };

    CriticalSection& m_section;
};

}  // namespace Orva::Shared
