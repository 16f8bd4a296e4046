#include "radio/power_status.h"

#include "logging/log_scope.h"
#include "platform/handles.h"
#include "registry/registry.h"

namespace ServiceUtils {
namespace {

/// What the writers answer when an exception interrupted them.
constexpr DWORD kInterrupted = 0xFFFFFFFF;

/// What the system stores while airplane mode is on; every other number is off.
constexpr DWORD kAirplaneModeOn = 1;

const wchar_t* PowerStatusText(RadioStatus status) {
    return status == kRadioOn ? PowerStatus::kOn : PowerStatus::kOff;
}

/// One look at airplane mode: what was found, and the error of each step that was made.
struct AirplaneModeLook {
    bool isOn = false;
    LSTATUS openError = ERROR_SUCCESS;
    LSTATUS queryError = ERROR_SUCCESS;
    DWORD closeError = ERROR_SUCCESS;
};

/// The type is not asked for: whatever the system stores there is read as a number.
LSTATUS QueryAirplaneMode(const Platform::UniqueRegistryKey& key, bool& isOn) {
    DWORD mode = 0;
    DWORD bytes = sizeof(mode);
    const LSTATUS error =
        RegQueryValueExW(key.Get(), nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(&mode), &bytes);
    isOn = error == ERROR_SUCCESS && mode == kAirplaneModeOn;
    return error;
}

AirplaneModeLook LookAtAirplaneMode() {
    AirplaneModeLook look;
    Platform::UniqueRegistryKey key;
    look.openError = RegOpenKeyExW(HKEY_LOCAL_MACHINE, PowerStatus::kAirplaneModeKey, 0, KEY_READ, key.Put());
    if (look.openError != ERROR_SUCCESS) {
        return look;
    }
    look.queryError = QueryAirplaneMode(key, look.isOn);
    look.closeError = key.TryClose();
    // One that cannot be closed is not tried again: by then its value may be that of a key of another
    // thread.
    static_cast<void>(key.Detach());
    return look;
}

bool ReadAirplaneMode(const LogScope& log) {
    const AirplaneModeLook look = LookAtAirplaneMode();
    if (look.openError != ERROR_SUCCESS) {
        log.Error(L"RegOpenKeyEx (BrimletAirplaneModeRegistry) failed with error: %u", look.openError);
    }
    if (look.queryError != ERROR_SUCCESS) {
        log.Error(L"RegQueryValueEx (BrimletAirplaneModeRegistry) failed with error: %u", look.queryError);
    }
    if (look.closeError != ERROR_SUCCESS) {
        log.Error(L"RegCloseKey (BrimletAirplaneModeRegistry) failed with error: %u", look.closeError);
    }
    return look.isOn;
}

}  // namespace

DWORD SetPowerStatusInRegistry(const wchar_t* keyPath, RadioStatus status) {
    LogScope log("ServiceUtils::SetPowerStatusInRegistry", L"Setting = %s,  Status = %d", keyPath, status);
    DWORD result = kInterrupted;
    try {
        const wchar_t* const text = PowerStatusText(status);
        log.Information(L"Writing Power Status in registry. Value = %s", text);
        const LSTATUS error = Registry(HKEY_LOCAL_MACHINE).SetValue(keyPath, PowerStatus::kValueName, text);
        if (error != ERROR_SUCCESS) {
            // The line shows the thread's last error, which registry functions leave alone, and not
            // the code that was returned.
            log.Error(L"Registry::SetValue failed with error %d", GetLastError());
        }
        result = static_cast<DWORD>(error);
    } catch (...) {
        log.Error(L"Exception in SetPowerStatusInRegistry()");
    }
    return log.Return(L"Return Status = %d", result);
}

DWORD SetWlanPowerStatusInRegistry(RadioStatus status) {
    LogScope log("ServiceUtils::SetWlanPowerStatusInRegistry", L"WLAN status to write = %d", status);
    DWORD result = kInterrupted;
    try {
        log.Information(L"SetWlanPowerStatusInRegistry. Value = %s", PowerStatusText(status));
        result = SetPowerStatusInRegistry(PowerStatus::kWlanKey, status);
    } catch (...) {
        log.Error(L"Exception in SetWlanPowerStatusInRegistry()");
    }
    return log.Return(L"Return Status = %d", result);
}

DWORD SetWwanPowerStatusInRegistry(RadioStatus status) {
    LogScope log("ServiceUtils::SetWwanPowerStatusInRegistry", L"WWAN status to write = %d", status);
    // Interrupted by an exception this writer reports success, unlike its WLAN twin.
    DWORD result = ERROR_SUCCESS;
    try {
        log.Information(L"SetWwanPowerStatusInRegistry. Value = %s", PowerStatusText(status));
        result = SetPowerStatusInRegistry(PowerStatus::kWwanKey, status);
    } catch (...) {
        log.Error(L"Exception in SetWwanPowerStatusInRegistry() ");
    }
    return log.Return(L"Return Status = %d", result);
}

bool CheckAirplaneMode() {
    LogScope log("ServiceUtils::CheckAirplaneMode");
    bool isOn = false;
    try {
        isOn = ReadAirplaneMode(log);
    } catch (...) {
        log.Error(L"Exception in CheckAirplaneMode()");
    }
    return log.Return(L"Airplane Mode Status: %u ", isOn);
}

bool IsAirplaneModeOn() {
    return LookAtAirplaneMode().isOn;
}

}  // namespace ServiceUtils
