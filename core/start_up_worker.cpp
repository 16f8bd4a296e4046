#include "core/start_up_worker.h"

#include <windows.h>
#include <sensapi.h>

#include <exception>
#include <optional>

#include "bios/bios_settings.h"
#include "core/airplane_mode_watcher.h"
#include "core/auto_config.h"
#include "core/mobile_broadband_subscription.h"
#include "core/network_subscription.h"
#include "core/power_status_restore.h"
#include "core/service_state.h"
#include "core/wlan_notifications.h"
#include "core/work_item.h"
#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "network/network_diagnostics.h"
#include "radio/airplane_mode.h"
#include "radio/wlan_radio.h"
#include "radio/wwan_interfaces.h"
#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"

using Microsoft::WRL::ComPtr;

namespace {

constexpr unsigned char kRegister = 1;

/// A manager that may live in another process; null, with `failureLine`, when there is none.
template <class Manager>
ComPtr<Manager> CreateManager(const LogScope& log, const CLSID& classId, const IID& interfaceId,
                              const wchar_t* failureLine) {
    ComPtr<Manager> manager;
    const HRESULT created = CoCreateInstance(classId, nullptr, CLSCTX_ALL, interfaceId,
                                             reinterpret_cast<void**>(manager.GetAddressOf()));
    const HRESULT result = Platform::RequireObject(created, manager);
    if (FAILED(result)) {
        return log.Failure(nullptr, failureLine, result);
    }
    return manager;
}

void DecideWlan(const LogScope& log) {
    if (!NLMUtils::lanWlanSwitchingEnabled) {
        log.Information(L"LAN WLAN Auto Switching is disabled in BIOS. Restoring previous WLAN Status.");
        UpdateWlanPowerStatus();
        return;
    }
    log.Information(L"Checking Ethernet connection status...");
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log);
    if (isCableIn == true) {
        log.Information(L"LAN connection available when service start. Stopping WLAN service...");
        ServiceUtils::SwitchWlanStatus(ServiceUtils::kRadioOff, ServiceUtils::kRespectAirplaneMode);
    } else if (isCableIn == false) {
        UpdateWlanPowerStatus();
    }
}

void DecideWwan(const LogScope& log) {
    if (!NLMUtils::lanWwanSwitchingEnabled) {
        log.Information(L"LAN WWAN Auto Switching is disabled in BIOS.Restoring previous WWAN Status.");
        UpdateWwanPowerStatus();
        return;
    }
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log);
    if (isCableIn == true) {
        log.Information(L"LAN connection available when service start. Stopping WWAN service...");
        ServiceUtils::SwitchWwanStatus(ServiceUtils::kRadioOff, ServiceUtils::kRespectAirplaneMode);
    } else if (isCableIn == false) {
        log.Information(L"LAN connection not available when service start. starting WWAN service...");
        UpdateWwanPowerStatus();
    }
}

void ListenForWlanNotifications(const LogScope& log, ServiceState& service) {
    if (RegisterWlanNotification(service, &kRegister) != ERROR_SUCCESS) {
        log.Error(L"RegisterWlanNotification (register) failed");
    }
    if (!service.running) {
        // A stop that came while the handle was in use did not find it. It clears the running flag before
        // it looks, so one of the two closes the handle, and the registration goes with it.
        CloseWlanHandle(log, service);
    }
}

// Those that give a boolean return false when the worker is to end at once.

bool SetUpWlan(const LogScope& log, ServiceState& service) {
    // The worker's own reference, to the end of this function: a stop may clear the field while it is
    // read here and in the subscription.
    const auto manager = CreateManager<INetworkListManager>(
        log, CLSID_NetworkListManager, IID_INetworkListManager,
        L"CoCreateInstance(CLSID_NetworkListManager) failed with error: 0x%08X");
    if (manager == nullptr) {
        return false;
    }
    service.networkListManager = manager;
    QueueWorkItem(service, &AirplaneModeWatcher, WT_EXECUTEONLYONCE);
    // What counts are the two flags that these set.
    static_cast<void>(NLMUtils::IsLanWlanAutoSwitchingEnabled());
    static_cast<void>(NLMUtils::IsLanWwanAutoSwitchingEnabled());
    log.Information(L"Finished reading Linkvane status from BIOS. Wait for (WLAN AutoConfig) to start");
    WaitForWlanAutoConfig(log);

    log.Information(
        L"WLAN AutoConfig wait completed and WLAN Device Available. So Listening for WLAN Notifications..");
    ListenForWlanEvents(service);
    ListenForWlanNotifications(log, service);
    NLMUtils::PrintNetworkConnections(manager.Get(), service.wiredConnections);
    // For the log's reader only; nothing depends on it.
    DWORD flags = 0;
    const BOOL alive = IsNetworkAlive(&flags);
    log.Information(L"Network Alive : Return  = %d, Status : %d", alive, flags);
    return true;
}

bool SetUpWwan(const LogScope& log, ServiceState& service) {
    // The worker's own reference, as above.
    const auto manager = CreateManager<IMbnInterfaceManager>(
        log, CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager,
        L"CoCreateInstance(CLSID_MbnInterfaceManager) failed with error: 0x%08X");
    if (manager == nullptr) {
        return false;
    }
    service.mbnInterfaceManager = manager;
    WaitForWwanAutoConfig(log);
    // From the field, which a stop may have cleared meanwhile: then nothing is published, and the
    // worker finds no modem.
    WwanState::Publish(WwanState::interfaceManager, service.mbnInterfaceManager.Get());
    WwanState::devicePresent = ServiceUtils::EnumerateWwanInterfaces();
    if (!WwanState::devicePresent) {
        return log.Failure(false, L"WWAN Device enumeration failed / No supporting WWAN device found ");
    }
    log.Information(
        L"WWAN AutoConfig wait completed and WWAN Device Available. So Listening for WWAN events..");
    ListenForWwanEvents(service);
    return true;
}

bool SetUpAndDecide(const LogScope& log, ServiceState& service) {
    // Whoever gives up early stays in COM: the thread belongs to the pool for good. The normal end
    // leaves what it entered; a thread that lives in another apartment keeps that and goes on. What is
    // created and subscribed here lives in the multithreaded apartment, which the process holds from before
    // the service exists to its end.
    const HRESULT entered = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(entered) && entered != RPC_E_CHANGED_MODE) {
        return log.Failure(false, L"CoInitialize failed with error: 0x%08X", entered);
    }
    if (!SetUpWlan(log, service)) {
        return false;
    }
    DecideWlan(log);
    if (!SetUpWwan(log, service)) {
        return false;
    }
    DecideWwan(log);
    if (SUCCEEDED(entered)) {
        CoUninitialize();
    }
    return true;
}

}  // namespace

void ServiceWorkerThread(ServiceState& service) {
    LogScope log("CMainService::ServiceWorkerThread", L"ServiceWorkerThread - Entry");
    // Only the normal end and a caught exception write the exit line; a start that was given up
    // early does not.
    log.OmitExitLine();
    try {
        if (!SetUpAndDecide(log, service)) {
            return;
        }
    } catch (const std::exception& exception) {
        log.Error(L"Exception in ServiceWorkerThread. %S", exception.what());
    }
    log.ExitLine(L"ServiceWorkerThread - Exit");
}
