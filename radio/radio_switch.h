#pragma once

#include <optional>

#include "logging/log_scope.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"

/// What switching WLAN and switching the modem (WWAN) have in common. Callable on any thread; exceptions
/// travel to the caller.
namespace ServiceUtils {

/// One kind of radio: what it is switched and read by, and how the log speaks of it.
struct SwitchableRadio {
    /// One switch; its result does not count, the outcome is read back.
    bool (*switchOnce)(const RadioStatus& newStatus, const unsigned char& checkAirplaneStatus);
    bool (*isOn)();
    const wchar_t* notNeededText;     ///< takes the new status
    const wchar_t* currentText;       ///< takes whether the radio is on, and the new status
    const wchar_t* noChangeText;      ///< takes nothing
    const wchar_t* successText;       ///< takes nothing
    const wchar_t* notSucceededText;  ///< takes the number of the attempt, from 0
};

/// What a single switch answers that need not touch the radio: false where airplane mode forbids switching
/// on (`checkAirplaneStatus` not 0), true where the radio is in the wanted state already; else nothing.
[[nodiscard]] std::optional<bool> AnswerWithoutSwitching(const LogScope& log, const SwitchableRadio& radio,
                                                         RadioStatus newStatus,
                                                         unsigned char checkAirplaneStatus);

/// Switches up to `retryCount` + 1 times, with pauses, and looks at the outcome each time. True
/// when the radio followed, and also when airplane mode forbids switching on.
[[nodiscard]] bool SwitchUntilRadioFollows(const LogScope& log, const SwitchableRadio& radio,
                                           RadioStatus newStatus, int retryCount);

/// How often a switch is repeated, in either direction, wherever this service repeats one; so there is one
/// switch more.
constexpr int kSwitchRetries = 5;

}  // namespace ServiceUtils
