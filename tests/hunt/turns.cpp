#include "tests/hunt/turns.h"

#include <algorithm>
#include <stdexcept>

#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"
#include "tests/support/scoped_import.h"

namespace RandomEvents {

using Rig::Real;

namespace {

/// More turns than any step needs.
constexpr std::size_t kMostTurns = 400'000;

bool EndsWithItsJob(Who who) {
    return who == Who::kWorker || who == Who::kWatcher;
}

}  // namespace

const char* NameOf(Who who) {
    constexpr const char* kNames[] = {"control",   "wlan",   "modem",  "network",
                                      "network 2", "worker", "watcher"};
    return who < Who::kCount ? kNames[static_cast<std::size_t>(who)] : "clock";
}

Turns::Turns(Rig::TestClock& clock) : m_clock(clock) {
    for (std::size_t i = 0; i < kThreads; ++i) {
        m_seats.at(i).turns = this;
        m_seats.at(i).who = static_cast<Who>(i);
    }
    ReplaceWaits();
}

Turns::~Turns() {
    m_ends = true;
    for (Seat& seat : m_seats) {
        if (seat.thread != nullptr) {
            HandTo(&seat);
            Real<&::WaitForSingleObject>(seat.thread, INFINITE);
            Real<&::CloseHandle>(seat.thread);
        }
    }
    m_imports.clear();
}

/// Whoever calls has the turn, or is the thread that made this: no lock is needed but for handing it over.
void Turns::Post(Who who, Job job) {
    JobsOf(who).push_back(std::move(job));
    for (Seat& seat : m_seats) {
        const bool isMeant = seat.who == who || (who == Who::kNetwork && seat.who == Who::kNetwork2);
        if (isMeant && seat.state == State::kAbsent) {
            seat.state = State::kIdle;
            seat.thread = Real<&::CreateThread>(nullptr, 0, &Turns::Main, &seat, 0, nullptr);
        }
    }
}

void Turns::After(Milliseconds time, Job what) {
    m_later.emplace(m_clock.Elapsed() + time, std::move(what));
}

std::deque<Turns::Job>& Turns::JobsOf(Who who) {
    return m_jobs.at(static_cast<std::size_t>(who == Who::kNetwork2 ? Who::kNetwork : who));
}

bool Turns::Settle(std::uint64_t seed, bool isFine) {
    m_random = Random(seed);
    m_isFine = isFine;
    m_taken.clear();
    if (Seat* const first = Choose()) {
        HandTo(first);
        AwaitTurn(m_settled, nullptr);
    }
    Look();
    return m_stuck.empty();
}

/// Who waits for ever, and what has ended for good.
void Turns::Look() {
    for (Seat& seat : m_seats) {
        const bool isWatcher = seat.who == Who::kWatcher;  // which waits as long as it lives
        if (seat.state == State::kReady || (seat.state == State::kWaiting && !isWatcher)) {
            m_stuck += std::string(m_stuck.empty() ? "" : ", ") + NameOf(seat.who) + " never comes to rest";
        } else if (seat.state == State::kAbsent && seat.thread != nullptr) {
            Real<&::WaitForSingleObject>(seat.thread, INFINITE);
            Real<&::CloseHandle>(seat.thread);
            seat.thread = nullptr;
        }
    }
}

bool Turns::IsAtWork(Who who) const {
    const State state = m_seats.at(static_cast<std::size_t>(who)).state;
    return state == State::kReady || state == State::kWaiting;
}

DWORD WINAPI Turns::Main(void* argument) {
    Seat& seat = *static_cast<Seat*>(argument);
    seat.turns->Work(seat);
    return 0;
}

void Turns::Work(Seat& seat) {
    AwaitTurn(seat.turn, &seat);
    while (!m_ends) {
        const Job job = std::move(JobsOf(seat.who).front());
        JobsOf(seat.who).pop_front();
        seat.state = State::kReady;
        job();
        const bool leaves = EndsWithItsJob(seat.who);
        seat.state = leaves ? State::kAbsent : State::kIdle;
        PassOn(seat, leaves);
        if (leaves) {
            return;
        }
    }
}

void Turns::Point() {
    if (m_running != nullptr && m_isFine) {
        m_running->state = State::kReady;
        PassOn(*m_running, false);
    }
}

void Turns::Wait(Seat& seat, HANDLE handle, const void* condition, DWORD milliseconds) {
    seat.state = State::kWaiting;
    seat.handle = handle;
    seat.condition = condition;
    seat.until = milliseconds == INFINITE ? kNever : m_clock.Elapsed() + Milliseconds(milliseconds);
    PassOn(seat, false);
}

DWORD Turns::WaitFor(HANDLE handle, DWORD milliseconds) {
    if (m_mutexes.contains(handle)) {
        return WAIT_OBJECT_0;
    }
    const DWORD result = Real<&::WaitForSingleObject>(handle, 0);
    if (result != WAIT_TIMEOUT || milliseconds == 0) {
        return result;
    }
    Seat& seat = *m_running;
    Wait(seat, handle, nullptr, milliseconds);
    // What was signalled at the very moment of the limit, before this thread had its turn, counts.
    return seat.result == WAIT_TIMEOUT ? Real<&::WaitForSingleObject>(handle, 0) : seat.result;
}

/// Gives the turn to whoever is next, and comes back with the next own one.
void Turns::PassOn(Seat& seat, bool leaves) {
    Seat* const next = Choose();
    if (next != &seat || leaves) {
        HandTo(next);
        if (!leaves) {
            AwaitTurn(seat.turn, &seat);
        }
    }
}

Turns::Seat* Turns::Choose() {
    if (m_taken.size() > kMostTurns) {
        return nullptr;
    }
    do {
        std::array<Seat*, kThreads> can{};
        std::uint32_t count = 0;
        for (Seat& seat : m_seats) {
            if (CanRun(seat)) {
                can.at(count++) = &seat;
            }
        }
        m_isSignalled = false;
        if (count != 0) {
            // Who has the turn keeps it rather often, so that others come far in one go.
            const bool keeps =
                m_running != nullptr && m_running->state == State::kReady && !m_random.OneIn(4);
            Seat* const next = keeps ? m_running : can.at(m_random.Below(count));
            next->state = next->state == State::kIdle ? State::kIdle : State::kReady;
            m_taken.push_back(next->who);
            return next;
        }
    } while (PassTime());
    return nullptr;
}

bool Turns::CanRun(Seat& seat) {
    if (seat.state == State::kWaiting) {
        // A look costs much more than everything else here.
        if (m_isSignalled && seat.handle != nullptr &&
            Real<&::WaitForSingleObject>(seat.handle, 0) == WAIT_OBJECT_0) {
            seat.result = WAIT_OBJECT_0;
            seat.state = State::kReady;
        } else if (seat.until <= m_clock.Elapsed()) {
            seat.result = WAIT_TIMEOUT;
            seat.state = State::kReady;
        }
    }
    return seat.state == State::kReady || (seat.state == State::kIdle && !JobsOf(seat.who).empty());
}

/// To the next moment at which something happens. False when there is none.
bool Turns::PassTime() {
    const Milliseconds now = m_clock.Elapsed();
    Milliseconds next = m_later.empty() ? kNever : m_later.begin()->first;
    for (const Seat& seat : m_seats) {
        if (seat.state == State::kWaiting) {
            next = std::min(next, seat.until);
        }
    }
    const Notebook::Micros due = Notebook::NextDue(Notebook::SharedState::Get().Raw());
    if (due != Notebook::kNever) {
        next = std::min(next, now + Milliseconds((due - Notebook::Now()) / Notebook::kMicrosPerMilli));
    }
    if (next == kNever) {
        return false;
    }
    m_taken.push_back(Who::kClock);
    m_clock.Advance(next - now);
    { const Notebook::LockedMachine whatIsDueHappens; }
    while (!m_later.empty() && m_later.begin()->first <= next) {
        const Job what = std::move(m_later.begin()->second);
        m_later.erase(m_later.begin());
        what();
    }
    return true;
}

/// Null: to the thread that made this.
void Turns::HandTo(Seat* next) {
    AcquireSRWLockExclusive(&m_lock);
    m_running = next;
    Real<&::WakeConditionVariable>(next != nullptr ? &next->turn : &m_settled);
    ReleaseSRWLockExclusive(&m_lock);
}

void Turns::AwaitTurn(CONDITION_VARIABLE& turn, const Seat* mine) {
    AcquireSRWLockExclusive(&m_lock);
    while (m_running != mine) {
        Real<&::SleepConditionVariableSRW>(&turn, &m_lock, INFINITE, 0);
    }
    ReleaseSRWLockExclusive(&m_lock);
}

void Turns::ReplaceWaits() {
    const auto hasTurn = [this](auto...) { return m_running != nullptr; };
    m_imports = {
        Rig::ReplaceIfImported<&::SetEvent>(hasTurn,
                                            [this](HANDLE event) {
                                                m_isSignalled = true;
                                                return Real<&::SetEvent>(event);
                                            }),
        Rig::ReplaceIfImported<&::ReleaseSemaphore>(hasTurn,
                                                    [this](HANDLE semaphore, LONG count, LONG* before) {
                                                        m_isSignalled = true;
                                                        return Real<&::ReleaseSemaphore>(semaphore, count,
                                                                                         before);
                                                    }),
        // The lock of the notebook's state: nobody loses his turn inside.
        Rig::ReplaceIfImported<&::ReleaseMutex>(hasTurn,
                                                [this](HANDLE mutex) {
                                                    return m_mutexes.insert(mutex).second
                                                               ? Real<&::ReleaseMutex>(mutex)
                                                               : TRUE;
                                                }),
        Rig::ReplaceIfImported<&::Sleep>(
            hasTurn, [this](DWORD milliseconds) { Wait(*m_running, nullptr, nullptr, milliseconds); }),
        Rig::ReplaceIfImported<&::WaitForSingleObject>(
            hasTurn, [this](HANDLE handle, DWORD milliseconds) { return WaitFor(handle, milliseconds); }),
        Rig::ReplaceIfImported<&::SleepConditionVariableSRW>(
            hasTurn,
            [this](PCONDITION_VARIABLE condition, PSRWLOCK lock, DWORD milliseconds, ULONG) -> BOOL {
                ReleaseSRWLockExclusive(lock);
                Wait(*m_running, nullptr, condition, milliseconds);
                AcquireSRWLockExclusive(lock);
                return TRUE;
            }),
        Rig::ReplaceIfImported<&::WakeAllConditionVariable>(hasTurn,
                                                            [this](PCONDITION_VARIABLE condition) {
                                                                for (Seat& seat : m_seats) {
                                                                    if (seat.state == State::kWaiting &&
                                                                        seat.condition == condition) {
                                                                        seat.state = State::kReady;
                                                                    }
                                                                }
                                                            }),
    };
}

}  // namespace RandomEvents
