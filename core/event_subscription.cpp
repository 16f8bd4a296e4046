#include "core/event_subscription.h"

#include "logging/log_scope.h"

using Microsoft::WRL::ComPtr;

namespace {

/// Whether a COM step succeeded. If not, writes `failureLine` with the result.
bool StepSucceeded(const LogScope& log, HRESULT result, const wchar_t* failureLine) {
    if (FAILED(result)) {
        log.Error(failureLine, result);
    }
    return SUCCEEDED(result);
}

/// What another process answers may be a success without its object; that is a failure, too.
template <class Interface>
HRESULT RequireObject(HRESULT result, const ComPtr<Interface>& object) {
    return SUCCEEDED(result) && object == nullptr ? E_POINTER : result;
}

ComPtr<IConnectionPointContainer> QueryContainer(const LogScope& log, IUnknown* manager) {
    ComPtr<IConnectionPointContainer> container;
    const HRESULT result =
        manager != nullptr ? manager->QueryInterface(IID_PPV_ARGS(container.GetAddressOf())) : E_POINTER;
    const bool succeeded =
        StepSucceeded(log, RequireObject(result, container),
                      L"IID_IConnectionPointContainer QueryInterface failed with error: 0x%08X");
    return succeeded ? container : nullptr;
}

ComPtr<IConnectionPoint> FindPoint(const LogScope& log, IConnectionPointContainer& container,
                                   const EventSubscription& subscription) {
    ComPtr<IConnectionPoint> point;
    const HRESULT result = container.FindConnectionPoint(subscription.events, point.GetAddressOf());
    if (!StepSucceeded(log, RequireObject(result, point), subscription.findFailedLine)) {
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
    const ComPtr<IConnectionPointContainer> container = QueryContainer(log, manager);
    if (container == nullptr) {
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
