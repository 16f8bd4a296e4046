#include "core/main_service.h"

#include <utility>

#include "core/airplane_mode_watcher.h"
#include "core/start_up_worker.h"
#include "core/wlan_notifications.h"
#include "core/work_item.h"
#include "logging/log_scope.h"
#include "service/service_names.h"
#include "service/service_utilities.h"

using Microsoft::WRL::ComPtr;

namespace {

constexpr unsigned char kUnregister = 0;

void Unsubscribe(ComPtr<IConnectionPoint>& connectionPoint, DWORD cookie) {
    if (connectionPoint != nullptr) {
        static_cast<void>(connectionPoint->Unadvise(cookie));
        connectionPoint.Reset();
    }
}

template <class Sink>
void ReleaseSink(Sink*& sink) {
    if (Sink* const held = std::exchange(sink, nullptr); held != nullptr) {
        held->Release();
    }
}

}  // namespace

CMainService::CMainService() : CServiceBase(ServiceNames::kService) {
    const LogScope log("CMainService::CMainService");
    m_state.wiredConnections->clear();
    // Without the event the service still runs: the cleared running flag ends the watcher, too.
    static_cast<void>(CreateAirplaneWatcherEvent(log, m_state));
}

CMainService::~CMainService() {
    const LogScope log("CMainService::~CMainService");
    if (m_state.airplaneWatcherEvent.TryClose() != ERROR_SUCCESS) {
        // Its owner would only try once more; what cannot be closed goes with the process.
        m_state.airplaneWatcherEvent.Abandon();
    }
    // The WLAN handle is OnStop's to close. One that is still there could not be closed, or was
    // opened by a worker that outran the stop; it goes with the process.
    m_state.wlanHandle.Abandon();
}

void CMainService::OnStart(DWORD /*argumentCount*/, wchar_t** /*arguments*/) {
    const LogScope log("CMainService::OnStart");
    const std::wstring version = Utils::GetBinaryVersion();
    WriteEventLogEntry(L"Linkvane Service in OnStart", EVENTLOG_INFORMATION_TYPE);
    log.Information(L"Linkvane Service (%s) in OnStart", version.c_str());

    const int recoveryStatus = Utils::SetServiceRestartRecoveryOnFailure();
    log.Information(L"Linkvane Service Restart Recovery On Failure set status : %d", recoveryStatus);

    m_state.running = true;
    QueueWorkItem(m_state, &ServiceWorkerThread, WT_EXECUTEINPERSISTENTTHREAD);
}

void CMainService::OnStop() {
    const LogScope log("CMainService::OnStop");
    log.Information(L"Linkvane Service in OnStop");
    m_state.running = false;
    SignalAirplaneWatcher(log, m_state);
    if (RegisterWlanNotification(m_state, &kUnregister) != ERROR_SUCCESS) {
        log.Error(L"RegisterWlanNotification (Unregister) failed");
    }

    Unsubscribe(m_state.networkListManagerEvents, m_state.networkListManagerCookie);
    Unsubscribe(m_state.networkConnectionEvents, m_state.networkConnectionCookie);
    Unsubscribe(m_state.networkEvents, m_state.networkCookie);
    ReleaseSink(m_state.networkEventHandler);
    m_state.networkListManager.Reset();

    Unsubscribe(m_state.mbnRadioEvents, m_state.mbnRadioCookie);
    ReleaseSink(m_state.mbnSinks);
    m_state.mbnInterfaceManager.Reset();

    CloseWlanHandle(log, m_state);
    // This thread has not entered COM. It leaves it all the same, which ends nothing: the process holds
    // its multithreaded apartment.
    CoUninitialize();
}

void CMainService::OnShutdown() {
    const LogScope log("CMainService::OnShutdown");
    OnStop();
}
