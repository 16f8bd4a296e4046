#pragma once

#include <windows.h>

#include <string>

/// Where the user's choice is stored, the last one for each radio: the state that it is to have without a
/// cable, whatever it has now. It is written, by `SetWlanPowerStatusInRegistry` and its WWAN twin,
///  - with the new state, when a radio changed without this service's doing, outside of airplane mode and
///    without a cable: WLAN by `CMainService::HandleWlanNotificationMsmRadioStateChange`, the modem (with a
///    cable as well, while its feature is disabled) by `CMbnSinks::OnSetSoftwareRadioStateComplete`;
///  - with "on", when the cable takes down a radio that was on: `StopWLANService`, `StopWWANService`;
///  - with "on", when a WLAN network is there without a cable:
///    `CMainService::HandleWlanNotificationAcmNetworkAvailable`.
/// A switch by itself writes nothing, but the change of WLAN that one makes without a cable and outside of a
/// cable event (at a start, after a resume, by the watcher) is reported like a user's. Airplane mode's end
/// writes nothing either, whatever its line "Setting SetWlanPowerStatusInRegistry with value" says.
namespace PowerStatus {
constexpr wchar_t kWlanKey[] = L"SOFTWARE\\Orva\\Orva Brimlet Support\\WlanPowerStatus";
constexpr wchar_t kWwanKey[] = L"SOFTWARE\\Orva\\Orva Brimlet Support\\WwanPowerStatus";
constexpr wchar_t kValueName[] = L"PowerOnOff";
/// The text for "on". Compared exactly; every other text but the empty one means "off".
constexpr wchar_t kOn[] = L"True";
constexpr wchar_t kOff[] = L"False";
}  // namespace PowerStatus

/// Callable on any thread. The writers throw nothing and log their failures.
namespace ServiceUtils {

/// A radio's state as one byte. A switch takes any number but 0 for on, the writers only 1.
using RadioStatus = unsigned char;
constexpr RadioStatus kRadioOff = 0;
constexpr RadioStatus kRadioOn = 1;

/// Whether a switch takes a status for "on".
[[nodiscard]] constexpr bool MeansOn(RadioStatus status) noexcept {
    return status != kRadioOff;
}

/// The text that is remembered for a radio; "True" when there is none, so that a radio is on by
/// default.
[[nodiscard]] std::wstring RememberedPowerStatus(const wchar_t* keyPath);

/// Remembers a radio's state below HKEY_LOCAL_MACHINE. The Win32 error of the write, or
/// 0xFFFFFFFF after an exception.
DWORD SetPowerStatusInRegistry(const wchar_t* keyPath, RadioStatus status);
DWORD SetWlanPowerStatusInRegistry(RadioStatus status);
/// After an exception the result is ERROR_SUCCESS, unlike that of its WLAN twin.
DWORD SetWwanPowerStatusInRegistry(RadioStatus status);

}  // namespace ServiceUtils
