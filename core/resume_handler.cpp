#include "core/resume_handler.h"

#include <optional>

#include "bios/bios_settings.h"
#include "core/auto_config.h"
#include "logging/log_scope.h"
#include "network/cable_check.h"
#include "radio/radio_switch.h"
#include "radio/wlan_radio.h"
#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "service/service_base.h"

namespace {

void RestoreWlan(const LogScope& log) {
    log.Information(L"Service resume handler starting WLAN service..");
    log.Information(L"Wait for (WLAN AutoConfig) to start");
    WaitForWlanAutoConfig(log);
    log.Information(L"WLAN AutoConfig wait completed");
    ServiceUtils::StartWLANService();
}

void DecideWwan(const LogScope& log, bool isCableIn) {
    if (WwanState::devicePresent) {
        WaitForWwanAutoConfig(log);
        log.Information(L"WWAN AutoConfig wait completed.");
    }
    if (!isCableIn) {
        log.Information(L"Obtained Signal Service resume handler starting WWAN service..");
        ServiceUtils::StartWWANService();
    } else if (!ServiceUtils::SwitchWwanStatusWithRetry(ServiceUtils::kRadioOff,
                                                        ServiceUtils::kSwitchRetries)) {
        log.Error(L"SwitchWwanStatusWithRetry failed");
    }
}

}  // namespace

bool NLMUtils::SystemResumeHandler() {
    LogScope log("NLMUtils::SystemResumeHandler");
    if (const std::optional<bool> isCableIn = NLMUtils::IsCableIn(log)) {
        log.Information(L"Ethernet Status = %d", *isCableIn);
        // The WLAN radio is left as it is while the cable is in: the network events and the WLAN
        // notifications that follow a resume take care of it.
        if (!*isCableIn && NLMUtils::lanWlanSwitchingEnabled) {
            RestoreWlan(log);
        }
        if (NLMUtils::lanWwanSwitchingEnabled) {
            DecideWwan(log, *isCableIn);
        }
    }
    return log.Return(L"Return = %d", true);
}

// Here and not beside the rest of the class, so that the service host does not depend on the core.
void CServiceBase::OnContinue() {
    const LogScope log("CServiceBase::OnContinue");
    static_cast<void>(NLMUtils::IsLanWlanAutoSwitchingEnabled());
    static_cast<void>(NLMUtils::IsLanWwanAutoSwitchingEnabled());
    if (NLMUtils::lanWwanSwitchingEnabled || NLMUtils::lanWlanSwitchingEnabled) {
        NLMUtils::SystemResumeHandler();
    }
}
