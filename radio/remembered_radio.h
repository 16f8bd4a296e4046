#pragma once

#include <string>

#include "logging/log_scope.h"
#include "radio/power_status.h"

/// What bringing a radio back has in common for WLAN and WWAN.
namespace ServiceUtils {

/// One kind of radio, as seen by a switch that is repeated until the radio follows.
struct SwitchableRadio {
    /// One switch; its result does not count, the outcome is read back.
    bool (*switchOnce)(const RadioStatus& newStatus, const unsigned char& checkAirplaneStatus);
    bool (*isOn)();
    const wchar_t* notNeededText;     ///< takes the new status
    const wchar_t* successText;       ///< takes nothing
    const wchar_t* notSucceededText;  ///< takes the number of the attempt, from 0
};

/// Switches up to `retryCount` + 1 times, with pauses, and looks at the outcome each time. True
/// when the radio followed, and also when airplane mode forbids switching on. Writes to `log`;
/// exceptions travel to the caller.
bool SwitchUntilRadioFollows(const LogScope& log, const SwitchableRadio& radio, RadioStatus newStatus,
                             int retryCount);

/// How often a radio is tried again when the cable has gone, or when a change is undone.
constexpr int kSwitchRetries = 5;

/// The text that is remembered for a radio; "True" when there is none, so that a radio is on by
/// default.
[[nodiscard]] std::wstring RememberedPowerStatus(const wchar_t* keyPath);

/// Whether a status means "on": any number but 0.
[[nodiscard]] constexpr bool MeansOn(RadioStatus status) noexcept {
    return status != kRadioOff;
}

}  // namespace ServiceUtils
