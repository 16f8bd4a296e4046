#pragma once

#include <windows.h>

/// Notification codes of the native WLAN interface that not every compiler's <wlanapi.h> has, as
/// Microsoft's page on the WLAN_NOTIFICATION_MSM enumeration gives them. In a namespace, because
/// other headers have them as global enumerators.
namespace Platform {

/// wlan_notification_msm_radio_state_change: a PHY's software or hardware radio state changed.
constexpr DWORD kWlanNotificationMsmRadioStateChange = 7;

}  // namespace Platform
