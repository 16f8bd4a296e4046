#include "core/wlan_notifications.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "bios/bios_settings.h"
#include "core/service_state.h"
#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "network/nlm_event_handler.h"
#include "platform/wlan_notifications.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "radio/wlan_radio.h"

namespace {

/// Held while a handler runs, so that two never do.
std::mutex notificationLock;

/// The WLAN state seen during airplane mode. Kept for the log alone; only under the lock above.
/// Never destroyed: a callback may still come while the process ends.
std::wstring& wlanStatusText = *new std::wstring(PowerStatus::kOff);

void SwitchWlanOff(const LogScope& log, unsigned char checkAirplaneStatus) {
    if (!ServiceUtils::SwitchWlanStatus(ServiceUtils::kRadioOff, checkAirplaneStatus)) {
        log.Error(L"SwitchWlanStatus(false) failed");
    }
}

/// Without a cable a network that is there, with the radio on, is remembered as a choice, too.
void RememberThatWlanIsOn(const LogScope& log) {
    log.Information(L"wlan_notification_acm_network_available ServiceUtils::my_service_turnonoff_wifi : %d",
                    ServiceUtils::my_service_turnonoff_wifi.load());
    if (const bool isOn = ServiceUtils::CheckWlanStatus()) {
        log.Information(
            L"wlan_notification_acm_network_available Registry set to True. Setting WlanPowerStatus %d in "
            L"registry.",
            isOn);
        static_cast<void>(ServiceUtils::SetWlanPowerStatusInRegistry(ServiceUtils::kRadioOn));
    }
}

void HandleRadioStateChange(const LogScope& log) {
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log);
    if (!isCableIn) {
        return;
    }
    log.Information(L"Ethernet connection status = %d", *isCableIn);
    const bool airplaneMode = ServiceUtils::CheckAirplaneMode();
    const bool isOn = ServiceUtils::CheckWlanStatus();
    log.Information(L"Current WLAN status = %d", isOn);

    if (!airplaneMode && !*isCableIn) {
        // The user's own choice, unless a cable event that is being handled made the change.
        if (!msm_Notification_flag) {
            log.Information(
                L"Airplane mode if OFF. Ethernet not connected. msm_Notification_flag = false. Setting WLAN "
                L"registry status with WiFi Status = %d",
                isOn);
            static_cast<void>(ServiceUtils::SetWlanPowerStatusInRegistry(isOn ? ServiceUtils::kRadioOn
                                                                              : ServiceUtils::kRadioOff));
        }
        return;
    }
    if (*isCableIn && isOn && NLMUtils::lanWlanSwitchingEnabled) {
        SwitchWlanOff(log, ServiceUtils::kIgnoreAirplaneMode);
    }
    if (airplaneMode) {
        wlanStatusText = isOn ? PowerStatus::kOn : PowerStatus::kOff;
        log.Information(L"Changing WiFi Status (string) to %s ", wlanStatusText.c_str());
    }
}

void HandleWlanNotificationAcmNetworkAvailable() {
    const LogScope log("CMainService::HandleWlanNotificationAcmNetworkAvailable");
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log);
    if (!isCableIn) {
        return;
    }
    log.Information(L"Ethernet connection status = %d", *isCableIn);
    if (!*isCableIn) {
        RememberThatWlanIsOn(log);
        return;
    }
    // A radio that is on beside the cable has come back without the service.
    log.Information(L"Ethernet is connected");
    const bool enabled = NLMUtils::lanWlanSwitchingEnabled;
    log.Information(L"LAN-WLAN Auto Switching Status = %d", enabled);
    if (enabled) {
        SwitchWlanOff(log, ServiceUtils::kRespectAirplaneMode);
    }
}

void HandleWlanNotificationMsmRadioStateChange() {
    const LogScope log("CMainService::HandleWlanNotificationMsmRadioStateChange");
    log.Guard([&] { HandleRadioStateChange(log); });
}

/// Notifications of other sources and codes are only logged.
void HandleNotification(const LogScope& log, const WLAN_NOTIFICATION_DATA& data) {
    log.Information(L"WlanNotificationCallback - Notification Source = 0x%x, Notification Code = %d",
                    data.NotificationSource, data.NotificationCode);
    const std::lock_guard lock(notificationLock);
    if (data.NotificationSource == WLAN_NOTIFICATION_SOURCE_ACM &&
        data.NotificationCode == wlan_notification_acm_network_available) {
        log.Information(
            L"NotificationSource = WLAN_NOTIFICATION_SOURCE_ACM, NotificationCode = "
            L"wlan_notification_acm_network_available. Processing Callback ");
        HandleWlanNotificationAcmNetworkAvailable();
    } else if (data.NotificationSource == WLAN_NOTIFICATION_SOURCE_MSM &&
               data.NotificationCode == Platform::kWlanNotificationMsmRadioStateChange) {
        log.Information(
            L"NotificationSource = WLAN_NOTIFICATION_SOURCE_MSM, NotificationCode= "
            L"wlan_notification_msm_radio_state_change. Processing Callback");
        HandleWlanNotificationMsmRadioStateChange();
    }
}

void WINAPI WlanNotificationCallback(WLAN_NOTIFICATION_DATA* data, void* /*context*/) {
    const LogScope log("CMainService::WlanNotificationCallback");
    if (data != nullptr) {
        log.Guard([&] { HandleNotification(log, *data); });
    }
}

DWORD OpenWlanHandle(const LogScope& log, Platform::UniqueWlanHandle& client) {
    DWORD negotiatedVersion = 0;
    HANDLE opened = nullptr;
    const DWORD result = WlanOpenHandle(Platform::kWlanClientVersion, nullptr, &negotiatedVersion, &opened);
    if (result != ERROR_SUCCESS) {
        return log.Failure(result, L"WlanOpenHandle failed with error: %u", result);
    }
    client.Reset(opened);
    return client ? ERROR_SUCCESS : ERROR_NOT_READY;
}

/// Registers the callback, or takes the registration back.
DWORD Register(const LogScope& log, HANDLE client, bool registers) {
    const DWORD sources = registers ? WLAN_NOTIFICATION_SOURCE_ACM | WLAN_NOTIFICATION_SOURCE_MSM
                                    : WLAN_NOTIFICATION_SOURCE_NONE;
    const DWORD result = WlanRegisterNotification(
        client, sources, FALSE, registers ? &WlanNotificationCallback : nullptr, nullptr, nullptr, nullptr);
    if (result != ERROR_SUCCESS) {
        // The line shows the thread's last error, which need not be the result; the caller gets that.
        log.Error(registers ? L"WlanRegisterNotification(Registration) fail with err %d!!"
                            : L"WlanRegisterNotification (Un-Registration) fail with err %d!!",
                  GetLastError());
    }
    return result;
}

}  // namespace

DWORD RegisterWlanNotification(ServiceState& service, const unsigned char* registers) {
    // The log shows the handle's low half.
    LogScope log("CMainService::RegisterWlanNotification", L"Registration Status - %d, WLANHandle = 0x%08lx",
                 *registers,
                 static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(service.wlanHandle.Get())));
    // Taken out while it is in use: the worker and a stop may be here at the same time, and neither
    // must close the handle that the other works with. Whoever finds none opens one; the first to come
    // back leaves its own here, and the other's is closed, its registration with it.
    Platform::UniqueWlanHandle client = service.wlanHandle.Take();
    DWORD result = client ? static_cast<DWORD>(ERROR_SUCCESS) : OpenWlanHandle(log, client);
    if (result == ERROR_SUCCESS) {
        result = Register(log, client.Get(), *registers != 0);
    }
    service.wlanHandle.TakeUnlessHeld(client);
    return log.Return(L"Return  = %d", result);
}

void CloseWlanHandle(const LogScope& log, ServiceState& service) {
    if (const DWORD error = service.wlanHandle.TryClose(); error != ERROR_SUCCESS) {
        log.Error(L"WlanCloseHandle failed with error %d", error);
    }
}
