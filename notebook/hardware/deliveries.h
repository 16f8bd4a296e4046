#pragma once

#include <windows.h>

#include <cstdint>
#include <deque>
#include <functional>

#include "notebook/state/layout.h"

namespace Notebook {

/// Threads of the hardware's own that call subscribers, each job once, in order for one thread.
/// They wait without a time limit and live as long as the process.
class DeliveryQueue {
  public:
    using Job = std::function<void()>;

    /// `apartment`: the threads enter the multithreaded COM apartment.
    explicit DeliveryQueue(bool apartment) : m_apartment(apartment) {}

    void Post(Job job);
    /// Makes sure that so many threads work on the queue; never fewer than there are.
    void Need(std::uint32_t threads);

  private:
    static DWORD WINAPI Main(void* queue);
    void Work();

    const bool m_apartment;
    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_filled = CONDITION_VARIABLE_INIT;
    std::deque<Job> m_jobs;
    std::uint32_t m_threads = 0;
};

/// Takes what the devices announce out of the shared state and has it delivered to the subscribers
/// of this process: WLAN notifications, network events and modem events on threads of their own,
/// as Windows delivers them. Also the one who is awake when something is due.
class EventPump {
  public:
    static EventPump& Get();

    /// Starts it, if it does not run yet, and returns the number of events so far: a subscriber
    /// hears of those that come after.
    std::uint64_t Start();

    using Handler = std::function<void(const Event& event, std::uint64_t number)>;
    /// Who delivers an event to the subscribers; called on the kind's own thread. Set once, before
    /// the first subscription.
    void OnWlan(Handler handler) { m_onWlan = std::move(handler); }
    void OnNetwork(Handler handler) { m_onNetwork = std::move(handler); }
    void OnModem(Handler handler) { m_onModem = std::move(handler); }

  private:
    EventPump() = default;
    static DWORD WINAPI Main(void* pump);
    void Run();
    Micros Collect();
    void Dispatch(const Event& event, std::uint64_t number);
    void Deliver(DeliveryQueue& queue, const Handler& handler, const Event& event, std::uint64_t number);

    SRWLOCK m_lock = SRWLOCK_INIT;
    HANDLE m_wake = nullptr;
    std::uint64_t m_seen = 0;
    DeliveryQueue m_wlan{false};
    DeliveryQueue m_network{true};
    DeliveryQueue m_modem{true};
    Handler m_onWlan;
    Handler m_onNetwork;
    Handler m_onModem;
};

/// Waits until another thread has given up the exclusive lock; gives it back at scope end.
class ExclusiveLock {
  public:
    explicit ExclusiveLock(SRWLOCK& lock) noexcept : m_lock(lock) { AcquireSRWLockExclusive(&m_lock); }
    ExclusiveLock(const ExclusiveLock&) = delete;
    ExclusiveLock& operator=(const ExclusiveLock&) = delete;
    ~ExclusiveLock() { ReleaseSRWLockExclusive(&m_lock); }

  private:
    SRWLOCK& m_lock;
};

}  // namespace Notebook
