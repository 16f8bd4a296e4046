#include "radio/remembered_radio.h"

#include <chrono>

#include "platform/pause.h"
#include "registry/registry.h"

namespace ServiceUtils {
namespace {

using std::chrono::milliseconds;

/// Between a switch and the look at its outcome.
constexpr milliseconds kSettlingPause{100};
/// After a switch that the radio did not follow.
constexpr milliseconds kRetryPause{400};

}  // namespace

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

std::wstring RememberedPowerStatus(const wchar_t* keyPath) {
    std::wstring text = Registry(HKEY_LOCAL_MACHINE).GetValue(keyPath, PowerStatus::kValueName);
    return text.empty() ? std::wstring(PowerStatus::kOn) : text;
}

}  // namespace ServiceUtils
