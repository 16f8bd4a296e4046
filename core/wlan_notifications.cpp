#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "bios/bios_settings.h"
#include "core/common_steps.h"
#include "core/main_service.h"
#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "platform/wlan_notifications.h"
#include "radio/wlan_radio.h"

namespace {

/// Held while a handler runs, so that two never do.
std::mutex notificationLock;

/// The WLAN state seen during airplane mode. Kept for the log alone; only under the lock above.
/// Never destroyed: a callback may still come while the process ends.
std::wstring& wlanStatusText = *new std::wstring(PowerStatus::kOff);

bool IsNetworkAvailable(const WLAN_NOTIFICATION_DATA& data) {
    return data.NotificationSource == WLAN_NOTIFICATION_SOURCE_ACM &&
           data.NotificationCode == wlan_notification_acm_network_available;
}

bool IsRadioStateChange(const WLAN_NOTIFICATION_DATA& data) {
    return data.NotificationSource == WLAN_NOTIFICATION_SOURCE_MSM &&
           data.NotificationCode == Platform::kWlanNotificationMsmRadioStateChange;
}

/// The low half, as the log shows it.
unsigned long HandleForLog(HANDLE handle) {
    return static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(handle));
}

DWORD OpenWlanHandle(const LogScope& log, Platform::UniqueWlanHandle& client) {
    DWORD negotiatedVersion = 0;
    Platform::UniqueWlanHandle opened;
    const DWORD result =
        WlanOpenHandle(Platform::kWlanClientVersion, nullptr, &negotiatedVersion, opened.Put());
    if (result != ERROR_SUCCESS) {
        log.Error(L"WlanOpenHandle failed with error: %u", result);
        return result;
    }
    client = std::move(opened);
    return client ? ERROR_SUCCESS : ERROR_NOT_READY;
}

DWORD SubscribeToWlan(const LogScope& log, HANDLE client) {
    const DWORD result =
        WlanRegisterNotification(client, WLAN_NOTIFICATION_SOURCE_ACM | WLAN_NOTIFICATION_SOURCE_MSM, FALSE,
                                 &CMainService::WlanNotificationCallback, nullptr, nullptr, nullptr);
    if (result != ERROR_SUCCESS) {
        // The line shows the thread's last error, which need not be the result; the caller gets that.
        log.Error(L"WlanRegisterNotification(Registration) fail with err %d!!", GetLastError());
    }
    return result;
}

DWORD UnsubscribeFromWlan(const LogScope& log, HANDLE client) {
    const DWORD result = WlanRegisterNotification(client, WLAN_NOTIFICATION_SOURCE_NONE, FALSE, nullptr,
                                                  nullptr, nullptr, nullptr);
    if (result != ERROR_SUCCESS) {
        log.Error(L"WlanRegisterNotification (Un-Registration) fail with err %d!!", GetLastError());
    }
    return result;
}

void SwitchWlanOff(const LogScope& log, unsigned char checkAirplaneStatus) {
    if (!ServiceUtils::SwitchWlanStatus(ServiceUtils::kRadioOff, checkAirplaneStatus)) {
        log.Error(L"SwitchWlanStatus(false) failed");
    }
}

/// A network can only be there because the radio is on: somebody wants it on.
void RememberThatWlanIsOn(const LogScope& log) {
    log.Information(L"wlan_notification_acm_network_available ServiceUtils::my_service_turnonoff_wifi : %d",
                    ServiceUtils::my_service_turnonoff_wifi.load());
    const bool isOn = ServiceUtils::CheckWlanStatus();
    if (isOn) {
        log.Information(
            L"wlan_notification_acm_network_available Registry set to True. Setting WlanPowerStatus %d in "
            L"registry.",
            isOn);
        static_cast<void>(ServiceUtils::SetWlanPowerStatusInRegistry(ServiceUtils::kRadioOn));
    }
}

/// The radio came back behind the service's back.
void SwitchWlanOffBesideCable(const LogScope& log) {
    log.Information(L"Ethernet is connected");
    const bool enabled = NLMUtils::lanWlanSwitchingEnabled;
    log.Information(L"LAN-WLAN Auto Switching Status = %d", enabled);
    if (enabled) {
        SwitchWlanOff(log, ServiceUtils::kRespectAirplaneMode);
    }
}

/// Without a cable and without airplane mode a change is the user's own, unless a cable event that
/// is being handled made it.
void RememberUsersChoice(const LogScope& log, bool isOn) {
    if (msm_Notification_flag) {
        return;
    }
    log.Information(
        L"Airplane mode if OFF. Ethernet not connected. msm_Notification_flag = false. Setting WLAN registry "
        L"status with WiFi Status = %d",
        isOn);
    static_cast<void>(
        ServiceUtils::SetWlanPowerStatusInRegistry(isOn ? ServiceUtils::kRadioOn : ServiceUtils::kRadioOff));
}

void RecordStatusText(const LogScope& log, bool isOn) {
    wlanStatusText = isOn ? PowerStatus::kOn : PowerStatus::kOff;
    log.Information(L"Changing WiFi Status (string) to %s ", wlanStatusText.c_str());
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
        RememberUsersChoice(log, isOn);
        return;
    }
    if (*isCableIn && isOn && NLMUtils::lanWlanSwitchingEnabled) {
        SwitchWlanOff(log, ServiceUtils::kIgnoreAirplaneMode);
    }
    if (airplaneMode) {
        RecordStatusText(log, isOn);
    }
}

}  // namespace

DWORD CMainService::RegisterWlanNotification(const unsigned char* registers) {
    LogScope log("CMainService::RegisterWlanNotification", L"Registration Status - %d, WLANHandle = 0x%08lx",
                 *registers, HandleForLog(m_wlanHandle.Get()));
    // Taken out while it is in use: the worker and a stop may be here at the same time, and neither
    // must close the handle that the other works with. Whoever finds none opens one; the first to come
    // back leaves its own here, and the other's is closed, its registration with it.
    Platform::UniqueWlanHandle client = m_wlanHandle.Take();
    DWORD result = client ? static_cast<DWORD>(ERROR_SUCCESS) : OpenWlanHandle(log, client);
    if (result == ERROR_SUCCESS) {
        result =
            *registers != 0 ? SubscribeToWlan(log, client.Get()) : UnsubscribeFromWlan(log, client.Get());
    }
    m_wlanHandle.TakeUnlessHeld(client);
    return log.Return(L"Return  = %d", result);
}

void WINAPI CMainService::WlanNotificationCallback(WLAN_NOTIFICATION_DATA* data, void* /*context*/) {
    const LogScope log("CMainService::WlanNotificationCallback");
    if (data == nullptr) {
        return;
    }
    try {
        log.Information(L"WlanNotificationCallback - Notification Source = 0x%x, Notification Code = %d",
                        data->NotificationSource, data->NotificationCode);
        const std::lock_guard lock(notificationLock);
        if (IsNetworkAvailable(*data)) {
            log.Information(
                L"NotificationSource = WLAN_NOTIFICATION_SOURCE_ACM, NotificationCode = "
                L"wlan_notification_acm_network_available. Processing Callback ");
            HandleWlanNotificationAcmNetworkAvailable();
        }
        if (IsRadioStateChange(*data)) {
            log.Information(
                L"NotificationSource = WLAN_NOTIFICATION_SOURCE_MSM, NotificationCode= "
                L"wlan_notification_msm_radio_state_change. Processing Callback");
            HandleWlanNotificationMsmRadioStateChange();
        }
    } catch (...) {
        log.Error(L"Exception in WlanNotificationCallback()");
    }
}

void CMainService::HandleWlanNotificationAcmNetworkAvailable() {
    const LogScope log("CMainService::HandleWlanNotificationAcmNetworkAvailable");
    const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log);
    if (!isCableIn) {
        return;
    }
    log.Information(L"Ethernet connection status = %d", *isCableIn);
    if (!*isCableIn) {
        RememberThatWlanIsOn(log);
    } else {
        SwitchWlanOffBesideCable(log);
    }
}

void CMainService::HandleWlanNotificationMsmRadioStateChange() {
    const LogScope log("CMainService::HandleWlanNotificationMsmRadioStateChange");
    try {
        HandleRadioStateChange(log);
    } catch (...) {
        log.Error(L"Exception in HandleWlanNotificationMsmRadioStateChange()");
    }
}
