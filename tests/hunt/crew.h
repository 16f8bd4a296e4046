#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/hunt/locks.h"
#include "tests/hunt/threads.h"
#include "tests/support/test_clock.h"

namespace RandomEvents {

/// Real threads, which all run at once: two each for WLAN notifications, modem events and network events, one
/// each for control requests, the worker and the watcher. The rig's clock goes much faster than the real
/// one, and only while the thread that made this lets it: by `Live` and `Settle`. What is due happens on that
/// thread. The service's sleeps and waits are real ones, as much shorter.
class Crew final : public Threads {
  public:
    explicit Crew(Rig::TestClock& clock);
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;
    ~Crew() override;

    void Post(Who who, Job job) override;
    void After(Milliseconds time, Job what) override;
    bool Settle(std::uint64_t seed, bool isFine) override;
    [[nodiscard]] bool IsAtWork(Who who) const override;
    void Point() override { Locks::Pause(); }

    /// Lets so much real time pass.
    void Live(Milliseconds time);

  private:
    struct Seat {
        Crew* crew = nullptr;
        Who who = Who::kClock;
        HANDLE thread = nullptr;
        const Locks::Thread* inside = nullptr;
        bool isBusy = false;
        std::atomic<HANDLE> waitsFor = nullptr;  ///< a named event, without a limit
    };

    static DWORD WINAPI Main(void* seat);
    void Work(Seat& seat);
    void LetDueHappen();
    [[nodiscard]] bool IsAtRest() const;
    [[nodiscard]] bool IsNamedEvent(HANDLE handle) const;
    [[nodiscard]] std::string TellBusy() const;
    void ReplaceWaits();

    Rig::TestClock& m_clock;
    std::multimap<Milliseconds, Job> m_later;
    mutable Rig::Detail::RigLock m_lock;  ///< guards the seats and the jobs
    std::array<Seat, 9> m_seats;
    std::array<std::deque<Job>, kThreads> m_jobs;
    std::set<HANDLE> m_namedEvents;  ///< the watcher waits for one as long as it lives
    bool m_ends = false;
    std::chrono::steady_clock::time_point m_last = std::chrono::steady_clock::now();
    std::vector<std::shared_ptr<void>> m_imports;
};

}  // namespace RandomEvents
