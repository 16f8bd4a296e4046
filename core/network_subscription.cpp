#include <new>

#include "core/common_steps.h"
#include "core/main_service.h"
#include "logging/log_scope.h"

using CoreSteps::QueryContainer;
using CoreSteps::RequireObject;
using CoreSteps::StepSucceeded;
using Microsoft::WRL::ComPtr;

namespace {

constexpr wchar_t kFindFailed[] = L"FindConnectionPoint failed with error: 0x%08X";

/// Finds a connection point and keeps it in the service's field, and in `found` for the caller's
/// own use: a stop may clear the field at any moment.
bool FindConnectionPoint(const LogScope& log, const ComPtr<IConnectionPointContainer>& container,
                         const IID& events, const wchar_t* failureLine, ComPtr<IConnectionPoint>& field,
                         ComPtr<IConnectionPoint>& found) {
    const HRESULT result = container->FindConnectionPoint(events, found.ReleaseAndGetAddressOf());
    if (!StepSucceeded(log, RequireObject(result, found), failureLine)) {
        return false;
    }
    field = found;
    return true;
}

/// The interface pointer that the handler gives for `events` is handed over with its reference and
/// never released: the handler then lives until the process ends, and an event that is still under
/// way when the service stops finds it alive.
bool Advise(const LogScope& log, IConnectionPoint& connectionPoint, NLMEventHandler& handler,
            const IID& events, const wchar_t* queryFailureLine, DWORD* cookie) {
    IUnknown* sink = nullptr;
    const HRESULT queried = handler.QueryInterface(events, reinterpret_cast<void**>(&sink));
    return StepSucceeded(log, queried, queryFailureLine) &&
           StepSucceeded(log, connectionPoint.Advise(sink, cookie), L"Advise failed with error: 0x%08X");
}

}  // namespace

void CMainService::ListenForWlanEvents() {
    const LogScope log("CMainService::ListenForWlanEvents");
    // This thread's own reference: a stop may clear the field at any moment.
    ComPtr<INetworkListManager> manager = m_networkListManager;
    SubscribeToNetworkEvents(log, manager);
    if (!m_running || m_networkListManager == nullptr) {
        // The service stops or has stopped. What was subscribed behind the back of the stop nobody
        // gives back, and the handler works with the manager without holding it: it must not go
        // before the process. A stop clears the running flag first of all, before it takes any
        // subscription back.
        static_cast<void>(manager.Detach());
    }
}

void CMainService::SubscribeToNetworkEvents(const LogScope& log, const ComPtr<INetworkListManager>& manager) {
    ComPtr<IConnectionPointContainer> container;
    ComPtr<IConnectionPoint> found;
    if (!StepSucceeded(log, QueryContainer(manager, container),
                       L"IID_IConnectionPointContainer QueryInterface failed with error: 0x%08X") ||
        !FindConnectionPoint(log, container, IID_INetworkListManagerEvents,
                             L"FindConnectionPoint Failed with error: 0x%08X", m_networkListManagerEvents,
                             found)) {
        return;
    }
    const ComPtr<NLMEventHandler> handler = CreateNetworkEventHandler(log, manager.Get());
    if (handler == nullptr ||
        !Advise(log, *found.Get(), *handler.Get(), IID_INetworkListManagerEvents,
                L"IID_INetworkListManagerEvents QueryInterface failed with error: 0x%08X",
                &m_networkListManagerCookie)) {
        return;
    }
    if (!FindConnectionPoint(log, container, IID_INetworkConnectionEvents, kFindFailed,
                             m_networkConnectionEvents, found) ||
        !Advise(log, *found.Get(), *handler.Get(), IID_INetworkConnectionEvents,
                L"IID_INetworkConnectionEvents QueryInterface failed with error: 0x%08X",
                &m_networkConnectionCookie)) {
        return;
    }
    if (FindConnectionPoint(log, container, IID_INetworkEvents, kFindFailed, m_networkEvents, found)) {
        Advise(log, *found.Get(), *handler.Get(), IID_INetworkEvents,
               L"IID_INetworkEvents QueryInterface failed with error: 0x%08X", &m_networkCookie);
    }
}

ComPtr<NLMEventHandler> CMainService::CreateNetworkEventHandler(const LogScope& log,
                                                                INetworkListManager* manager) {
    ComPtr<NLMEventHandler> handler(new (std::nothrow) NLMEventHandler(manager, m_wiredConnections));
    if (handler == nullptr) {
        log.Error(L"NLMEventHandler creation failed with error: 0x%08X", E_OUTOFMEMORY);
        return handler;
    }
    handler->AddRef();
    m_networkEventHandler = handler.Get();
    return handler;
}
