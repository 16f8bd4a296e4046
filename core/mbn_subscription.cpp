#include <new>

#include "core/common_steps.h"
#include "core/main_service.h"
#include "logging/log_scope.h"

using CoreSteps::QueryContainer;
using CoreSteps::RequireObject;
using CoreSteps::StepSucceeded;
using Microsoft::WRL::ComPtr;

namespace {

HRESULT FindRadioEvents(IConnectionPointContainer& container, ComPtr<IConnectionPoint>& found) {
    const HRESULT result = container.FindConnectionPoint(IID_IMbnRadioEvents, &found);
    return RequireObject(result, found);
}

}  // namespace

void CMainService::ListenForWwanEvents() {
    const LogScope log("CMainService::ListenForWwanEvents");
    // References of this thread's own, here and below: a stop may clear the fields at any moment.
    const ComPtr<IMbnInterfaceManager> manager = m_mbnInterfaceManager;
    ComPtr<IConnectionPointContainer> container;
    if (!StepSucceeded(log, QueryContainer(manager, container),
                       L"IID_IConnectionPointContainer QueryInterface failed with error: 0x%08X")) {
        return;
    }
    ComPtr<IConnectionPoint> connectionPoint;
    if (!StepSucceeded(log, FindRadioEvents(*container.Get(), connectionPoint),
                       L"FindConnectionPoint failed with error: 0x%08X")) {
        return;
    }
    m_mbnRadioEvents = connectionPoint;

    const ComPtr<CMbnSinks> sinks = CreateMbnSinks(log);
    if (sinks == nullptr) {
        return;
    }
    ComPtr<IUnknown> sink;
    if (StepSucceeded(log, sinks->QueryInterface(IID_IMbnRadioEvents, &sink),
                      L"IID_IMbnRadioEvents QueryInterface failed with error: 0x%08X")) {
        static_cast<void>(StepSucceeded(log, connectionPoint->Advise(sink.Get(), &m_mbnRadioCookie),
                                        L"Advise failed with error: 0x%08X"));
    }
}

ComPtr<CMbnSinks> CMainService::CreateMbnSinks(const LogScope& log) {
    ComPtr<CMbnSinks> sinks(new (std::nothrow) CMbnSinks);
    if (sinks == nullptr) {
        log.Error(L"CMbnSinks allocation Failed");
        return sinks;
    }
    sinks->AddRef();
    m_mbnSinks = sinks.Get();
    return sinks;
}
