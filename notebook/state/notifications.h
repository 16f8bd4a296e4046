#pragma once

#include <cstdint>

namespace Notebook {

/// Notification code of the media-specific module for a changed radio state, with a
/// WLAN_PHY_RADIO_STATE as its data ("WLAN_NOTIFICATION_MSM enumeration" in Microsoft's
/// documents; the compiler's header leaves this enumeration out).
inline constexpr std::uint32_t kMsmRadioStateChange = 7;

}  // namespace Notebook
