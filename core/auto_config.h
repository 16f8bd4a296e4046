#pragma once

#include "logging/log_scope.h"
#include "service/service_names.h"
#include "service/service_utilities.h"

/// Wait until the service of Windows that manages a kind of radio runs, at most 15 seconds. One that does
/// not come up in time costs an error line of the operation that asks, nothing more: the callers go on and
/// let the radio operations find out. Any thread.
inline void WaitForWlanAutoConfig(const LogScope& log) {
    const int status = Utils::WaitforServiceToStartRunning(ServiceNames::kWlanAutoConfig);
    if (status != Utils::kServiceRunning) {
        log.Error(L"WaitforServiceToStartRunning (WLAN AutoConfig) failed with running status = %d", status);
    }
}
/// Announces its wait with a line.
inline void WaitForWwanAutoConfig(const LogScope& log) {
    log.Information(L"Wait for (WWAN AutoConfig) to start");
    const int status = Utils::WaitforServiceToStartRunning(ServiceNames::kWwanAutoConfig);
    if (status != Utils::kServiceRunning) {
        log.Error(L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = %d", status);
    }
}
