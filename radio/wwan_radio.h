#pragma once

#include "platform/mbn_api.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"

/// The modem's radio (WWAN, mobile broadband). A switch is asynchronous: it waits for the completion that
/// `CMbnSinks` signals. Callable on any thread; nothing is thrown, failures are logged. A switch can block
/// for more than a minute.
namespace ServiceUtils {

/// The radio of the recorded modem, with a reference that the caller owns. Tries for a quarter of a
/// second; then false, with `*radio` null.
bool GetRadioInterface(IMbnRadio** radio);

/// Switches the radio unless it is in the wanted state already. True once a switch was tried,
/// whether or not the radio followed: the caller judges by reading it back. False when there is
/// no WWAN device, the radio could not be reached, or airplane mode forbids switching on
/// (`checkAirplaneStatus` not 0).
bool SwitchWwanStatus(const RadioStatus& newStatus, const unsigned char& checkAirplaneStatus);

/// Switches and looks at the outcome, up to `retryCount` + 1 times. True when the radio followed,
/// and also when airplane mode forbids switching on.
bool SwitchWwanStatusWithRetry(const RadioStatus& newStatus, const int& retryCount);

/// Whether the radio is on; false when that cannot be told.
[[nodiscard]] bool CheckWwanStatus();

/// Brings the radio back after the cable has gone: on when that is what is remembered.
void StartWWANService();

/// Switches the radio off because the cable is in, and remembers that it was on.
void StopWWANService();

}  // namespace ServiceUtils
