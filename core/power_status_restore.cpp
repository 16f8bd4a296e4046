#include "core/power_status_restore.h"

#include <string>

#include "logging/log_scope.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "radio/wlan_radio.h"
#include "radio/wwan_radio.h"
#include "registry/registry.h"

namespace {

/// Switches a radio to what is remembered. A text other than "True" switches it off actively.
template <class Switch>
void Restore(const LogScope& log, const wchar_t* keyPath, const wchar_t* emptyLine, const wchar_t* stateLine,
             Switch switchRadio) {
    std::wstring text = Registry(HKEY_LOCAL_MACHINE).GetValue(keyPath, PowerStatus::kValueName);
    if (text.empty()) {
        log.Information(emptyLine);
        text = PowerStatus::kOn;
    }
    const ServiceUtils::RadioStatus status =
        text == PowerStatus::kOn ? ServiceUtils::kRadioOn : ServiceUtils::kRadioOff;
    log.Information(stateLine, status, status);
    switchRadio(status, ServiceUtils::kRespectAirplaneMode);
}

}  // namespace

void UpdateWlanPowerStatus() {
    const LogScope log("CMainService::UpdateWlanPowerStatus");
    Restore(log, PowerStatus::kWlanKey, L"Registry read is empty : WLAN. Setting Default Value as TRUE",
            L"Registry read is %d, WLAN Switch = %d", &ServiceUtils::SwitchWlanStatus);
}

void UpdateWwanPowerStatus() {
    const LogScope log("CMainService::UpdateWwanPowerStatus");
    Restore(log, PowerStatus::kWwanKey, L"Registry read is empty : WWAN. Setting Default Value as TRUE",
            L"Registry read is %d, WWAN Switch = %d", &ServiceUtils::SwitchWwanStatus);
}
