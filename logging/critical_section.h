#pragma once

#include <windows.h>

namespace Orva::Shared {

/// A critical section, deleted with its owner.
class CriticalSection {
  public:
    CriticalSection() noexcept { InitializeCriticalSection(&m_section); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() { DeleteCriticalSection(&m_section); }

    void Enter() noexcept { EnterCriticalSection(&m_section); }
    /// For a section that is only held for a moment, but by many in turn: whoever finds it taken
    /// lets others run and looks again before he queues up for it. A section that threads queue up
    /// for is handed from one sleeping thread to the next, which takes much longer than the work.
    void EnterPatiently() noexcept;
    void Leave() noexcept { LeaveCriticalSection(&m_section); }

  private:
    CRITICAL_SECTION m_section{};
};

/// Holds a critical section for a scope, with the one interruption that a waiter needs.
class CriticalSectionLock {
  public:
    enum class Manner : bool { kAtOnce, kPatiently };

    explicit CriticalSectionLock(CriticalSection& section, Manner manner = Manner::kAtOnce) noexcept
        : m_section(section) {
        if (manner == Manner::kPatiently) {
            m_section.EnterPatiently();
        } else {
            m_section.Enter();
        }
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
