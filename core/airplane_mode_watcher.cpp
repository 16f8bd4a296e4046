#include <optional>
#include <string>
#include <utility>

#include "bios/bios_settings.h"
#include "core/common_steps.h"
#include "core/main_service.h"
#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "radio/wlan_radio.h"

namespace {

/// Where the system keeps the state of all radios, airplane mode among them. Its default value is
/// read through the service's own view of the registry, which is the same one.
constexpr REGSAM kWatchAccess = KEY_READ | KEY_WOW64_64KEY;
constexpr DWORD kWatchedChanges = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET;

bool OpenWatchedKey(Platform::UniqueRegistryKey& key) {
    Platform::UniqueRegistryKey opened;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey, 0, kWatchAccess, opened.Put()) !=
        ERROR_SUCCESS) {
        return false;
    }
    key = std::move(opened);
    return true;
}

bool ArmNotification(const Platform::UniqueRegistryKey& key, HANDLE event) {
    return RegNotifyChangeKeyValue(key.Get(), TRUE, kWatchedChanges, event, TRUE) == ERROR_SUCCESS;
}

/// Whether airplane mode was on.
bool SwitchWlanOffInAirplaneMode(const LogScope& log) {
    if (!NLMUtils::lanWlanSwitchingEnabled) {
        return ServiceUtils::IsAirplaneModeOn();
    }
    if (!ServiceUtils::CheckAirplaneMode()) {
        return false;
    }
    log.Information(L"Airplane Mode ON , setting default");
    static_cast<void>(
        ServiceUtils::SwitchWlanStatus(ServiceUtils::kRadioOff, ServiceUtils::kIgnoreAirplaneMode));
    return true;
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
    // The airplane mode that the last pass acted on; before the first one, that of the start.
    bool actedOn = ServiceUtils::IsAirplaneModeOn();
    while (m_running) {
        try {
            // A failure starts the next pass at once: the key may appear at any moment, and the running
            // flag is all that ends the watcher.
            if (!WaitForRadioStateChange(log, key, actedOn)) {
                continue;
            }
            if (!m_running) {
                log.Information(L"AirplaneModeWatcher - Service Stop event Triggered. Exiting");
                break;
            }
            log.Information(L"AirplaneModeWatcher - Registry Change Event Triggered");
            actedOn = FollowAirplaneMode(log);
        } catch (...) {
            // What was not acted on is still seen by the next pass. While memory stays short, passes
            // follow each other without a pause.
            log.Error(L"Exception in AirplaneModeWatcher()");
        }
    }
    key.Reset();
    // An event that cannot be closed is kept, and closed once more with the service object.
    static_cast<void>(m_airplaneWatcherEvent.TryClose());
}

bool CMainService::WaitForRadioStateChange(const LogScope& log, Platform::UniqueRegistryKey& key,
                                           bool actedOn) {
    // The key before is closed here, which signals the event where its notification is still armed; the
    // arming below takes that back.
    if (!OpenWatchedKey(key)) {
        return false;
    }
    if (!m_airplaneWatcherEvent && !CreateAirplaneWatcherEvent(log)) {
        return false;
    }
    // A stop that has just taken the event out leaves none: then the arming fails, and the flag is clear.
    const HANDLE event = m_airplaneWatcherEvent.Get();
    if (!ArmNotification(key, event)) {
        return false;
    }
    // Arming has reset the event: a stop that signalled it before, and a change that was made before, are
    // announced no more. Neither is waited for.
    if (!m_running || ServiceUtils::IsAirplaneModeOn() != actedOn) {
        return true;
    }
    return WaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0;
}

bool CMainService::FollowAirplaneMode(const LogScope& log) {
    const bool wasOn = SwitchWlanOffInAirplaneMode(log);
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log);
    if (isCableIn.value_or(true) || ServiceUtils::CheckAirplaneMode()) {
        return wasOn;
    }
    log.Information(L"Airplane mode is OFF");
    if (NLMUtils::lanWlanSwitchingEnabled) {
        RestoreWlan(log);
    }
    if (NLMUtils::lanWwanSwitchingEnabled) {
        UpdateWwanPowerStatus();
    }
    return false;
}
