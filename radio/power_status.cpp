#include "radio/power_status.h"

#include "logging/log_scope.h"
#include "registry/registry.h"

namespace ServiceUtils {
namespace {

/// What the writers answer when an exception interrupted them.
constexpr DWORD kInterrupted = 0xFFFFFFFF;

const wchar_t* PowerStatusText(RadioStatus status) {
    return status == kRadioOn ? PowerStatus::kOn : PowerStatus::kOff;
}

}  // namespace

std::wstring RememberedPowerStatus(const wchar_t* keyPath) {
    std::wstring text = Registry(HKEY_LOCAL_MACHINE).GetValue(keyPath, PowerStatus::kValueName);
    return text.empty() ? std::wstring(PowerStatus::kOn) : text;
}

DWORD SetPowerStatusInRegistry(const wchar_t* keyPath, RadioStatus status) {
    LogScope log("ServiceUtils::SetPowerStatusInRegistry", L"Setting = %s,  Status = %d", keyPath, status);
    return log.Return(L"Return Status = %d", log.Guard(kInterrupted, [&] {
        const wchar_t* const text = PowerStatusText(status);
        log.Information(L"Writing Power Status in registry. Value = %s", text);
        const LSTATUS error = Registry(HKEY_LOCAL_MACHINE).SetValue(keyPath, PowerStatus::kValueName, text);
        if (error != ERROR_SUCCESS) {
            // The thread's last error, and not the code that was returned: registry functions need not
            // set it, so that the line may show an older one.
            log.Error(L"Registry::SetValue failed with error %d", GetLastError());
        }
        return static_cast<DWORD>(error);
    }));
}

DWORD SetWlanPowerStatusInRegistry(RadioStatus status) {
    LogScope log("ServiceUtils::SetWlanPowerStatusInRegistry", L"WLAN status to write = %d", status);
    return log.Return(L"Return Status = %d", log.Guard(kInterrupted, [&] {
        log.Information(L"SetWlanPowerStatusInRegistry. Value = %s", PowerStatusText(status));
        return SetPowerStatusInRegistry(PowerStatus::kWlanKey, status);
    }));
}

DWORD SetWwanPowerStatusInRegistry(RadioStatus status) {
    LogScope log("ServiceUtils::SetWwanPowerStatusInRegistry", L"WWAN status to write = %d", status);
    DWORD result = ERROR_SUCCESS;
    try {
        log.Information(L"SetWwanPowerStatusInRegistry. Value = %s", PowerStatusText(status));
        result = SetPowerStatusInRegistry(PowerStatus::kWwanKey, status);
    } catch (...) {
        // Unlike its WLAN twin: the text ends in a blank, and the result reads as success.
        log.Error(L"Exception in SetWwanPowerStatusInRegistry() ");
    }
    return log.Return(L"Return Status = %d", result);
}

}  // namespace ServiceUtils
