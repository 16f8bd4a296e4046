#include "core/mobile_broadband_subscription.h"

#include <functional>
#include <new>

#include "core/event_subscription.h"
#include "core/service_state.h"
#include "logging/log_scope.h"

using Microsoft::WRL::ComPtr;

void ListenForWwanEvents(ServiceState& service) {
    const LogScope log("CMainService::ListenForWwanEvents");
    const ComPtr<IMbnInterfaceManager> manager = service.mbnInterfaceManager;
    // The sink counts from 0: one reference is the service's, one the caller's, as for network events.
    const auto createSinks = [&]() -> ComPtr<IUnknown> {
        const ComPtr<CMbnSinks> sinks(new (std::nothrow) CMbnSinks);
        if (sinks == nullptr) {
            return log.Failure(nullptr, L"CMbnSinks allocation Failed");
        }
        sinks->AddRef();
        service.mbnSinks = sinks.Get();
        return sinks;
    };
    SubscribeToEvents(log, manager.Get(),
                      {{IID_IMbnRadioEvents, L"FindConnectionPoint failed with error: 0x%08X",
                        L"IID_IMbnRadioEvents QueryInterface failed with error: 0x%08X",
                        service.mbnRadioEvents, service.mbnRadioCookie, false}},
                      std::ref(createSinks));
}
