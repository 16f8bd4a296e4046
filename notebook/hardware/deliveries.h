#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>

#include "notebook/state/layout.h"

namespace Notebook {

/// A thread of the hardware's own that calls subscribers, each job once and in order. It waits without a
/// time limit and lives as long as the process. It enters no COM apartment: like the threads that bring
/// calls from other processes it works in the multithreaded one while there is one, and does not keep it
/// alive.
class DeliveryQueue {
  public:
    using Job = std::function<void()>;

    void Post(Job job);
    /// From now on a thread works on the queue.
    void Start();

  private:
    static DWORD WINAPI Main(void* queue);
    void Work();

    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_filled = CONDITION_VARIABLE_INIT;
    std::deque<Job> m_jobs;
    bool m_isWorkedOn = false;
};

/// The threads on which subscribers hear of the devices, as on Windows.
enum class Channel { Wlan, Network, Modem };

/// Takes what the devices announce out of the shared state and has it delivered to the subscribers
/// of this process. Also the one who is awake when something is due.
class EventPump {
  public:
    static EventPump& Get();

    /// Starts it, if it does not run yet, and returns the number of events so far: a subscriber
    /// hears of those that come after.
    std::uint64_t Start();

    /// From now on nobody delivers but `DeliverNow`: for tests, which choose the thread and the moment.
    void DeliverByHand();
    /// By hand: has `taker` given each delivery instead, to be made on whatever thread; null: no more.
    using Taker = std::function<void(const Event& event, DeliveryQueue::Job job)>;
    void HandOver(Taker taker) { m_taker = std::move(taker); }
    /// Tells the subscribers, on this thread, what was announced and not delivered yet.
    void DeliverNow() { Collect(); }

    using Handler = void (*)(const Event& event, std::uint64_t number);
    /// Who delivers events to the subscribers; called on the channel's thread. Set before the first
    /// subscription. Events of a channel that this process does not serve are passed over.
    void On(Channel channel, Handler handler) {
        m_lines[static_cast<std::size_t>(channel)].handler = handler;
    }

  private:
    EventPump() = default;
    static DWORD WINAPI Main(void* pump);
    void Run();
    Micros Collect();
    void Deliver(const Event& event, std::uint64_t number);

    SRWLOCK m_lock = SRWLOCK_INIT;
    bool m_byHand = false;
    Taker m_taker;
    HANDLE m_wake = nullptr;
    std::uint64_t m_seen = 0;
    struct Line {
        DeliveryQueue queue;
        std::atomic<Handler> handler = nullptr;
    };
    Line m_lines[3];  ///< by channel
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
