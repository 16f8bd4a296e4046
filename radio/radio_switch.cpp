#include "radio/radio_switch.h"

#include <chrono>

#include "platform/pause.h"

namespace ServiceUtils {
namespace {

using std::chrono::milliseconds;

/// Between a switch and the look at its outcome.
constexpr milliseconds kSettlingPause{100};
/// After a switch that the radio did not follow.
constexpr milliseconds kRetryPause{400};

}  // namespace

std::optional<bool> AnswerWithoutSwitching(const LogScope& log, const SwitchableRadio& radio,
                                           RadioStatus newStatus, unsigned char checkAirplaneStatus) {
    // Asked for every switch, so that the log shows it for every switch.
    const bool airplaneMode = CheckAirplaneMode();
    if (MeansOn(newStatus) && airplaneMode && checkAirplaneStatus != kIgnoreAirplaneMode) {
        log.Information(radio.notNeededText, newStatus);
        return false;
    }
    const bool isOn = radio.isOn();
    log.Information(radio.currentText, isOn, newStatus);
    if (isOn == MeansOn(newStatus)) {
        log.Information(radio.noChangeText);
        return true;
    }
    return std::nullopt;
}

bool SwitchUntilRadioFollows(const LogScope& log, const SwitchableRadio& radio, RadioStatus newStatus,
                             int retryCount) {
    if (MeansOn(newStatus) && CheckAirplaneMode()) {
        // True, although a single switch calls the same situation a failure: there is nothing to
        // repeat, and nothing that a caller should report.
        log.Information(radio.notNeededText, newStatus);
        return true;
    }
    for (int attempt = 0;; ++attempt) {
        radio.switchOnce(newStatus, kRespectAirplaneMode);
        Platform::Pause(kSettlingPause);
        if (radio.isOn() == MeansOn(newStatus)) {
            log.Information(radio.successText);
            return true;
        }
        log.Warning(radio.notSucceededText, attempt);
        Platform::Pause(kRetryPause);
        if (attempt >= retryCount) {
            return false;
        }
    }
}

}  // namespace ServiceUtils
