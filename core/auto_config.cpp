#include "core/auto_config.h"

#include "logging/log_scope.h"
#include "service/service_names.h"
#include "service/service_utilities.h"

namespace {

void WaitForService(const LogScope& log, const wchar_t* serviceName, const wchar_t* failureLine) {
    const int status = Utils::WaitforServiceToStartRunning(serviceName);
    if (status != Utils::kServiceRunning) {
        log.Error(failureLine, status);
    }
}

}  // namespace

void WaitForWlanAutoConfig(const LogScope& log) {
    WaitForService(log, ServiceNames::kWlanAutoConfig,
                   L"WaitforServiceToStartRunning (WLAN AutoConfig) failed with running status = %d");
}

void WaitForWwanAutoConfig(const LogScope& log) {
    log.Information(L"Wait for (WWAN AutoConfig) to start");
    WaitForService(log, ServiceNames::kWwanAutoConfig,
                   L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = %d");
}
