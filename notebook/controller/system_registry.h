#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Notebook {

/// The stored wish for one radio, as the service keeps it.
enum class StoredRadio { Wlan, Wwan };

/// A registry value as it stands.
struct RegistryValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

/// The value, or nothing when there is none. A text without its terminating null comes as it is.
std::optional<RegistryValue> ReadStored(StoredRadio radio);
void WriteStored(StoredRadio radio, const RegistryValue& value);
/// Removes the whole key.
void DeleteStored(StoredRadio radio);

/// Text as a registry value holds it, with its terminating null.
RegistryValue TextValue(DWORD type, const std::wstring& text);
RegistryValue NumberValue(std::uint32_t number);

/// Airplane mode, where the system keeps it. The key is made when it is missing.
std::optional<RegistryValue> ReadAirplane();
bool AirplaneIsOn();
void WriteAirplane(const RegistryValue& value);
void WriteAirplane(bool on);
void DeleteAirplaneValue();
void DeleteAirplaneKey();

/// A value below the logging policy of the product, or of the executable alone.
void WritePolicy(bool executableOnly, const std::wstring& name, const RegistryValue& value);
void DeletePolicies();

/// Makes the prefix load the hardware: the programs that are tested take the DLL that
/// stands beside them.
void RegisterHardware();
/// The devices stand in the process that uses them: the DLL at `dll` serves their COM classes.
void RegisterDevicesHere(const std::wstring& dll);
/// They stand in another process: the device server serves them, but the firmware settings. `proxies`
/// is the DLL of the proxies and stubs.
void RegisterDevicesRemote(const std::wstring& dll, const std::wstring& proxies);

}  // namespace Notebook
