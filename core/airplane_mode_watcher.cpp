#include <optional>
#include <string>
#include <utility>

#include "bios/bios_settings.h"
#include "core/common_steps.h"
#include "core/main_service.h"
#include "logging/log_scope.h"
#include "radio/remembered_radio.h"
#include "radio/wlan_radio.h"

namespace {

/// Where the system keeps the state of all radios, airplane mode among them. Its default value is
/// read through the service's own view of the registry, which is the same one.
constexpr REGSAM kWatchAccess = KEY_READ | KEY_WOW64_64KEY;
constexpr DWORD kWatchedChanges = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET;

bool OpenWatchedKey(Platform::UniqueRegistryKey& key) {
    Platform::UniqueRegistryKey opened;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, PowerStatus::kAirplaneModeKey, 0, kWatchAccess, opened.Put()) !=
        ERROR_SUCCESS) {
        return false;
    }
    key = std::move(opened);
    return true;
}

bool ArmNotification(const Platform::UniqueRegistryKey& key, HANDLE event) {
    return RegNotifyChangeKeyValue(key.Get(), TRUE, kWatchedChanges, event, TRUE) == ERROR_SUCCESS;
}

void SwitchWlanOffInAirplaneMode(const LogScope& log) {
    if (NLMUtils::lanWlanSwitchingEnabled && ServiceUtils::CheckAirplaneMode()) {
        log.Information(L"Airplane Mode ON , setting default");
        static_cast<void>(
            ServiceUtils::SwitchWlanStatus(ServiceUtils::kRadioOff, ServiceUtils::kIgnoreAirplaneMode));
    }
}

/// Only switches: what is remembered stays as it is, whatever the second line says.
void RestoreWlan(const LogScope& log) {
    const std::wstring text = ServiceUtils::RememberedPowerStatus(PowerStatus::kWlanKey);
    log.Information(L"Previous WLAN Power Status in registry = %s", text.c_str());
    const ServiceUtils::RadioStatus status = CoreSteps::RadioStatusFromText(text);
    log.Information(L"Setting SetWlanPowerStatusInRegistry with value = %d", status);
    static_cast<void>(ServiceUtils::SwitchWlanStatus(status, ServiceUtils::kRespectAirplaneMode));
}

}  // namespace

void CMainService::AirplaneModeWatcher() {
    LogScope log("CMainService::AirplaneModeWatcher", L"AirplaneModeWatcher - Entry");
    log.ExitLine(L"AirplaneModeWatcher - Exit");
    Platform::UniqueRegistryKey key;
    while (m_running) {
        // A failure starts the next pass at once, on purpose: the key may appear at any moment,
        // and the running flag is all that ends the watcher.
        if (!WaitForRadioStateChange(log, key)) {
            continue;
        }
        if (!m_running) {
            log.Information(L"AirplaneModeWatcher - Service Stop event Triggered. Exiting");
            break;
        }
        log.Information(L"AirplaneModeWatcher - Registry Change Event Triggered");
        FollowAirplaneMode(log);
    }
    key.Reset();
    // An event that cannot be closed is kept, and closed once more with the service object.
    static_cast<void>(m_airplaneWatcherEvent.TryClose());
}

bool CMainService::WaitForRadioStateChange(const LogScope& log, Platform::UniqueRegistryKey& key) {
    if (!OpenWatchedKey(key)) {
        return false;
    }
    if (!m_airplaneWatcherEvent && !CreateAirplaneWatcherEvent(log)) {
        return false;
    }
    return ArmNotification(key, m_airplaneWatcherEvent.Get()) &&
           WaitForSingleObject(m_airplaneWatcherEvent.Get(), INFINITE) == WAIT_OBJECT_0;
}

void CMainService::FollowAirplaneMode(const LogScope& log) {
    SwitchWlanOffInAirplaneMode(log);
    const std::optional<int> ethernet = CoreSteps::ReadEthernetStatus(log);
    if (ethernet != NLMEventHandler::kNoEthernet || ServiceUtils::CheckAirplaneMode()) {
        return;
    }
    log.Information(L"Airplane mode is OFF");
    if (NLMUtils::lanWlanSwitchingEnabled) {
        RestoreWlan(log);
    }
    if (NLMUtils::lanWwanSwitchingEnabled) {
        UpdateWwanPowerStatus();
    }
}
