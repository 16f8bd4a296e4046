#include "core/event_subscription.h"

#include "logging/log_scope.h"
#include "platform/handles.h"

using Microsoft::WRL::ComPtr;

namespace {

/// Whether a COM step succeeded. If not, writes `failureLine` with the result.
bool StepSucceeded(const LogScope& log, HRESULT result, const wchar_t* failureLine) {
    if (FAILED(result)) {
        log.Error(failureLine, result);
    }
    return SUCCEEDED(result);
}

ComPtr<IConnectionPoint> FindPoint(const LogScope& log, IConnectionPointContainer& container,
                                   const EventSubscription& subscription) {
    ComPtr<IConnectionPoint> point;
    const HRESULT result = container.FindConnectionPoint(subscription.events, point.GetAddressOf());
    if (!StepSucceeded(log, Platform::RequireObject(result, point), subscription.findFailedLine)) {
        return nullptr;
    }
    subscription.point = point;
    return point;
}

bool Advise(const LogScope& log, IConnectionPoint& point, IUnknown& object,
            const EventSubscription& subscription) {
    ComPtr<IUnknown> sink;
    const HRESULT queried =
        object.QueryInterface(subscription.events, reinterpret_cast<void**>(sink.GetAddressOf()));
    if (!StepSucceeded(log, queried, subscription.queryFailedLine)) {
        return false;
    }
    const HRESULT advised = point.Advise(sink.Get(), &subscription.cookie);
    if (subscription.keepsSink) {
        static_cast<void>(sink.Detach());
    }
    return StepSucceeded(log, advised, L"Advise failed with error: 0x%08X");
}

}  // namespace

void SubscribeToEvents(const LogScope& log, IUnknown* manager,
                       std::initializer_list<EventSubscription> subscriptions,
                       const std::function<ComPtr<IUnknown>()>& makeSink) {
    ComPtr<IConnectionPointContainer> container;
    const HRESULT queried =
        manager != nullptr ? manager->QueryInterface(IID_PPV_ARGS(container.GetAddressOf())) : E_POINTER;
    if (!StepSucceeded(log, Platform::RequireObject(queried, container),
                       L"IID_IConnectionPointContainer QueryInterface failed with error: 0x%08X")) {
        return;
    }
    ComPtr<IUnknown> sink;
    for (const EventSubscription& subscription : subscriptions) {
        const ComPtr<IConnectionPoint> point = FindPoint(log, *container.Get(), subscription);
        if (point == nullptr) {
            return;
        }
        if (sink == nullptr) {
            // Not assigned, which may count twice: the handler's count is a plain integer.
            makeSink().Swap(sink);
        }
        if (sink == nullptr || !Advise(log, *point.Get(), *sink.Get(), subscription)) {
            return;
        }
    }
}
