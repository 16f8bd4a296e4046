#pragma once

#include <atomic>

#include "radio/airplane_mode.h"
#include "radio/power_status.h"

/// The WLAN radio: the software radio state of every PHY of the first WLAN interface. Callable on
/// any thread; nothing is thrown, failures are logged. A switch can block for many seconds.
namespace ServiceUtils {

/// The last WLAN state that this service itself set.
extern std::atomic<RadioStatus> my_service_turnonoff_wifi;
/// Set when the last WLAN switch ran out of attempts; while it is set the radio reads as off.
extern std::atomic<bool> my_setwifitimeout;

/// Switches the radio unless it is in the wanted state already. False when that failed, and when
/// switching on was refused because of airplane mode (`checkAirplaneStatus` not 0).
bool SwitchWlanStatus(const RadioStatus& newStatus, const unsigned char& checkAirplaneStatus);

/// Switches and looks at the outcome, up to `retryCount` + 1 times. True when the radio followed,
/// and also when airplane mode forbids switching on.
bool SwitchWlanStatusWithRetry(const RadioStatus& newStatus, const int& retryCount);

/// Whether every PHY of the first WLAN interface is on; false when that cannot be told.
[[nodiscard]] bool CheckWlanStatus();

/// Brings the radio back after the cable has gone: on when that is what is remembered.
void StartWLANService();

/// Switches the radio off because the cable is in, and remembers that it was on.
void StopWLANService();

}  // namespace ServiceUtils
