#include "tests/hunt/crew.h"

#include <algorithm>
#include <utility>

#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"
#include "tests/support/com_support.h"
#include "tests/support/scoped_import.h"

namespace RandomEvents {

using Rig::Real;
using Rig::Detail::RigLockHolder;

namespace {

/// So many times as fast as the real clock goes the rig's.
constexpr DWORD kSpeed = 1000;
constexpr std::chrono::seconds kTimeout{60};

constexpr Who kSeats[] = {Who::kControl, Who::kWlan,    Who::kWlan,   Who::kModem,  Who::kModem,
                          Who::kNetwork, Who::kNetwork, Who::kWorker, Who::kWatcher};

/// The seat of the calling thread; null: none of the crew.
DWORD g_slot = TLS_OUT_OF_INDEXES;

void* SeatOfThisThread() {
    const Rig::Detail::LastErrorKeeper keeper;
    return TlsGetValue(g_slot);
}

DWORD Shortened(DWORD milliseconds) {
    return std::max<DWORD>(1, milliseconds / kSpeed);
}

}  // namespace

Crew::Crew(Rig::TestClock& clock) : m_clock(clock) {
    g_slot = TlsAlloc();
    ReplaceWaits();
    for (std::size_t i = 0; i < m_seats.size(); ++i) {
        m_seats.at(i).crew = this;
        m_seats.at(i).who = kSeats[i];
        m_seats.at(i).thread = Real<&::CreateThread>(nullptr, 0, &Crew::Main, &m_seats.at(i), 0, nullptr);
    }
}

Crew::~Crew() {
    {
        const RigLockHolder hold(m_lock);
        m_ends = true;
        m_lock.WakeAll();
    }
    for (const Seat& seat : m_seats) {
        Real<&::WaitForSingleObject>(seat.thread, INFINITE);
        Real<&::CloseHandle>(seat.thread);
    }
    m_imports.clear();
}

void Crew::Post(Who who, Job job) {
    const RigLockHolder hold(m_lock);
    m_jobs.at(static_cast<std::size_t>(who)).push_back(std::move(job));
    m_lock.WakeAll();
}

void Crew::After(Milliseconds time, Job what) {
    m_later.emplace(m_clock.Elapsed() + time, std::move(what));
}

bool Crew::Settle(std::uint64_t /*seed*/, bool /*isFine*/) {
    const auto begin = std::chrono::steady_clock::now();
    while (!IsAtRest()) {
        if (std::chrono::steady_clock::now() - begin > kTimeout) {
            m_stuck = "never comes to rest:" + TellBusy();
            return false;
        }
        Live(Milliseconds(1));
    }
    return true;
}

bool Crew::IsAtWork(Who who) const {
    const RigLockHolder hold(m_lock);
    return !m_jobs.at(static_cast<std::size_t>(who)).empty() ||
           std::ranges::any_of(m_seats, [=](const Seat& seat) { return seat.who == who && seat.isBusy; });
}

void Crew::Live(Milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    do {
        const auto now = std::chrono::steady_clock::now();
        m_clock.Advance(std::chrono::duration_cast<Milliseconds>((now - m_last) * kSpeed));
        m_last = now;
        LetDueHappen();
        Real<&::Sleep>(1);
    } while (std::chrono::steady_clock::now() < end);
}

void Crew::LetDueHappen() {
    { const Notebook::LockedMachine whatIsDueHappens; }
    while (!m_later.empty() && m_later.begin()->first <= m_clock.Elapsed()) {
        const Job what = std::move(m_later.begin()->second);
        m_later.erase(m_later.begin());
        what();
    }
}

/// Nobody has anything to do, and nothing is due. The watcher waits as long as it lives.
bool Crew::IsAtRest() const {
    if (!m_later.empty() || Notebook::NextDue(Notebook::SharedState::Get().Raw()) != Notebook::kNever) {
        return false;
    }
    const RigLockHolder hold(m_lock);
    return std::ranges::all_of(m_jobs, [](const std::deque<Job>& jobs) { return jobs.empty(); }) &&
           std::ranges::all_of(m_seats, [](const Seat& seat) {
               const HANDLE handle = seat.waitsFor;
               return !seat.isBusy || (seat.who == Who::kWatcher && handle != nullptr &&
                                       Real<&::WaitForSingleObject>(handle, 0) == WAIT_TIMEOUT);
           });
}

std::string Crew::TellBusy() const {
    const RigLockHolder hold(m_lock);
    std::string text;
    for (const Seat& seat : m_seats) {
        if (seat.isBusy) {
            text += std::string("\n  ") + NameOf(seat.who) + Locks::Tell(*seat.inside);
        }
    }
    return text;
}

DWORD WINAPI Crew::Main(void* seat) {
    static_cast<Seat*>(seat)->crew->Work(*static_cast<Seat*>(seat));
    return 0;
}

void Crew::Work(Seat& seat) {
    const Rig::ComApartment apartment;
    TlsSetValue(g_slot, &seat);
    seat.inside = &Locks::ThisThread();
    std::deque<Job>& jobs = m_jobs.at(static_cast<std::size_t>(seat.who));
    while (true) {
        Job job;
        {
            const RigLockHolder hold(m_lock);
            seat.isBusy = false;
            while (jobs.empty() && !m_ends) {
                m_lock.Wait(INFINITE);
            }
            if (jobs.empty()) {
                return;
            }
            job = std::move(jobs.front());
            jobs.pop_front();
            seat.isBusy = true;
        }
        Locks::Pause();
        job();
    }
}

/// In front of the clock, for the threads of the crew; others wait as ever, in real time.
void Crew::ReplaceWaits() {
    m_imports = {
        Rig::ReplaceIfImported<&::Sleep>([](DWORD milliseconds) {
            Real<&::Sleep>(SeatOfThisThread() != nullptr ? Shortened(milliseconds) : milliseconds);
        }),
        Rig::ReplaceIfImported<&::WaitForSingleObject>(
            Rig::kWrapping,
            [this](const auto& self, HANDLE handle, DWORD milliseconds) {
                auto* const seat = static_cast<Seat*>(SeatOfThisThread());
                if (milliseconds != INFINITE) {
                    return Real<&::WaitForSingleObject>(handle, seat != nullptr && milliseconds != 0
                                                                    ? Shortened(milliseconds)
                                                                    : milliseconds);
                }
                if (seat != nullptr && IsNamedEvent(handle)) {
                    seat->waitsFor = handle;
                }
                const DWORD result = self.Original(handle, milliseconds);
                if (seat != nullptr) {
                    seat->waitsFor = nullptr;
                }
                return result;
            }),
        Rig::ReplaceIfImported<&::CreateEventW>(Rig::kWrapping,
                                                [this](const auto& self, SECURITY_ATTRIBUTES* security,
                                                       BOOL isManual, BOOL isSet, const wchar_t* name) {
                                                    const HANDLE event =
                                                        self.Original(security, isManual, isSet, name);
                                                    if (name != nullptr) {
                                                        const RigLockHolder hold(m_lock);
                                                        m_namedEvents.insert(event);
                                                    }
                                                    return event;
                                                }),
    };
}

bool Crew::IsNamedEvent(HANDLE handle) const {
    const RigLockHolder hold(m_lock);
    return m_namedEvents.contains(handle);
}

}  // namespace RandomEvents
