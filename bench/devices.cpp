#include <winsock2.h>

#include "bench/devices.h"

#include <iphlpapi.h>
#include <objbase.h>
#include <wlanapi.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <cwchar>

#include "notebook/hardware/import_table.h"

namespace Bench::Devices {
namespace {

constexpr DWORD kPhys = 3;
constexpr UINT kEthernetType = 6;
constexpr GUID kConnection{0xA0000000, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constexpr GUID kAdapter{0xADA00000, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
constexpr GUID kWlanInterface{0xB0000000, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
char adapterName[] = "{ADA00000-0001-0002-0304-05060708090A}";
wchar_t adapterDescription[] = L"Some Ethernet Adapter";
wchar_t adapterFriendlyName[] = L"Ethernet";
HANDLE const kClient = reinterpret_cast<HANDLE>(ULONG_PTR{0x1001});

bool isPluggedIn = false;
std::array<DOT11_RADIO_STATE, kPhys> phys{};
long long lastSwitch = 0;
bool traces = false;
std::string trace;

void Note(const char* call) {
    if (traces) {
        trace += call;
        trace += ' ';
    }
}

// --- Network List Manager ---------------------------------------------------------------------

/// What scripts would use is not there, and references are not counted: the objects are static.
template <class Interface>
class StaticDispatch : public Interface {
  public:
    HRESULT WINAPI QueryInterface(REFIID /*interfaceId*/, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG WINAPI AddRef() override { return 2; }
    ULONG WINAPI Release() override { return 1; }
    HRESULT WINAPI GetTypeInfoCount(UINT* /*count*/) override { return E_NOTIMPL; }
    HRESULT WINAPI GetTypeInfo(UINT /*index*/, LCID /*locale*/, ITypeInfo** /*info*/) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI GetIDsOfNames(REFIID /*unused*/, LPOLESTR* /*names*/, UINT /*count*/, LCID /*locale*/,
                                 DISPID* /*ids*/) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI Invoke(DISPID /*id*/, REFIID /*unused*/, LCID /*locale*/, WORD /*flags*/,
                          DISPPARAMS* /*parameters*/, VARIANT* /*result*/, EXCEPINFO* /*exception*/,
                          UINT* /*argument*/) override {
        return E_NOTIMPL;
    }
};

class CableConnection final : public StaticDispatch<INetworkConnection> {
  public:
    HRESULT WINAPI GetAdapterId(GUID* id) override {
        Note("GetAdapterId");
        *id = kAdapter;
        return S_OK;
    }
    HRESULT WINAPI GetNetwork(INetwork** /*network*/) override { return E_NOTIMPL; }
    HRESULT WINAPI get_IsConnectedToInternet(VARIANT_BOOL* /*value*/) override { return E_NOTIMPL; }
    HRESULT WINAPI get_IsConnected(VARIANT_BOOL* /*value*/) override { return E_NOTIMPL; }
    HRESULT WINAPI GetConnectivity(NLM_CONNECTIVITY* /*value*/) override { return E_NOTIMPL; }
    HRESULT WINAPI GetConnectionId(GUID* /*id*/) override { return E_NOTIMPL; }
    HRESULT WINAPI GetDomainType(NLM_DOMAIN_TYPE* /*type*/) override { return E_NOTIMPL; }
};

class NetworkListManager final : public StaticDispatch<INetworkListManager> {
  public:
    HRESULT WINAPI GetNetworkConnection(GUID /*id*/, INetworkConnection** connection) override {
        Note("GetNetworkConnection");
        *connection = &m_connection;
        return S_OK;
    }
    HRESULT WINAPI GetNetworks(NLM_ENUM_NETWORK /*flags*/, IEnumNetworks** /*networks*/) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI GetNetwork(GUID /*id*/, INetwork** /*network*/) override { return E_NOTIMPL; }
    HRESULT WINAPI GetNetworkConnections(IEnumNetworkConnections** /*connections*/) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI IsConnectedToInternet(VARIANT_BOOL* /*value*/) override { return E_NOTIMPL; }
    HRESULT WINAPI IsConnected(VARIANT_BOOL* /*value*/) override { return E_NOTIMPL; }
    HRESULT WINAPI GetConnectivity(NLM_CONNECTIVITY* /*value*/) override { return E_NOTIMPL; }

  private:
    CableConnection m_connection;
};

NetworkListManager manager;

// --- IP helper --------------------------------------------------------------------------------

DWORD WINAPI AdaptersInfo(IP_ADAPTER_INFO* list, ULONG* bytes) {
    Note("GetAdaptersInfo");
    if (*bytes < sizeof(IP_ADAPTER_INFO)) {
        *bytes = sizeof(IP_ADAPTER_INFO);
        return ERROR_BUFFER_OVERFLOW;
    }
    std::memset(list, 0, sizeof(*list));
    list->Type = kEthernetType;
    std::strcpy(list->IpAddressList.IpAddress.String, isPluggedIn ? "192.168.1.20" : "0.0.0.0");
    std::strcpy(list->Description, "Some Ethernet Adapter");
    return ERROR_SUCCESS;
}

ULONG WINAPI AdaptersAddresses(ULONG /*family*/, ULONG /*flags*/, void* /*reserved*/,
                               IP_ADAPTER_ADDRESSES* list, ULONG* bytes) {
    Note("GetAdaptersAddresses");
    if (*bytes < sizeof(IP_ADAPTER_ADDRESSES)) {
        *bytes = sizeof(IP_ADAPTER_ADDRESSES);
        return ERROR_BUFFER_OVERFLOW;
    }
    std::memset(list, 0, sizeof(*list));
    list->AdapterName = adapterName;
    list->Description = adapterDescription;
    list->FriendlyName = adapterFriendlyName;
    list->IfType = kEthernetType;
    return ERROR_SUCCESS;
}

// --- WLAN -------------------------------------------------------------------------------------

// Nobody keeps one of these, so they need not be made anew for each call.
alignas(WLAN_INTERFACE_INFO_LIST) std::array<
    std::byte, sizeof(WLAN_INTERFACE_INFO_LIST) + sizeof(WLAN_INTERFACE_INFO)> interfaceListBytes{};
WLAN_RADIO_STATE radioState{};
WLAN_INTERFACE_CAPABILITY capability{};

DWORD WINAPI OpenWlan(DWORD /*version*/, void* /*reserved*/, DWORD* negotiated, HANDLE* client) {
    Note("WlanOpenHandle");
    *negotiated = 2;
    *client = kClient;
    return ERROR_SUCCESS;
}

DWORD WINAPI CloseWlan(HANDLE /*client*/, void* /*reserved*/) {
    Note("WlanCloseHandle");
    return ERROR_SUCCESS;
}

DWORD WINAPI EnumerateWlan(HANDLE /*client*/, void* /*reserved*/, WLAN_INTERFACE_INFO_LIST** list) {
    Note("WlanEnumInterfaces");
    *list = reinterpret_cast<WLAN_INTERFACE_INFO_LIST*>(interfaceListBytes.data());
    (*list)->dwNumberOfItems = 1;
    WLAN_INTERFACE_INFO& first = (*list)->InterfaceInfo[0];
    first.InterfaceGuid = kWlanInterface;
    first.isState = wlan_interface_state_connected;
    std::wcscpy(first.strInterfaceDescription, L"Some WLAN Adapter");
    return ERROR_SUCCESS;
}

DWORD WINAPI QueryWlan(HANDLE /*client*/, const GUID* /*id*/, WLAN_INTF_OPCODE /*opcode*/, void* /*reserved*/,
                       DWORD* bytes, void** data, WLAN_OPCODE_VALUE_TYPE* /*type*/) {
    Note("WlanQueryInterface");
    radioState.dwNumberOfPhys = kPhys;
    for (DWORD phy = 0; phy < kPhys; ++phy) {
        radioState.PhyRadioState[phy] = {phy, phys[phy], dot11_radio_state_on};
    }
    *bytes = sizeof(radioState);
    *data = &radioState;
    return ERROR_SUCCESS;
}

DWORD WINAPI WlanCapability(HANDLE /*client*/, const GUID* /*id*/, void* /*reserved*/,
                            WLAN_INTERFACE_CAPABILITY** given) {
    Note("WlanGetInterfaceCapability");
    capability.dwNumberOfSupportedPhys = kPhys;
    *given = &capability;
    return ERROR_SUCCESS;
}

DWORD WINAPI SetWlan(HANDLE /*client*/, const GUID* /*id*/, WLAN_INTF_OPCODE /*opcode*/, DWORD /*bytes*/,
                     const void* data, void* /*reserved*/) {
    Note("WlanSetInterface");
    const auto& state = *static_cast<const WLAN_PHY_RADIO_STATE*>(data);
    phys.at(state.dwPhyIndex) = state.dot11SoftwareRadioState;
    LARGE_INTEGER now{};
    QueryPerformanceCounter(&now);
    lastSwitch = now.QuadPart;
    return ERROR_SUCCESS;
}

void WINAPI FreeWlan(void* /*block*/) {
    Note("WlanFreeMemory");
}

// --- What is the system's own, but noted ------------------------------------------------------

decltype(RegOpenKeyExW)* realOpenKey = nullptr;
decltype(RegQueryValueExW)* realQueryValue = nullptr;
decltype(RegCloseKey)* realCloseKey = nullptr;
decltype(StringFromCLSID)* realStringFromClsid = nullptr;
decltype(CoTaskMemFree)* realTaskMemFree = nullptr;

LSTATUS WINAPI OpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access, HKEY* key) {
    Note("RegOpenKeyExW");
    return realOpenKey(parent, path, options, access, key);
}

LSTATUS WINAPI QueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data,
                          DWORD* bytes) {
    Note("RegQueryValueExW");
    return realQueryValue(key, name, reserved, type, data, bytes);
}

LSTATUS WINAPI CloseKey(HKEY key) {
    Note("RegCloseKey");
    return realCloseKey(key);
}

HRESULT WINAPI TextOfGuid(REFCLSID id, LPOLESTR* text) {
    Note("StringFromCLSID");
    return realStringFromClsid(id, text);
}

void WINAPI FreeTaskMemory(void* block) {
    Note("CoTaskMemFree");
    realTaskMemFree(block);
}

void WINAPI NoPause(DWORD /*milliseconds*/) {}

// --- The bare calls ---------------------------------------------------------------------------

HANDLE OpenSession(WLAN_INTERFACE_INFO_LIST** list) {
    DWORD negotiated = 0;
    HANDLE client = nullptr;
    WlanOpenHandle(2, nullptr, &negotiated, &client);
    WlanEnumInterfaces(client, nullptr, list);
    return client;
}

void QueryBare() {
    WLAN_INTERFACE_INFO_LIST* list = nullptr;
    const HANDLE client = OpenSession(&list);
    DWORD bytes = 0;
    void* data = nullptr;
    WlanQueryInterface(client, &list->InterfaceInfo[0].InterfaceGuid, wlan_intf_opcode_radio_state, nullptr,
                       &bytes, &data, nullptr);
    WlanFreeMemory(data);
    WlanFreeMemory(list);
    WlanCloseHandle(client, nullptr);
}

void SwitchOffBare() {
    WLAN_INTERFACE_INFO_LIST* list = nullptr;
    const HANDLE client = OpenSession(&list);
    const GUID* const id = &list->InterfaceInfo[0].InterfaceGuid;
    WLAN_INTERFACE_CAPABILITY* given = nullptr;
    WlanGetInterfaceCapability(client, id, nullptr, &given);
    WlanFreeMemory(given);
    WLAN_PHY_RADIO_STATE state{0, dot11_radio_state_off, dot11_radio_state_on};
    for (; state.dwPhyIndex < kPhys; ++state.dwPhyIndex) {
        WlanSetInterface(client, id, wlan_intf_opcode_radio_state, sizeof(state), &state, nullptr);
    }
}

void IdentifyAdapterBare() {
    LPOLESTR connectionText = nullptr;
    StringFromCLSID(kConnection, &connectionText);
    INetworkConnection* connection = nullptr;
    Manager().GetNetworkConnection(kConnection, &connection);
    GUID adapterId{};
    connection->GetAdapterId(&adapterId);
    LPOLESTR adapterText = nullptr;
    StringFromCLSID(adapterId, &adapterText);
    CoTaskMemFree(adapterText);
    ULONG bytes = 15000;
    auto* const addresses =
        static_cast<IP_ADAPTER_ADDRESSES*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes));
    GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_PREFIX, nullptr, addresses, &bytes);
    HeapFree(GetProcessHeap(), 0, addresses);
    connection->Release();
    // The service gives it back when the event has been handled, which is not measured.
    realTaskMemFree(connectionText);
}

void ReadAdaptersBare() {
    ULONG bytes = sizeof(IP_ADAPTER_INFO);
    auto* const adapters =
        static_cast<IP_ADAPTER_INFO*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes));
    GetAdaptersInfo(adapters, &bytes);
    GetAdaptersInfo(adapters, &bytes);
    HeapFree(GetProcessHeap(), 0, adapters);
}

void ReadAirplaneModeBare() {
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\RadioManagement\\SystemRadioState",
                  0, KEY_READ, &key);
    DWORD mode = 0;
    DWORD bytes = sizeof(mode);
    RegQueryValueExW(key, nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(&mode), &bytes);
    RegCloseKey(key);
}

}  // namespace

void Install() {
    using Notebook::ReplaceImport;
    ReplaceImport("GetAdaptersInfo", &AdaptersInfo);
    ReplaceImport("GetAdaptersAddresses", &AdaptersAddresses);
    ReplaceImport("WlanOpenHandle", &OpenWlan);
    ReplaceImport("WlanCloseHandle", &CloseWlan);
    ReplaceImport("WlanEnumInterfaces", &EnumerateWlan);
    ReplaceImport("WlanQueryInterface", &QueryWlan);
    ReplaceImport("WlanGetInterfaceCapability", &WlanCapability);
    ReplaceImport("WlanSetInterface", &SetWlan);
    ReplaceImport("WlanFreeMemory", &FreeWlan);
    ReplaceImport("Sleep", &NoPause);
    realOpenKey = ReplaceImport("RegOpenKeyExW", &OpenKey);
    realQueryValue = ReplaceImport("RegQueryValueExW", &QueryValue);
    realCloseKey = ReplaceImport("RegCloseKey", &CloseKey);
    realStringFromClsid = ReplaceImport("StringFromCLSID", &TextOfGuid);
    realTaskMemFree = ReplaceImport("CoTaskMemFree", &FreeTaskMemory);
}

void PlugIn() {
    isPluggedIn = true;
}

void PullOut() {
    isPluggedIn = false;
}

void SetWifi(bool on) {
    phys.fill(on ? dot11_radio_state_on : dot11_radio_state_off);
}

bool IsWifiOn() {
    return std::all_of(phys.begin(), phys.end(),
                       [](DOT11_RADIO_STATE state) { return state == dot11_radio_state_on; });
}

const GUID& ConnectionId() {
    return kConnection;
}

INetworkListManager& Manager() {
    return manager;
}

long long LastSwitch() {
    return lastSwitch;
}

void StartTrace() {
    trace.clear();
    traces = true;
}

std::string EndTrace() {
    traces = false;
    return trace.substr(0, trace.rfind("WlanSetInterface"));
}

void PlugBare() {
    IdentifyAdapterBare();
    ReadAdaptersBare();
    QueryBare();
    ReadAirplaneModeBare();
    QueryBare();
    SwitchOffBare();
}

}  // namespace Bench::Devices
