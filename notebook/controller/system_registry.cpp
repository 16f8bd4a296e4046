#include "notebook/controller/system_registry.h"

#include <objbase.h>
#include <netlistmgr.h>
#include <olectl.h>
#include <wbemcli.h>

#include <cstring>
#include <utility>

#include "notebook/controller/words.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"
#include "platform/handles.h"
#include "platform/mbn_api.h"

namespace Notebook {

namespace {

constexpr wchar_t kAirplaneKey[] = L"SYSTEM\\CurrentControlSet\\Control\\RadioManagement\\SystemRadioState";
constexpr wchar_t kWlanKey[] = L"SOFTWARE\\Orva\\Orva Brimlet Support\\WlanPowerStatus";
constexpr wchar_t kWwanKey[] = L"SOFTWARE\\Orva\\Orva Brimlet Support\\WwanPowerStatus";
constexpr wchar_t kStoredValue[] = L"PowerOnOff";
constexpr wchar_t kPolicyRoot[] = L"Software\\Policies\\Orva";
constexpr wchar_t kPolicyKey[] = L"Software\\Policies\\Orva\\Orva Brimlet Support";
constexpr wchar_t kExecutableName[] = L"LinkvaneService";
/// The programs that run on the notebook's devices.
constexpr const wchar_t* kPrograms[] = {L"LinkvaneService.exe", L"LinkvaneDoctor.exe"};

Platform::UniqueRegistryKey OpenKey(HKEY root, const std::wstring& path) {
    Platform::UniqueRegistryKey key;
    RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | KEY_WRITE, key.Put());
    return key;
}

std::optional<RegistryValue> Query(const std::wstring& path, const wchar_t* name) {
    const Platform::UniqueRegistryKey key = OpenKey(HKEY_LOCAL_MACHINE, path);
    RegistryValue value;
    DWORD size = 0;
    if (!key || RegQueryValueExW(key.Get(), name, nullptr, &value.type, nullptr, &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    value.data.resize(size);
    if (RegQueryValueExW(key.Get(), name, nullptr, &value.type, value.data.data(), &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return value;
}

void Write(HKEY root, const std::wstring& path, const wchar_t* name, const RegistryValue& value) {
    Platform::UniqueRegistryKey key;
    LSTATUS error =
        RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, key.Put(), nullptr);
    if (error == ERROR_SUCCESS) {
        error = RegSetValueExW(key.Get(), name, 0, value.type, value.data.data(),
                               static_cast<DWORD>(value.data.size()));
    }
    if (error != ERROR_SUCCESS) {
        throw CommandError("the registry value cannot be written: error " + std::to_string(error));
    }
}

const wchar_t* StoredKey(StoredRadio radio) {
    return radio == StoredRadio::Wlan ? kWlanKey : kWwanKey;
}

/// The key of a class, with nothing left of an earlier registration: a DLL would be preferred.
std::wstring FreshClassKey(const GUID& clsid) {
    const std::wstring path = L"Software\\Classes\\CLSID\\" + GuidText(clsid);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
    return path;
}

void RegisterClass(const GUID& clsid, const std::wstring& dll) {
    const std::wstring path = FreshClassKey(clsid) + L"\\InprocServer32";
    Write(HKEY_LOCAL_MACHINE, path, nullptr, TextValue(REG_SZ, dll));
    Write(HKEY_LOCAL_MACHINE, path, L"ThreadingModel", TextValue(REG_SZ, L"Both"));
}

/// As Windows registers a class that a service serves: COM starts the service that the class's
/// application names.
void RegisterServiceClass(const GUID& clsid, const wchar_t* service) {
    const std::wstring application = GuidText(clsid);
    Write(HKEY_LOCAL_MACHINE, FreshClassKey(clsid), L"AppID", TextValue(REG_SZ, application));
    Write(HKEY_LOCAL_MACHINE, L"Software\\Classes\\AppID\\" + application, L"LocalService",
          TextValue(REG_SZ, service));
}

void RegisterProxies(const std::wstring& dll) {
    const HMODULE module = LoadLibraryW(dll.c_str());
    const auto enter = reinterpret_cast<decltype(&::DllRegisterServer)>(
        reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    const HRESULT result = enter == nullptr ? E_NOTIMPL : enter();
    FreeLibrary(module);
    if (FAILED(result)) {
        throw CommandError("the proxies cannot be registered");
    }
}

}  // namespace

std::optional<RegistryValue> ReadStored(StoredRadio radio) {
    return Query(StoredKey(radio), kStoredValue);
}

void WriteStored(StoredRadio radio, const RegistryValue& value) {
    Write(HKEY_LOCAL_MACHINE, StoredKey(radio), kStoredValue, value);
}

void DeleteStored(StoredRadio radio) {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, StoredKey(radio));
}

RegistryValue TextValue(DWORD type, const std::wstring& text) {
    const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
    return {type, {bytes, bytes + (text.size() + 1) * sizeof(wchar_t)}};
}

RegistryValue NumberValue(std::uint32_t number) {
    RegistryValue value{REG_DWORD, std::vector<BYTE>(sizeof(number))};
    std::memcpy(value.data.data(), &number, sizeof(number));
    return value;
}

std::optional<RegistryValue> ReadAirplane() {
    return Query(kAirplaneKey, nullptr);
}

bool AirplaneIsOn() {
    const std::optional<RegistryValue> value = ReadAirplane();
    return value && value->data == NumberValue(1).data;
}

void WriteAirplane(const RegistryValue& value) {
    Write(HKEY_LOCAL_MACHINE, kAirplaneKey, nullptr, value);
}

void WriteAirplane(bool on) {
    WriteAirplane(NumberValue(on ? 1 : 0));
}

void DeleteAirplaneValue() {
    const Platform::UniqueRegistryKey key = OpenKey(HKEY_LOCAL_MACHINE, kAirplaneKey);
    if (key) {
        RegDeleteValueW(key.Get(), nullptr);
    }
}

void DeleteAirplaneKey() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kAirplaneKey);
}

void WritePolicy(bool executableOnly, const std::wstring& name, const RegistryValue& value) {
    std::wstring path = kPolicyKey;
    if (executableOnly) {
        path += std::wstring(L"\\") + kExecutableName;
    }
    Write(HKEY_LOCAL_MACHINE, path, name.c_str(), value);
}

void DeletePolicies() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kPolicyRoot);
}

void RegisterDevicesHere(const std::wstring& dll) {
    RegisterClass(CLSID_NetworkListManager, dll);
    RegisterClass(CLSID_MbnInterfaceManager, dll);
    RegisterClass(CLSID_WbemLocator, dll);
}

void RegisterDevicesRemote(const std::wstring& dll, const std::wstring& proxies) {
    RegisterProxies(proxies);
    RegisterServiceClass(CLSID_NetworkListManager, kDeviceServer);
    RegisterServiceClass(CLSID_MbnInterfaceManager, kDeviceServer);
    RegisterClass(CLSID_WbemLocator, dll);
}

void RegisterHardware() {
    for (const wchar_t* const program : kPrograms) {
        const std::wstring overrides =
            std::wstring(L"Software\\Wine\\AppDefaults\\") + program + L"\\DllOverrides";
        Write(HKEY_CURRENT_USER, overrides, L"wlanapi", TextValue(REG_SZ, L"native"));
    }
}

}  // namespace Notebook
