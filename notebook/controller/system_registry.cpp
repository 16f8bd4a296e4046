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

/// The programs that run on the notebook's devices.
constexpr const wchar_t* kPrograms[] = {L"LinkvaneService.exe", L"LinkvaneDoctor.exe"};

void WriteBelow(HKEY root, const std::wstring& path, const wchar_t* name, const RegistryValue& value) {
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

void WriteText(const std::wstring& path, const wchar_t* name, const std::wstring& text) {
    WriteBelow(HKEY_LOCAL_MACHINE, path, name, TextValue(REG_SZ, text));
}

/// The key of a class, with nothing left of an earlier registration: a DLL would be preferred.
std::wstring FreshClassKey(const GUID& clsid) {
    const std::wstring path = L"Software\\Classes\\CLSID\\" + GuidText(clsid);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
    return path;
}

void RegisterClass(const GUID& clsid, const std::wstring& dll) {
    const std::wstring path = FreshClassKey(clsid) + L"\\InprocServer32";
    WriteText(path, nullptr, dll);
    WriteText(path, L"ThreadingModel", L"Both");
}

/// As Windows registers a class that a service serves: COM starts the service that the class's
/// application names.
void RegisterServiceClass(const GUID& clsid, const wchar_t* service) {
    const std::wstring application = GuidText(clsid);
    WriteText(FreshClassKey(clsid), L"AppID", application);
    WriteText(L"Software\\Classes\\AppID\\" + application, L"LocalService", service);
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

RegistryValue TextValue(DWORD type, const std::wstring& text) {
    const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
    return {type, {bytes, bytes + (text.size() + 1) * sizeof(wchar_t)}};
}

RegistryValue NumberValue(std::uint32_t number) {
    RegistryValue value{REG_DWORD, std::vector<BYTE>(sizeof(number))};
    std::memcpy(value.data.data(), &number, sizeof(number));
    return value;
}

std::optional<RegistryValue> Read(const RegistryPlace& place) {
    Platform::UniqueRegistryKey key;
    RegistryValue value;
    DWORD size = 0;
    // RegGetValue would end a text that has no end.
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, place.key, 0, KEY_READ, key.Put()) != ERROR_SUCCESS ||
        RegQueryValueExW(key.Get(), place.name, nullptr, &value.type, nullptr, &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    value.data.resize(size);
    const LSTATUS error =
        RegQueryValueExW(key.Get(), place.name, nullptr, &value.type, value.data.data(), &size);
    return error == ERROR_SUCCESS ? std::optional(value) : std::nullopt;
}

void Write(const RegistryPlace& place, const RegistryValue& value) {
    WriteBelow(HKEY_LOCAL_MACHINE, place.key, place.name, value);
}

void DeleteValue(const RegistryPlace& place) {
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, place.key, place.name);
}

void DeleteKey(const wchar_t* key) {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
}

bool AirplaneIsOn() {
    const std::optional<RegistryValue> value = Read(kAirplane);
    return value && value->data == NumberValue(1).data;
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
        WriteBelow(HKEY_CURRENT_USER, overrides, L"wlanapi", TextValue(REG_SZ, L"native"));
    }
}

}  // namespace Notebook
