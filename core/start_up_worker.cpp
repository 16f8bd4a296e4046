#include <windows.h>
#include <sensapi.h>

#include <exception>
#include <optional>

#include "bios/bios_settings.h"
#include "core/common_steps.h"
#include "core/main_service.h"
#include "core/work_item.h"
#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "network/network_diagnostics.h"
#include "radio/wlan_radio.h"
#include "radio/wwan_interfaces.h"
#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"

using Microsoft::WRL::ComPtr;

namespace {

constexpr char kWorkerName[] = "CMainService::ServiceWorkerThread";
constexpr unsigned char kRegister = 1;

/// The thread's way into COM. A thread that lives in another apartment keeps it and goes on.
struct ComEntry {
    bool usable;
    bool leavesAtEnd;
};

ComEntry EnterCom(const LogScope& log) {
    const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(result) && result != RPC_E_CHANGED_MODE) {
        log.Error(L"CoInitialize failed with error: 0x%08X", result);
        return {.usable = false, .leavesAtEnd = false};
    }
    return {.usable = true, .leavesAtEnd = SUCCEEDED(result)};
}

/// A manager that may live in another process; null, with `failureLine`, when there is none.
template <class Manager>
ComPtr<Manager> CreateManager(const LogScope& log, const CLSID& classId, const IID& interfaceId,
                              const wchar_t* failureLine) {
    ComPtr<Manager> manager;
    const HRESULT result = CoCreateInstance(classId, nullptr, CLSCTX_ALL, interfaceId,
                                            reinterpret_cast<void**>(manager.GetAddressOf()));
    if (!CoreSteps::StepSucceeded(log, CoreSteps::RequireObject(result, manager), failureLine)) {
        return nullptr;
    }
    return manager;
}

/// What counts are the two flags that the reads set.
void ReadBiosSettings() {
    static_cast<void>(NLMUtils::IsLanWlanAutoSwitchingEnabled());
    static_cast<void>(NLMUtils::IsLanWwanAutoSwitchingEnabled());
}

/// For the log's reader only; nothing depends on it.
void LogWhetherNetworkIsAlive(const LogScope& log) {
    DWORD flags = 0;
    const BOOL alive = IsNetworkAlive(&flags);
    log.Information(L"Network Alive : Return  = %d, Status : %d", alive, flags);
}

/// The WWAN operations and their event threads reach the manager through this holder. `manager` may be
/// null.
void PublishMbnInterfaceManager(IMbnInterfaceManager* manager) {
    if (WwanState::interfaceManager.load().get() != manager) {
        WwanState::interfaceManager = WwanState::Share(manager);
    }
}

bool FindWwanDevice(const LogScope& log) {
    WwanState::devicePresent = ServiceUtils::EnumerateWwanInterfaces();
    if (!WwanState::devicePresent) {
        log.Error(L"WWAN Device enumeration failed / No supporting WWAN device found ");
    }
    return WwanState::devicePresent;
}

}  // namespace

void CMainService::ServiceWorkerThread() {
    LogScope log(kWorkerName, L"ServiceWorkerThread - Entry");
    // Only the normal end and a caught exception write the exit line; a start that was given up
    // early does not.
    log.OmitExitLine();
    try {
        if (!SetUpAndDecide(log)) {
            return;
        }
    } catch (const std::exception& exception) {
        log.Error(L"Exception in ServiceWorkerThread. %S", exception.what());
    }
    Orva::Shared::GetLogger().Write(Orva::Shared::Level::kTraceOut, kWorkerName,
                                    L"ServiceWorkerThread - Exit");
}

bool CMainService::SetUpAndDecide(const LogScope& log) {
    // Whoever gives up early stays in COM: the thread belongs to the pool for good. The normal end
    // leaves what it entered. What was created and subscribed here lives in the multithreaded
    // apartment, one for the whole process, which is held from before the start to its end.
    const ComEntry com = EnterCom(log);
    if (!com.usable || !SetUpWlan(log)) {
        return false;
    }
    DecideWlan(log);
    if (!SetUpWwan(log)) {
        return false;
    }
    DecideWwan(log);
    if (com.leavesAtEnd) {
        CoUninitialize();
    }
    return true;
}

bool CMainService::SetUpWlan(const LogScope& log) {
    // The worker's own reference, to the end of this function: a stop may clear the field while it is
    // read here and in the subscription.
    const ComPtr<INetworkListManager> manager = CreateManager<INetworkListManager>(
        log, CLSID_NetworkListManager, IID_INetworkListManager,
        L"CoCreateInstance(CLSID_NetworkListManager) failed with error: 0x%08X");
    if (manager == nullptr) {
        return false;
    }
    m_networkListManager = manager;
    QueueWorkItem(
        *this, [](CMainService& service) { service.AirplaneModeWatcher(); }, WT_EXECUTEONLYONCE);
    ReadBiosSettings();
    log.Information(L"Finished reading Linkvane status from BIOS. Wait for (WLAN AutoConfig) to start");
    CoreSteps::WaitForWlanAutoConfig(log);

    log.Information(
        L"WLAN AutoConfig wait completed and WLAN Device Available. So Listening for WLAN Notifications..");
    ListenForWlanEvents();
    if (RegisterWlanNotification(&kRegister) != ERROR_SUCCESS) {
        log.Error(L"RegisterWlanNotification (register) failed");
    }
    if (!m_running) {
        // A stop that came while the handle was in use did not find it. It clears the running flag before
        // it looks, so one of the two closes the handle, and the registration goes with it.
        CloseWlanHandle(log);
    }
    NLMUtils::PrintNetworkConnections(manager.Get(), m_wiredConnections);
    LogWhetherNetworkIsAlive(log);
    return true;
}

void CMainService::DecideWlan(const LogScope& log) {
    if (!NLMUtils::lanWlanSwitchingEnabled) {
        log.Information(L"LAN WLAN Auto Switching is disabled in BIOS. Restoring previous WLAN Status.");
        UpdateWlanPowerStatus();
        return;
    }
    log.Information(L"Checking Ethernet connection status...");
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log);
    if (!isCableIn) {
        return;
    }
    if (!*isCableIn) {
        UpdateWlanPowerStatus();
        return;
    }
    log.Information(L"LAN connection available when service start. Stopping WLAN service...");
    static_cast<void>(
        ServiceUtils::SwitchWlanStatus(ServiceUtils::kRadioOff, ServiceUtils::kRespectAirplaneMode));
}

bool CMainService::SetUpWwan(const LogScope& log) {
    // The worker's own reference, as above.
    const ComPtr<IMbnInterfaceManager> manager = CreateManager<IMbnInterfaceManager>(
        log, CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager,
        L"CoCreateInstance(CLSID_MbnInterfaceManager) failed with error: 0x%08X");
    if (manager == nullptr) {
        return false;
    }
    m_mbnInterfaceManager = manager;
    CoreSteps::WaitForWwanAutoConfig(log);
    // From the field, which a stop may have cleared meanwhile: then nothing is published, and the
    // worker finds no modem.
    PublishMbnInterfaceManager(m_mbnInterfaceManager.Get());
    if (!FindWwanDevice(log)) {
        return false;
    }
    log.Information(
        L"WWAN AutoConfig wait completed and WWAN Device Available. So Listening for WWAN events..");
    ListenForWwanEvents();
    return true;
}

void CMainService::DecideWwan(const LogScope& log) {
    if (!NLMUtils::lanWwanSwitchingEnabled) {
        log.Information(L"LAN WWAN Auto Switching is disabled in BIOS.Restoring previous WWAN Status.");
        UpdateWwanPowerStatus();
        return;
    }
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log);
    if (!isCableIn) {
        return;
    }
    if (!*isCableIn) {
        log.Information(L"LAN connection not available when service start. starting WWAN service...");
        UpdateWwanPowerStatus();
        return;
    }
    log.Information(L"LAN connection available when service start. Stopping WWAN service...");
    static_cast<void>(
        ServiceUtils::SwitchWwanStatus(ServiceUtils::kRadioOff, ServiceUtils::kRespectAirplaneMode));
}
