#pragma once

#include <windows.h>
#include <ocidl.h>
#include <wrl/client.h>

#include <functional>
#include <initializer_list>

class LogScope;

/// One kind of events that a manager of Windows tells: where the service keeps the subscription, and the
/// lines of the steps that may fail, each with a place for the HRESULT.
struct EventSubscription {
    const IID& events;
    const wchar_t* findFailedLine;
    const wchar_t* queryFailedLine;
    Microsoft::WRL::ComPtr<IConnectionPoint>& point;
    DWORD& cookie;
    /// The sink's interface is handed over with a reference that nobody releases: the sink then lives until
    /// the process ends, and an event that is still under way when the service stops finds it alive.
    bool keepsSink;
};

/// Subscribes one sink to these kinds of events, in this order, up to the first failure, which is logged;
/// what was subscribed until then stays. `manager` may be null: a failure. `makeSink` is asked once, when the
/// first connection point has been found, and logs why it gives null; given by reference, it takes no memory.
/// Works on references of its own: a stop may clear the fields at any moment.
void SubscribeToEvents(const LogScope& log, IUnknown* manager,
                       std::initializer_list<EventSubscription> subscriptions,
                       const std::function<Microsoft::WRL::ComPtr<IUnknown>()>& makeSink);
