#include "radio/airplane_mode.h"

#include <windows.h>

#include "logging/log_scope.h"
#include "platform/handles.h"

namespace ServiceUtils {
namespace {

/// What the system stores while airplane mode is on; every other number is off.
constexpr DWORD kOn = 1;

/// Reads the value as a number, whatever its type. `report` is given the text for each call that failed, and
/// its error.
template <class Report>
bool ReadAirplaneMode(Report report) {
    Platform::UniqueRegistryKey key;
    LSTATUS error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAirplaneModeKey, 0, KEY_READ, key.Put());
    if (error != ERROR_SUCCESS) {
        report(L"RegOpenKeyEx (BrimletAirplaneModeRegistry) failed with error: %u", error);
        return false;
    }
    DWORD mode = 0;
    DWORD bytes = sizeof(mode);
    error = RegQueryValueExW(key.Get(), nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(&mode), &bytes);
    if (error != ERROR_SUCCESS) {
        report(L"RegQueryValueEx (BrimletAirplaneModeRegistry) failed with error: %u", error);
    }
    const DWORD closeError = key.TryClose();
    // One that cannot be closed is not tried again: by then its value may be that of a key of another
    // thread.
    static_cast<void>(key.Detach());
    if (closeError != ERROR_SUCCESS) {
        report(L"RegCloseKey (BrimletAirplaneModeRegistry) failed with error: %u",
               static_cast<LSTATUS>(closeError));
    }
    return error == ERROR_SUCCESS && mode == kOn;
}

}  // namespace

bool CheckAirplaneMode() {
    LogScope log("ServiceUtils::CheckAirplaneMode");
    return log.Return(L"Airplane Mode Status: %u ", log.Guard(false, [&] {
        return ReadAirplaneMode([&](const wchar_t* text, LSTATUS error) { log.Error(text, error); });
    }));
}

bool IsAirplaneModeOn() {
    return ReadAirplaneMode([](const wchar_t*, LSTATUS) {});
}

}  // namespace ServiceUtils
