#include "core/airplane_mode_watcher.h"

#include <string>
#include <utility>

#include "bios/bios_settings.h"
#include "core/power_status_restore.h"
#include "core/service_state.h"
#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "radio/wlan_radio.h"

namespace {

constexpr wchar_t kEventName[] = L"AIRPLANE_WATCHER_EVENT";

/// Where the system keeps the state of all radios, airplane mode among them. Its default value is
/// read through the service's own view of the registry, which is the same one.
constexpr REGSAM kWatchAccess = KEY_READ | KEY_WOW64_64KEY;
constexpr DWORD kWatchedChanges = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET;

/// Opens the watched key, arms the notification on it and waits for a change or for the service to
/// stop; not where either came before the arming, a change being an airplane mode other than `actedOn`.
/// False when one of the steps failed.
bool WaitForRadioStateChange(const LogScope& log, ServiceState& service, bool actedOn) {
    Platform::UniqueRegistryKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey, 0, kWatchAccess, key.Put()) !=
        ERROR_SUCCESS) {
        return false;
    }
    if (!service.airplaneWatcherEvent && !CreateAirplaneWatcherEvent(log, service)) {
        return false;
    }
    // A stop that has just taken the event out leaves none: then the arming fails, and the flag is clear.
    const HANDLE event = service.airplaneWatcherEvent.Get();
    if (RegNotifyChangeKeyValue(key.Get(), TRUE, kWatchedChanges, event, TRUE) != ERROR_SUCCESS) {
        return false;
    }
    // Arming has reset the event: a stop that signalled it before, and a change that was made before, are
    // announced no more. Neither is waited for. (The key is then closed while its notification is armed,
    // which signals the event; the next arming takes that back.)
    if (!service.running || ServiceUtils::IsAirplaneModeOn() != actedOn) {
        return true;
    }
    return WaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0;
}

/// Only switches: the remembered choice stays as it is, whatever the second line says.
void SwitchWlanToChoice(const LogScope& log) {
    const std::wstring text = ServiceUtils::RememberedPowerStatus(PowerStatus::kWlanKey);
    log.Information(L"Previous WLAN Power Status in registry = %s", text.c_str());
    const ServiceUtils::RadioStatus status =
        text == PowerStatus::kOn ? ServiceUtils::kRadioOn : ServiceUtils::kRadioOff;
    log.Information(L"Setting SetWlanPowerStatusInRegistry with value = %d", status);
    static_cast<void>(ServiceUtils::SwitchWlanStatus(status, ServiceUtils::kRespectAirplaneMode));
}

/// The airplane mode that it acted on last.
bool FollowAirplaneMode(const LogScope& log) {
    const bool switchesWlan = NLMUtils::lanWlanSwitchingEnabled;
    const bool wasOn = switchesWlan ? ServiceUtils::CheckAirplaneMode() : ServiceUtils::IsAirplaneModeOn();
    if (switchesWlan && wasOn) {
        log.Information(L"Airplane Mode ON , setting default");
        ServiceUtils::SwitchWlanStatus(ServiceUtils::kRadioOff, ServiceUtils::kIgnoreAirplaneMode);
    }
    // Adapters that cannot be read count as a cable here.
    if (NLMUtils::IsCableIn(log).value_or(true) || ServiceUtils::CheckAirplaneMode()) {
        return wasOn;
    }
    log.Information(L"Airplane mode is OFF");
    if (NLMUtils::lanWlanSwitchingEnabled) {
        SwitchWlanToChoice(log);
    }
    if (NLMUtils::lanWwanSwitchingEnabled) {
        UpdateWwanPowerStatus();
    }
    return false;
}

/// False when it has seen the stop.
bool Watch(const LogScope& log, ServiceState& service, bool& actedOn) {
    // A failure starts the next pass at once: the key may appear at any moment, and the running
    // flag is all that ends the watcher.
    if (!WaitForRadioStateChange(log, service, actedOn)) {
        return true;
    }
    if (!service.running) {
        log.Information(L"AirplaneModeWatcher - Service Stop event Triggered. Exiting");
        return false;
    }
    log.Information(L"AirplaneModeWatcher - Registry Change Event Triggered");
    actedOn = FollowAirplaneMode(log);
    return true;
}

}  // namespace

void AirplaneModeWatcher(ServiceState& service) {
    LogScope log("CMainService::AirplaneModeWatcher", L"AirplaneModeWatcher - Entry");
    log.ExitLine(L"AirplaneModeWatcher - Exit");
    // The airplane mode that the last pass acted on; before the first one, that of the start. What a pass
    // that threw did not act on is still seen by the next one. While memory stays short, passes follow
    // each other without a pause.
    bool actedOn = ServiceUtils::IsAirplaneModeOn();
    while (service.running && log.Guard(true, [&] { return Watch(log, service, actedOn); })) {
    }
    // An event that cannot be closed is kept, and closed once more with the service object.
    static_cast<void>(service.airplaneWatcherEvent.TryClose());
}

bool CreateAirplaneWatcherEvent(const LogScope& log, ServiceState& service) {
    Platform::UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, kEventName));
    if (!event) {
        return log.Failure(false, L"CreateEvent (AirPlaneWatcherEvent) failed with error %d", GetLastError());
    }
    service.airplaneWatcherEvent.Reset(std::move(event));
    return true;
}

void SignalAirplaneWatcher(const LogScope& log, ServiceState& service) {
    // Taken out while it is signalled: the cleared flag may end the watcher at any moment, and the
    // watcher closes what it finds here.
    Platform::UniqueHandle event = service.airplaneWatcherEvent.Take();
    if (event && SetEvent(event.Get()) == FALSE) {
        log.Error(L"Airplane Watcher Event Set failed with error %d", GetLastError());
    }
    service.airplaneWatcherEvent.TakeUnlessHeld(event);
}
