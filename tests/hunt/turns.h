#pragma once

#include <windows.h>

#include <array>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "tests/hunt/command.h"
#include "tests/hunt/threads.h"
#include "tests/support/test_clock.h"

namespace RandomEvents {

/// Threads of which one runs at a time, for a scope. A thread has its turn until it sleeps, waits for
/// something that is not there, or has come to its end, in a fine step also until a `Point`; then a seed says
/// who is next. Time goes on when nobody has anything to do. So a run is the same whenever it is played, and
/// what it did can be told.
///
/// The thread that made it is not one of them: it posts jobs, and lets them have their turns by `Settle`.
class Turns final : public Threads {
  public:
    explicit Turns(Rig::TestClock& clock);
    Turns(const Turns&) = delete;
    Turns& operator=(const Turns&) = delete;
    ~Turns() override;

    void Post(Who who, Job job) override;
    void After(Milliseconds time, Job what) override;
    bool Settle(std::uint64_t seed, bool isFine) override;
    /// Who had the turns of the last `Settle`.
    [[nodiscard]] const std::vector<Who>& Taken() const { return m_taken; }

    [[nodiscard]] bool IsAtWork(Who who) const override;
    void Point() override;
    void Signalled() override { m_isSignalled = true; }

  private:
    enum class State { kAbsent, kIdle, kReady, kWaiting };
    struct Seat {
        Turns* turns = nullptr;
        Who who = Who::kClock;
        State state = State::kAbsent;
        HANDLE thread = nullptr;
        HANDLE handle = nullptr;          ///< waits for this
        const void* condition = nullptr;  ///< or for this condition variable
        Milliseconds until{};
        DWORD result = WAIT_OBJECT_0;
        CONDITION_VARIABLE turn = CONDITION_VARIABLE_INIT;
    };
    static constexpr Milliseconds kNever = Milliseconds::max();

    static DWORD WINAPI Main(void* seat);
    void Work(Seat& seat);
    [[nodiscard]] std::deque<Job>& JobsOf(Who who);
    void Wait(Seat& seat, HANDLE handle, const void* condition, DWORD milliseconds);
    DWORD WaitFor(HANDLE handle, DWORD milliseconds);
    void PassOn(Seat& seat, bool leaves);
    [[nodiscard]] Seat* Choose();
    [[nodiscard]] bool CanRun(Seat& seat);
    [[nodiscard]] bool PassTime();
    void HandTo(Seat* next);
    void AwaitTurn(CONDITION_VARIABLE& turn, const Seat* mine);
    void Look();
    void ReplaceWaits();

    Rig::TestClock& m_clock;
    std::array<Seat, kThreads> m_seats;
    std::array<std::deque<Job>, kThreads> m_jobs;
    std::multimap<Milliseconds, Job> m_later;
    std::vector<Who> m_taken;
    Random m_random{0};
    bool m_isFine = false;
    bool m_isSignalled = true;   ///< somebody's wait may have come to its end: worth a look
    std::set<HANDLE> m_mutexes;  ///< nobody ever waits for these: only one thread runs
    bool m_ends = false;
    Seat* m_running = nullptr;  ///< null: the thread that made it
    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_settled = CONDITION_VARIABLE_INIT;
    std::vector<std::shared_ptr<void>> m_imports;
};

}  // namespace RandomEvents
