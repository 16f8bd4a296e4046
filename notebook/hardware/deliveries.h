#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>

#include "notebook/state/layout.h"

namespace Notebook {

/// Threads of the hardware's own that call subscribers, each job once, in order for one thread.
/// They wait without a time limit and live as long as the process. They enter no COM apartment: like
/// the threads that bring calls from other processes they work in the multithreaded one while there
/// is one, and do not keep it alive.
class DeliveryQueue {
  public:
    using Job = std::function<void()>;

    void Post(Job job);
    /// Makes sure that so many threads work on the queue; never fewer than there are.
    void Need(std::uint32_t threads);

  private:
    static DWORD WINAPI Main(void* queue);
    void Work();

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

    /// From now on nobody delivers but `DeliverNow`: for tests, which choose the thread and the moment.
    void DeliverByHand();
    /// Tells the subscribers, on this thread, what was announced and not delivered yet.
    void DeliverNow() { Collect(); }

    using Handler = void (*)(const Event& event, std::uint64_t number);
    /// Who delivers an event to the subscribers; called on the kind's own thread. Set before the first
    /// subscription. Events of a kind that this process does not serve are passed over.
    void OnWlan(Handler handler) { m_onWlan = handler; }
    void OnNetwork(Handler handler) { m_onNetwork = handler; }
    void OnModem(Handler handler) { m_onModem = handler; }

  private:
    EventPump() = default;
    static DWORD WINAPI Main(void* pump);
    void Run();
    Micros Collect();
    void Dispatch(const Event& event, std::uint64_t number);
    void Deliver(DeliveryQueue& queue, Handler handler, const Event& event, std::uint64_t number);

    SRWLOCK m_lock = SRWLOCK_INIT;
    bool m_byHand = false;
    HANDLE m_wake = nullptr;
    std::uint64_t m_seen = 0;
    DeliveryQueue m_wlan;
    DeliveryQueue m_network;
    DeliveryQueue m_modem;
    std::atomic<Handler> m_onWlan = nullptr;
    std::atomic<Handler> m_onNetwork = nullptr;
    std::atomic<Handler> m_onModem = nullptr;
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
