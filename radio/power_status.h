#pragma once

#include <windows.h>

/// Where the user's last choice for each radio is remembered.
namespace PowerStatus {
constexpr wchar_t kWlanKey[] = L"SOFTWARE\\Orva\\Orva Brimlet Support\\WlanPowerStatus";
constexpr wchar_t kWwanKey[] = L"SOFTWARE\\Orva\\Orva Brimlet Support\\WwanPowerStatus";
constexpr wchar_t kValueName[] = L"PowerOnOff";
/// The text for "on". Compared exactly; every other text but the empty one means "off".
constexpr wchar_t kOn[] = L"True";
constexpr wchar_t kOff[] = L"False";
/// Where the system keeps airplane mode: the unnamed value of this key.
constexpr wchar_t kAirplaneModeKey[] =
    L"SYSTEM\\CurrentControlSet\\Control\\RadioManagement\\SystemRadioState";
}  // namespace PowerStatus

/// Callable on any thread; nothing is thrown, failures are logged.
namespace ServiceUtils {

/// A radio's state as one byte: exactly 1 is on.
using RadioStatus = unsigned char;
constexpr RadioStatus kRadioOff = 0;
constexpr RadioStatus kRadioOn = 1;

/// Whether a switch looks at airplane mode before it turns a radio on.
constexpr unsigned char kIgnoreAirplaneMode = 0;
constexpr unsigned char kRespectAirplaneMode = 1;

/// Remembers a radio's state below HKEY_LOCAL_MACHINE. The Win32 error of the write, or
/// 0xFFFFFFFF after an exception.
DWORD SetPowerStatusInRegistry(const wchar_t* keyPath, RadioStatus status);
DWORD SetWlanPowerStatusInRegistry(RadioStatus status);
/// After an exception the result is ERROR_SUCCESS, unlike that of its WLAN twin.
DWORD SetWwanPowerStatusInRegistry(RadioStatus status);

/// Whether the system's airplane mode is on; off when it cannot be read.
[[nodiscard]] bool CheckAirplaneMode();

/// The same without a line in the log.
[[nodiscard]] bool IsAirplaneModeOn();

}  // namespace ServiceUtils
