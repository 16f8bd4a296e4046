#include <winsock2.h>

#include "bench/devices.h"

#include <iphlpapi.h>
#include <objbase.h>
#include <process.h>
#include <wlanapi.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <string>
#include <utility>

#include "notebook/hardware/import_table.h"
#include "platform/handles.h"
#include "platform/network_list_manager_base.h"
#include "radio/airplane_mode.h"

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
DWORD recordedThread = 0;
Steps record;

void Note(Call call, std::size_t bytes = 0) {
    if (recordedThread != 0 && GetCurrentThreadId() == recordedThread) {
        record.push_back({call, bytes});
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
        Note(Call::kGetAdapterId);
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

class NetworkListManager final : public StaticDispatch<Platform::NetworkListManagerBase> {
  public:
    HRESULT WINAPI GetNetworkConnection(GUID /*id*/, INetworkConnection** connection) override {
        Note(Call::kGetNetworkConnection);
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
    HRESULT WINAPI GetConnectivity(NLM_CONNECTIVITY* /*value*/) override { return E_NOTIMPL; }

  private:
    CableConnection m_connection;
};

NetworkListManager manager;

// --- IP helper --------------------------------------------------------------------------------

DWORD WINAPI AdaptersInfo(IP_ADAPTER_INFO* list, ULONG* bytes) {
    Note(Call::kAdaptersInfo);
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
    Note(Call::kAdaptersAddresses);
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
alignas(WLAN_INTERFACE_INFO_LIST) std::array<std::byte, sizeof(WLAN_INTERFACE_INFO_LIST) +
                                                            sizeof(WLAN_INTERFACE_INFO)> interfaceListBytes{};
WLAN_RADIO_STATE radioState{};
WLAN_INTERFACE_CAPABILITY capability{};

DWORD WINAPI OpenWlan(DWORD /*version*/, void* /*reserved*/, DWORD* negotiated, HANDLE* client) {
    Note(Call::kOpenWlan);
    *negotiated = 2;
    *client = kClient;
    return ERROR_SUCCESS;
}

DWORD WINAPI CloseWlan(HANDLE /*client*/, void* /*reserved*/) {
    Note(Call::kCloseWlan);
    return ERROR_SUCCESS;
}

DWORD WINAPI EnumerateWlan(HANDLE /*client*/, void* /*reserved*/, WLAN_INTERFACE_INFO_LIST** list) {
    Note(Call::kEnumerateWlan);
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
    Note(Call::kQueryWlan);
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
    Note(Call::kWlanCapability);
    capability.dwNumberOfSupportedPhys = kPhys;
    *given = &capability;
    return ERROR_SUCCESS;
}

DWORD WINAPI SetWlan(HANDLE /*client*/, const GUID* /*id*/, WLAN_INTF_OPCODE /*opcode*/, DWORD /*bytes*/,
                     const void* data, void* /*reserved*/) {
    Note(Call::kSetWlan);
    const auto& state = *static_cast<const WLAN_PHY_RADIO_STATE*>(data);
    phys.at(state.dwPhyIndex) = state.dot11SoftwareRadioState;
    LARGE_INTEGER now{};
    QueryPerformanceCounter(&now);
    lastSwitch = now.QuadPart;
    return ERROR_SUCCESS;
}

void WINAPI FreeWlan(void* /*block*/) {
    Note(Call::kFreeWlan);
}

// --- What is the system's own, but noted ------------------------------------------------------

decltype(RegOpenKeyExW)* realOpenKey = nullptr;
decltype(RegQueryValueExW)* realQueryValue = nullptr;
decltype(RegCloseKey)* realCloseKey = nullptr;
decltype(StringFromCLSID)* realStringFromClsid = nullptr;
decltype(CoTaskMemFree)* realTaskMemFree = nullptr;

LSTATUS WINAPI OpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access, HKEY* key) {
    Note(Call::kOpenKey);
    return realOpenKey(parent, path, options, access, key);
}

LSTATUS WINAPI QueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data,
                          DWORD* bytes) {
    Note(Call::kQueryValue);
    return realQueryValue(key, name, reserved, type, data, bytes);
}

LSTATUS WINAPI CloseKey(HKEY key) {
    Note(Call::kCloseKey);
    return realCloseKey(key);
}

HRESULT WINAPI TextOfGuid(REFCLSID id, LPOLESTR* text) {
    Note(Call::kTextOfGuid);
    return realStringFromClsid(id, text);
}

void WINAPI FreeTaskMemory(void* block) {
    Note(Call::kFreeText);
    realTaskMemFree(block);
}

decltype(HeapAlloc)* realHeapAlloc = nullptr;
decltype(HeapFree)* realHeapFree = nullptr;
decltype(TryEnterCriticalSection)* realTryEnter = nullptr;
decltype(LeaveCriticalSection)* realLeave = nullptr;
decltype(_beginthreadex)* realBeginThread = nullptr;

void* WINAPI HeapAllocate(HANDLE heap, DWORD flags, SIZE_T bytes) {
    Note(Call::kHeapAllocate, bytes);
    return realHeapAlloc(heap, flags, bytes);
}

BOOL WINAPI HeapRelease(HANDLE heap, DWORD flags, void* block) {
    Note(Call::kHeapFree);
    return realHeapFree(heap, flags, block);
}

BOOL WINAPI TryEnter(CRITICAL_SECTION* section) {
    const BOOL entered = realTryEnter(section);
    if (entered != FALSE) {
        Note(Call::kEnterQueue);
    }
    return entered;
}

void WINAPI Leave(CRITICAL_SECTION* section) {
    Note(Call::kLeaveQueue);
    realLeave(section);
}

std::uintptr_t __cdecl BeginThread(void* security, unsigned stack, unsigned(__stdcall* function)(void*),
                                   void* argument, unsigned flags, unsigned* id) {
    Note(Call::kStartWriter);
    return realBeginThread(security, stack, function, argument, flags, id);
}

void WINAPI NoPause(DWORD /*milliseconds*/) {}

// --- The bare calls ---------------------------------------------------------------------------

/// What the log's writer does for a plug: takes a mutex and writes some lines to a file.
class BareWriter {
  public:
    BareWriter() : m_mutex(CreateMutexW(nullptr, FALSE, L"Global\\event_bench_bare")) {
        std::array<wchar_t, MAX_PATH> folder{};
        GetTempPathW(MAX_PATH, folder.data());
        m_path = std::wstring(folder.data()) + L"event_bench_bare.log";
        constexpr std::size_t kUsualCharacters = 120;
        m_line.assign(kUsualCharacters, L'x');
        m_line += L'\n';
    }
    BareWriter(const BareWriter&) = delete;
    BareWriter& operator=(const BareWriter&) = delete;
    ~BareWriter() { _wremove(m_path.c_str()); }

    void Start(std::size_t lines) {
        m_lines = lines;
        m_thread.Reset(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Write, this, 0, nullptr)));
    }

  private:
    static unsigned __stdcall Write(void* self) {
        const auto& writer = *static_cast<const BareWriter*>(self);
        WaitForSingleObject(writer.m_mutex.Get(), INFINITE);
        std::FILE* const file = _wfopen(writer.m_path.c_str(), L"a+,ccs=UTF-8");
        for (std::size_t line = 0; line < writer.m_lines; ++line) {
            std::fwrite(writer.m_line.data(), sizeof(wchar_t), writer.m_line.size(), file);
        }
        std::fflush(file);
        std::fclose(file);
        ReleaseMutex(writer.m_mutex.Get());
        return 0;
    }

    Platform::UniqueHandle m_mutex;
    Platform::UniqueHandle m_thread;
    std::wstring m_path;
    std::wstring m_line;
    std::size_t m_lines = 0;
};

/// What later calls need of earlier ones.
class Replayer {
  public:
    explicit Replayer(const Steps& steps) : m_steps(steps) {
        InitializeCriticalSection(&m_queue);
        m_lines = static_cast<std::size_t>(std::count_if(
            steps.begin(), steps.end(), [](const Step& step) { return step.call == Call::kEnterQueue; }));
    }
    Replayer(const Replayer&) = delete;
    Replayer& operator=(const Replayer&) = delete;
    ~Replayer() { DeleteCriticalSection(&m_queue); }

    void Run() {
        for (const Step& step : m_steps) {
            Make(step);
        }
    }

  private:
    void Make(const Step& step) {
        switch (step.call) {
            case Call::kTextOfGuid:
                StringFromCLSID(kConnection, &m_text);
                break;
            case Call::kFreeText:
                CoTaskMemFree(m_text);
                break;
            case Call::kGetNetworkConnection:
                Manager().GetNetworkConnection(kConnection, &m_connection);
                break;
            case Call::kGetAdapterId:
                m_connection->GetAdapterId(&m_adapterId);
                break;
            case Call::kHeapAllocate:
                m_block = HeapAlloc(GetProcessHeap(), 0, step.bytes);
                std::memset(m_block, 0, step.bytes);
                m_bytes = static_cast<ULONG>(step.bytes);
                break;
            case Call::kHeapFree:
                HeapFree(GetProcessHeap(), 0, std::exchange(m_block, nullptr));
                break;
            case Call::kAdaptersAddresses:
                GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_PREFIX, nullptr,
                                     static_cast<IP_ADAPTER_ADDRESSES*>(m_block), &m_bytes);
                break;
            case Call::kAdaptersInfo:
                GetAdaptersInfo(static_cast<IP_ADAPTER_INFO*>(m_block), &m_bytes);
                break;
            case Call::kOpenKey:
                RegOpenKeyExW(HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey, 0, KEY_READ, &m_key);
                break;
            case Call::kQueryValue:
                m_bytes = sizeof(m_mode);
                RegQueryValueExW(m_key, nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(&m_mode),
                                 &m_bytes);
                break;
            case Call::kCloseKey:
                RegCloseKey(m_key);
                break;
            default:
                MakeWlan(step);
                break;
        }
    }

    void MakeWlan(const Step& step) {
        switch (step.call) {
            case Call::kOpenWlan:
                WlanOpenHandle(2, nullptr, &m_bytes, &m_client);
                break;
            case Call::kEnumerateWlan:
                WlanEnumInterfaces(m_client, nullptr, &m_list);
                m_switch = {0, dot11_radio_state_off, dot11_radio_state_on};
                break;
            case Call::kQueryWlan:
                WlanQueryInterface(m_client, &m_list->InterfaceInfo[0].InterfaceGuid,
                                   wlan_intf_opcode_radio_state, nullptr, &m_bytes, &m_data, nullptr);
                break;
            case Call::kWlanCapability:
                WlanGetInterfaceCapability(m_client, &m_list->InterfaceInfo[0].InterfaceGuid, nullptr,
                                           &m_capability);
                break;
            case Call::kFreeWlan:
                WlanFreeMemory(m_list);
                break;
            case Call::kCloseWlan:
                WlanCloseHandle(m_client, nullptr);
                break;
            case Call::kSetWlan:
                WlanSetInterface(m_client, &m_list->InterfaceInfo[0].InterfaceGuid,
                                 wlan_intf_opcode_radio_state, sizeof(m_switch), &m_switch, nullptr);
                ++m_switch.dwPhyIndex;
                break;
            default:
                MakeLine(step);
                break;
        }
    }

    void MakeLine(const Step& step) {
        if (step.call == Call::kEnterQueue) {
            // Each line is stamped before it is queued.
            m_now = std::chrono::system_clock::now();
            m_thread = GetCurrentThreadId();
            TryEnterCriticalSection(&m_queue);
        } else if (step.call == Call::kLeaveQueue) {
            LeaveCriticalSection(&m_queue);
        } else {
            static BareWriter writer;
            writer.Start(m_lines);
        }
    }

    const Steps& m_steps;
    std::size_t m_lines = 0;
    CRITICAL_SECTION m_queue{};
    LPOLESTR m_text = nullptr;
    INetworkConnection* m_connection = nullptr;
    GUID m_adapterId{};
    void* m_block = nullptr;
    ULONG m_bytes = 0;
    HKEY m_key = nullptr;
    DWORD m_mode = 0;
    HANDLE m_client = nullptr;
    WLAN_INTERFACE_INFO_LIST* m_list = nullptr;
    WLAN_INTERFACE_CAPABILITY* m_capability = nullptr;
    void* m_data = nullptr;
    WLAN_PHY_RADIO_STATE m_switch{};
    std::chrono::system_clock::time_point m_now;
    DWORD m_thread = 0;
};

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
    realHeapAlloc = ReplaceImport("HeapAlloc", &HeapAllocate);
    realHeapFree = ReplaceImport("HeapFree", &HeapRelease);
    realTryEnter = ReplaceImport("TryEnterCriticalSection", &TryEnter);
    realLeave = ReplaceImport("LeaveCriticalSection", &Leave);
    realBeginThread = ReplaceImport("_beginthreadex", &BeginThread);
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

Steps Record(const std::function<void()>& what) {
    record.clear();
    recordedThread = GetCurrentThreadId();
    what();
    recordedThread = 0;
    const auto last = std::find_if(record.rbegin(), record.rend(),
                                   [](const Step& step) { return step.call == Call::kSetWlan; });
    return {record.begin(), last.base()};
}

Steps WithoutLog(const Steps& steps) {
    Steps others;
    std::copy_if(steps.begin(), steps.end(), std::back_inserter(others),
                 [](const Step& step) { return step.call < Call::kEnterQueue; });
    return others;
}

void Replay(const Steps& steps) {
    Replayer(steps).Run();
}

}  // namespace Bench::Devices
