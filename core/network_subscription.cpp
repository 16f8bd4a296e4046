#include "core/network_subscription.h"

#include <functional>
#include <new>

#include "core/event_subscription.h"
#include "core/service_state.h"
#include "logging/log_scope.h"

using Microsoft::WRL::ComPtr;

void ListenForWlanEvents(ServiceState& service) {
    const LogScope log("CMainService::ListenForWlanEvents");
    ComPtr<INetworkListManager> manager = service.networkListManager;
    // The handler counts from 0: one reference is the service's, one is given to the caller, who may still
    // work with a handler that the stop has let go of.
    const auto createHandler = [&]() -> ComPtr<IUnknown> {
        auto* const created = new (std::nothrow) NLMEventHandler(manager.Get(), service.wiredConnections);
        if (created == nullptr) {
            return log.Failure(nullptr, L"NLMEventHandler creation failed with error: 0x%08X", E_OUTOFMEMORY);
        }
        ComPtr<INetworkListManagerEvents> handler(created);
        created->AddRef();
        service.networkEventHandler = created;
        return handler;
    };
    constexpr wchar_t kFindFailed[] = L"FindConnectionPoint failed with error: 0x%08X";
    SubscribeToEvents(
        log, manager.Get(),
        {{IID_INetworkListManagerEvents, L"FindConnectionPoint Failed with error: 0x%08X",
          L"IID_INetworkListManagerEvents QueryInterface failed with error: 0x%08X",
          service.networkListManagerEvents, service.networkListManagerCookie, true},
         {IID_INetworkConnectionEvents, kFindFailed,
          L"IID_INetworkConnectionEvents QueryInterface failed with error: 0x%08X",
          service.networkConnectionEvents, service.networkConnectionCookie, true},
         {IID_INetworkEvents, kFindFailed, L"IID_INetworkEvents QueryInterface failed with error: 0x%08X",
          service.networkEvents, service.networkCookie, true}},
        std::ref(createHandler));
    if (!service.running || service.networkListManager == nullptr) {
        // The service stops or has stopped. What was subscribed behind the back of the stop nobody
        // gives back, and the handler works with the manager without holding it: it must not go
        // before the process. A stop clears the running flag first of all, before it takes any
        // subscription back.
        static_cast<void>(manager.Detach());
    }
}
