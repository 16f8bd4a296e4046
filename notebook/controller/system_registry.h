#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Notebook {

/// A value of the machine's registry (HKEY_LOCAL_MACHINE); without a name the key's default one.
struct RegistryPlace {
    const wchar_t* key;
    const wchar_t* name;
};

/// The stored choice for each radio, as the service keeps it.
inline constexpr RegistryPlace kStoredWlan = {L"SOFTWARE\\Orva\\Orva Brimlet Support\\WlanPowerStatus",
                                              L"PowerOnOff"};
inline constexpr RegistryPlace kStoredWwan = {L"SOFTWARE\\Orva\\Orva Brimlet Support\\WwanPowerStatus",
                                              L"PowerOnOff"};
/// Airplane mode, where the system keeps it.
inline constexpr RegistryPlace kAirplane = {
    L"SYSTEM\\CurrentControlSet\\Control\\RadioManagement\\SystemRadioState", nullptr};
/// The logging policy of the product, the one of the executable alone, and the key above both.
inline constexpr wchar_t kPolicyKey[] = L"Software\\Policies\\Orva\\Orva Brimlet Support";
inline constexpr wchar_t kExecutablePolicyKey[] =
    L"Software\\Policies\\Orva\\Orva Brimlet Support\\LinkvaneService";
inline constexpr wchar_t kPolicyRoot[] = L"Software\\Policies\\Orva";

/// A registry value as it stands; a text may lack its terminating null.
struct RegistryValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};
/// Text as a registry value holds it, with its terminating null.
RegistryValue TextValue(DWORD type, const std::wstring& text);
RegistryValue NumberValue(std::uint32_t number);

/// The value, or nothing when there is none.
std::optional<RegistryValue> Read(const RegistryPlace& place);
/// Makes the key when it is missing.
void Write(const RegistryPlace& place, const RegistryValue& value);
void DeleteValue(const RegistryPlace& place);
void DeleteKey(const wchar_t* key);

bool AirplaneIsOn();

/// Makes the prefix load the hardware: the programs that are tested take the DLL that
/// stands beside them.
void RegisterHardware();
/// The devices stand in the process that uses them: the DLL at `dll` serves their COM classes.
void RegisterDevicesHere(const std::wstring& dll);
/// They stand in another process: the device server serves them, but the firmware settings. `proxies`
/// is the DLL of the proxies and stubs.
void RegisterDevicesRemote(const std::wstring& dll, const std::wstring& proxies);

}  // namespace Notebook
