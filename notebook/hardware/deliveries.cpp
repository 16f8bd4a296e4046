#include "notebook/hardware/deliveries.h"

#include <algorithm>
#include <vector>

#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"

namespace Notebook {

void DeliveryQueue::Post(Job job) {
    const ExclusiveLock lock(m_lock);
    m_jobs.push_back(std::move(job));
    WakeConditionVariable(&m_filled);
}

void DeliveryQueue::Need(std::uint32_t threads) {
    const ExclusiveLock lock(m_lock);
    for (; m_threads < threads; ++m_threads) {
        CloseHandle(CreateThread(nullptr, 0, &DeliveryQueue::Main, this, 0, nullptr));
    }
}

DWORD WINAPI DeliveryQueue::Main(void* queue) {
    static_cast<DeliveryQueue*>(queue)->Work();
    return 0;
}

void DeliveryQueue::Work() {
    while (true) {
        Job job;
        {
            const ExclusiveLock lock(m_lock);
            while (m_jobs.empty()) {
                SleepConditionVariableSRW(&m_filled, &m_lock, INFINITE, 0);
            }
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        job();
    }
}

EventPump& EventPump::Get() {
    // Never destroyed: its threads run until the process has ended.
    static EventPump& pump = *new EventPump();
    return pump;
}

std::uint64_t EventPump::Start() {
    LockedMachine machine;
    const ExclusiveLock lock(m_lock);
    if (m_byHand) {
        return machine->eventCount;
    }
    m_wlan.Need(1);
    m_modem.Need(1);
    m_network.Need(1);
    if (m_wake == nullptr) {
        const DWORD process = GetCurrentProcessId();
        m_wake = CreateEventW(nullptr, FALSE, FALSE, SharedState::ListenerEventName(process).c_str());
        m_seen = machine->eventCount;
        for (Listener& listener : machine->listeners) {
            if (listener.process == 0) {
                listener = {process, m_seen};
                break;
            }
        }
        CloseHandle(CreateThread(nullptr, 0, &EventPump::Main, this, 0, nullptr));
    }
    return machine->eventCount;
}

void EventPump::DeliverByHand() {
    const LockedMachine machine;
    const ExclusiveLock lock(m_lock);
    m_byHand = true;
    m_seen = SharedState::Get().Raw().eventCount;
}

DWORD WINAPI EventPump::Main(void* pump) {
    static_cast<EventPump*>(pump)->Run();
    return 0;
}

void EventPump::Run() {
    while (true) {
        const Micros due = Collect();
        DWORD wait = INFINITE;
        if (due != kNever) {
            // Rounded up: a wake-up before the time would find nothing due.
            const Micros left = std::max<Micros>(0, due - Now());
            wait = static_cast<DWORD>((left + kMicrosPerMilli - 1) / kMicrosPerMilli);
        }
        WaitForSingleObject(m_wake, wait);
    }
}

Micros EventPump::Collect() {
    struct Numbered {
        Event event;
        std::uint64_t number;
    };
    std::vector<Numbered> news;
    Micros due = kNever;
    {
        LockedMachine machine;
        if (machine->eventCount - m_seen > kEventCapacity) {
            m_seen = machine->eventCount - kEventCapacity;
        }
        for (; m_seen < machine->eventCount; ++m_seen) {
            news.push_back({machine->events[m_seen % kEventCapacity], m_seen});
        }
        // Begun before they count as seen, so that nobody takes the notebook for settled between.
        InterlockedAdd(&SharedState::Get().OwnActivity().deliveriesBegun, static_cast<LONG>(news.size()));
        for (Listener& listener : machine->listeners) {
            if (listener.process == GetCurrentProcessId()) {
                listener.seen = m_seen;
            }
        }
        due = NextDue(*machine);
    }
    for (const Numbered& item : news) {
        Dispatch(item.event, item.number);
    }
    return due;
}

void EventPump::Dispatch(const Event& event, std::uint64_t number) {
    switch (event.kind) {
        case EventKind::Wlan:
        case EventKind::WlanNullNotification:
            Deliver(m_wlan, m_onWlan, event, number);
            break;
        case EventKind::ModemStateChange:
        case EventKind::ModemSetComplete:
            Deliver(m_modem, m_onModem, event, number);
            break;
        default:
            Deliver(m_network, m_onNetwork, event, number);
            break;
    }
}

void EventPump::Deliver(DeliveryQueue& queue, Handler handler, const Event& event, std::uint64_t number) {
    DeliveryQueue::Job job = [handler, event, number] {
        if (handler != nullptr) {
            handler(event, number);
        }
        Activity& activity = SharedState::Get().OwnActivity();
        InterlockedExchange64(&activity.lastAt, Now());
        InterlockedIncrement(&activity.deliveriesEnded);
    };
    if (m_byHand) {
        job();
    } else {
        queue.Post(std::move(job));
    }
}

}  // namespace Notebook
