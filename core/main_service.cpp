#include "core/main_service.h"

#include <utility>

#include "core/work_item.h"
#include "logging/log_scope.h"
#include "service/service_names.h"
#include "service/service_utilities.h"

using Microsoft::WRL::ComPtr;

namespace {

constexpr wchar_t kAirplaneWatcherEventName[] = L"AIRPLANE_WATCHER_EVENT";
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
    m_wiredConnections->clear();
    // Without the event the service still runs: the cleared running flag ends the watcher, too.
    static_cast<void>(CreateAirplaneWatcherEvent(log));
}

CMainService::~CMainService() {
    const LogScope log("CMainService::~CMainService");
    if (m_airplaneWatcherEvent.TryClose() != ERROR_SUCCESS) {
        // Its owner would only try once more; what cannot be closed goes with the process.
        m_airplaneWatcherEvent.Abandon();
    }
    // The WLAN handle is OnStop's to close. One that is still there could not be closed, or was
    // opened by a worker that outran the stop; it goes with the process.
    m_wlanHandle.Abandon();
}

void CMainService::OnStart(DWORD /*argumentCount*/, wchar_t** /*arguments*/) {
    const LogScope log("CMainService::OnStart");
    const std::wstring version = Utils::GetBinaryVersion();
    WriteEventLogEntry(L"Linkvane Service in OnStart", EVENTLOG_INFORMATION_TYPE);
    log.Information(L"Linkvane Service (%s) in OnStart", version.c_str());

    const int recoveryStatus = Utils::SetServiceRestartRecoveryOnFailure();
    log.Information(L"Linkvane Service Restart Recovery On Failure set status : %d", recoveryStatus);

    m_running = true;
    QueueWorkItem(
        *this, [](CMainService& service) { service.ServiceWorkerThread(); }, WT_EXECUTEINPERSISTENTTHREAD);
}

void CMainService::OnStop() {
    const LogScope log("CMainService::OnStop");
    log.Information(L"Linkvane Service in OnStop");
    m_running = false;
    SignalAirplaneWatcher(log);
    if (RegisterWlanNotification(&kUnregister) != ERROR_SUCCESS) {
        log.Error(L"RegisterWlanNotification (Unregister) failed");
    }

    Unsubscribe(m_networkListManagerEvents, m_networkListManagerCookie);
    Unsubscribe(m_networkConnectionEvents, m_networkConnectionCookie);
    Unsubscribe(m_networkEvents, m_networkCookie);
    ReleaseSink(m_networkEventHandler);
    m_networkListManager.Reset();

    Unsubscribe(m_mbnRadioEvents, m_mbnRadioCookie);
    ReleaseSink(m_mbnSinks);
    m_mbnInterfaceManager.Reset();

    CloseWlanHandle(log);
    // This thread has not entered COM. It leaves it all the same, which ends nothing: the process holds
    // its multithreaded apartment.
    CoUninitialize();
}

void CMainService::OnShutdown() {
    const LogScope log("CMainService::OnShutdown");
    OnStop();
}

bool CMainService::CreateAirplaneWatcherEvent(const LogScope& log) {
    Platform::UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, kAirplaneWatcherEventName));
    if (!event) {
        log.Error(L"CreateEvent (AirPlaneWatcherEvent) failed with error %d", GetLastError());
        return false;
    }
    m_airplaneWatcherEvent.Reset(std::move(event));
    return true;
}

void CMainService::SignalAirplaneWatcher(const LogScope& log) {
    // Taken out while it is signalled: the cleared flag may end the watcher at any moment, and the
    // watcher closes what it finds here.
    Platform::UniqueHandle event = m_airplaneWatcherEvent.Take();
    if (event && SetEvent(event.Get()) == FALSE) {
        log.Error(L"Airplane Watcher Event Set failed with error %d", GetLastError());
    }
    m_airplaneWatcherEvent.TakeUnlessHeld(event);
}

void CMainService::CloseWlanHandle(const LogScope& log) {
    // A handle that cannot be closed is kept: whoever looks at the object can still see it.
    const DWORD error = m_wlanHandle.TryClose();
    if (error != ERROR_SUCCESS) {
        log.Error(L"WlanCloseHandle failed with error %d", error);
    }
}
