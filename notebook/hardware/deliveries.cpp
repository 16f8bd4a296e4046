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

void DeliveryQueue::Start() {
    const ExclusiveLock lock(m_lock);
    if (!m_isWorkedOn) {
        CloseHandle(CreateThread(nullptr, 0, &DeliveryQueue::Main, this, 0, nullptr));
        m_isWorkedOn = true;
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
    for (Line& line : m_lines) {
        line.queue.Start();
    }
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
        Deliver(item.event, item.number);
    }
    return due;
}

namespace {

Channel ChannelOf(EventKind kind) {
    switch (kind) {
        case EventKind::Wlan:
        case EventKind::WlanNullNotification:
            return Channel::Wlan;
        case EventKind::ModemStateChange:
        case EventKind::ModemSetComplete:
            return Channel::Modem;
        default:
            return Channel::Network;
    }
}

}  // namespace

void EventPump::Deliver(const Event& event, std::uint64_t number) {
    Line& line = m_lines[static_cast<std::size_t>(ChannelOf(event.kind))];
    DeliveryQueue::Job job = [handler = line.handler.load(), event, number] {
        if (handler != nullptr) {
            handler(event, number);
        }
        Activity& activity = SharedState::Get().OwnActivity();
        InterlockedExchange64(&activity.lastAt, Now());
        InterlockedIncrement(&activity.deliveriesEnded);
    };
    if (m_taker) {
        m_taker(event, std::move(job));
    } else if (m_byHand) {
        job();
    } else {
        line.queue.Post(std::move(job));
    }
}

}  // namespace Notebook
