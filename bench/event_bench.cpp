// What the service adds to a cable event, and to what it does once for each adapter or connection. Prints a
// table of each; ends with 0 when every bound is kept.
//
// The devices are the simulated notebook's, in this process; the log is the default one, below the
// application-data folder under this program's own name.
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>
#include <netlistmgr.h>
#include <process.h>
#include <wrl/client.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "bios/bios_settings.h"
#include "network/cable_check.h"
#include "network/network_diagnostics.h"
#include "network/nlm_event_handler.h"
#include "notebook/hardware/adapters.h"
#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/deliveries.h"
#include "notebook/hardware/import_table.h"
#include "notebook/hardware/start.h"
#include "notebook/hardware/wlan.h"
#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"
#include "radio/airplane_mode.h"

namespace Bench {
namespace {

using Microsoft::WRL::ComPtr;
using Notebook::LockedMachine;
using Notebook::Micros;
using Notebook::Now;

constexpr double kNanosecondsPerMicrosecond = 1e3;
constexpr double kMostAddedNanoseconds = 1e6;
constexpr double kMostRatio = 2.0;
/// With many adapters: each costs two lines of the log and more.
constexpr double kMostRatioOfMany = 4.0;

// --- Calls of the system's own ----------------------------------------------------------------

/// One call into the system that the measured thread made: into the registry, or to start the log's writer.
/// What is short (heap, locks) is not noted, and so counts as the service's own time.
struct SystemCall {
    Micros at;
    Micros took;
    bool isTheLogs;
};
std::vector<SystemCall> systemCalls;
DWORD measuredThread = 0;

template <class MakeCall>
auto Note(bool isTheLogs, MakeCall makeCall) {
    const Micros start = Now();
    const auto result = makeCall();
    if (GetCurrentThreadId() == measuredThread) {
        systemCalls.push_back({start, Now() - start, isTheLogs});
    }
    return result;
}

decltype(RegOpenKeyExW)* realOpenKey = nullptr;
decltype(RegQueryValueExW)* realQueryValue = nullptr;
decltype(RegCloseKey)* realCloseKey = nullptr;
decltype(_beginthreadex)* realBeginThread = nullptr;

LSTATUS WINAPI OpenKey(HKEY parent, const wchar_t* path, DWORD options, REGSAM access, HKEY* key) {
    return Note(false, [&] { return realOpenKey(parent, path, options, access, key); });
}

LSTATUS WINAPI QueryValue(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data,
                          DWORD* bytes) {
    return Note(false, [&] { return realQueryValue(key, name, reserved, type, data, bytes); });
}

LSTATUS WINAPI CloseKey(HKEY key) {
    return Note(false, [&] { return realCloseKey(key); });
}

std::uintptr_t __cdecl BeginThread(void* security, unsigned stack, unsigned(__stdcall* function)(void*),
                                   void* argument, unsigned flags, unsigned* id) {
    return Note(true, [&] { return realBeginThread(security, stack, function, argument, flags, id); });
}

void WINAPI NoPause(DWORD /*milliseconds*/) {}

// --- The notebook -----------------------------------------------------------------------------

void PutNotebookIntoThisProcess() {
    using Notebook::ReplaceImport;
    Notebook::SharedState::KeepInMemory();
    Notebook::StartWlan();
    Notebook::EventPump::Get().DeliverByHand();
    Notebook::ReplaceAdapterList();
    ReplaceImport("WlanOpenHandle", &NotebookWlanOpenHandle);
    ReplaceImport("WlanCloseHandle", &NotebookWlanCloseHandle);
    ReplaceImport("WlanEnumInterfaces", &NotebookWlanEnumInterfaces);
    ReplaceImport("WlanQueryInterface", &NotebookWlanQueryInterface);
    ReplaceImport("WlanGetInterfaceCapability", &NotebookWlanGetInterfaceCapability);
    ReplaceImport("WlanSetInterface", &NotebookWlanSetInterface);
    ReplaceImport("WlanFreeMemory", &NotebookWlanFreeMemory);
    ReplaceImport("Sleep", &NoPause);
    realOpenKey = ReplaceImport("RegOpenKeyExW", &OpenKey);
    realQueryValue = ReplaceImport("RegQueryValueExW", &QueryValue);
    realCloseKey = ReplaceImport("RegCloseKey", &CloseKey);
    realBeginThread = ReplaceImport("_beginthreadex", &BeginThread);
}

/// A notebook with so many adapters besides WLAN and cable, each with a connection: Ethernet that no cable
/// is, so that all of them are looked at before the cable, which comes last.
void GiveAdapters(std::uint32_t count) {
    LockedMachine machine;
    Notebook::ResetMachine(*machine, {.wlanAdapters = 1, .phys = 3, .cables = 0}, machine.Time());
    machine->traceOn = 1;
    for (std::uint32_t number = 1; number <= count; ++number) {
        Notebook::Adapter& adapter =
            *Notebook::AddAdapter(*machine, "virtual" + std::to_string(number), IF_TYPE_ETHERNET_CSMACD);
        Notebook::CopyText(adapter.description, std::string("Virtual Switch Adapter"));
        Notebook::PlugIn(*machine, adapter, 0, machine.Time());
    }
}

ComPtr<INetworkListManager> NetworkList() {
    ComPtr<IUnknown> unknown;
    unknown.Attach(Notebook::MakeNetworkListManager());
    ComPtr<INetworkListManager> manager;
    unknown.As(&manager);
    return manager;
}

/// The service's event sink, subscribed to nothing: the events are called.
class Service {
  public:
    /// With Wi-Fi on.
    void PlugIn() {
        GUID connection{};
        {
            LockedMachine machine;
            Notebook::SwitchWlanByUser(*machine, true, machine.Time());
            Notebook::Adapter& port = *Notebook::CablePort(*machine, 1);
            Notebook::PlugIn(*machine, port, 0, machine.Time());
            connection = port.connectionId;
            machine->traceCount = 0;
        }
        systemCalls.clear();
        measuredThread = GetCurrentThreadId();
        m_start = Now();
        m_events->NetworkConnectionConnectivityChanged(connection, NLM_CONNECTIVITY_IPV4_INTERNET);
        measuredThread = 0;
    }
    /// When the event came.
    [[nodiscard]] Micros Start() const { return m_start; }

  private:
    ComPtr<INetworkListManager> m_manager = NetworkList();
    // Like the service's own it lives as long as the process.
    NLMEventHandler* m_events = new NLMEventHandler(m_manager.Get(), new WiredConnections);
    Micros m_start = 0;
};

// --- Plugs ------------------------------------------------------------------------------------

/// From the network event to the last switch of a PHY, in nanoseconds.
struct PlugTimes {
    double whole;
    double calls;     ///< into devices and system, of that
    double logs;      ///< of those, to start the log's writer
    bool isSwitched;  ///< whether Wi-Fi went off
};

PlugTimes MeasurePlug(Service& service) {
    service.PlugIn();
    const Notebook::Machine& machine = Notebook::SharedState::Get().Raw();
    const auto* const begin = std::begin(machine.trace);
    const auto* const end = begin + machine.traceCount;
    Micros switched = service.Start();
    for (const auto* call = begin; call != end; ++call) {
        if (call->call == Notebook::Call::WlanSetInterface) {
            switched = call->at + call->took;
        }
    }
    Micros calls = 0;
    Micros logs = 0;
    for (const auto* call = begin; call != end; ++call) {
        calls += call->at < switched && call->call != Notebook::Call::Notification ? call->took : 0;
    }
    for (const SystemCall& call : systemCalls) {
        calls += call.at < switched ? call.took : 0;
        logs += call.at < switched && call.isTheLogs ? call.took : 0;
    }
    const auto nanoseconds = [](Micros time) {
        return static_cast<double>(time) * kNanosecondsPerMicrosecond;
    };
    return {nanoseconds(switched - service.Start()), nanoseconds(calls), nanoseconds(logs),
            Notebook::AllPhysAre(machine.devices.wlan[0], Notebook::kRadioOff)};
}

/// Lets the writer of the log come to rest, as it does between a user's plugs.
void WaitForTheLog() {
    constexpr DWORD kRest = 10;
    static const HANDLE never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    WaitForSingleObject(never, kRest);
}

struct PlugMedians {
    Comparison times;
    double added;  ///< by the service; Windows would not start the log's writer without it
    bool areSwitched;
};

PlugMedians MeasurePlugs(Service& service, bool areRested) {
    constexpr int kRounds = 301;
    std::vector<double> wholes;
    std::vector<double> calls;
    std::vector<double> added;
    for (int round = 0; round < kRounds; ++round) {
        if (areRested) {
            WaitForTheLog();
        }
        const PlugTimes times = MeasurePlug(service);
        if (!times.isSwitched) {
            std::printf("    round %d: Wi-Fi did not go off\n", round);
            return {};
        }
        wholes.push_back(times.whole);
        calls.push_back(times.calls);
        added.push_back(times.whole - times.calls + times.logs);
    }
    return {Medians(wholes, calls), Median(added), true};
}

bool ComparePlugs(Table& table, Service& service, const char* what, bool areRested) {
    const PlugMedians plugs = MeasurePlugs(service, areRested);
    table.Add(what, plugs.times, kMostRatio);
    const bool isWithin = plugs.areSwitched && plugs.added < kMostAddedNanoseconds;
    std::printf("    added: %.1f microseconds (at most 1000)%s\n", plugs.added / kNanosecondsPerMicrosecond,
                isWithin ? "" : " MISSED");
    return isWithin;
}

// --- Many adapters ----------------------------------------------------------------------------

void BareCableTest() {
    ULONG bytes = 0;
    GetAdaptersInfo(nullptr, &bytes);
    std::vector<std::byte> list(bytes);
    GetAdaptersInfo(reinterpret_cast<IP_ADAPTER_INFO*>(list.data()), &bytes);
}

void BareAdapterLookUp() {
    constexpr ULONG kFirstBytes = 15000;
    ULONG bytes = kFirstBytes;
    std::vector<std::byte> list(bytes);
    while (GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_INCLUDE_PREFIX, nullptr,
                                reinterpret_cast<IP_ADAPTER_ADDRESSES*>(list.data()),
                                &bytes) == ERROR_BUFFER_OVERFLOW) {
        list.resize(bytes);
    }
}

void BareConnection(INetworkConnection& connection) {
    GUID id{};
    connection.GetConnectionId(&id);
    connection.GetAdapterId(&id);
    BareAdapterLookUp();
    ComPtr<INetwork> network;
    connection.GetNetwork(network.GetAddressOf());
    BSTR name = nullptr;
    network->GetName(&name);
    SysFreeString(name);
    VARIANT_BOOL isConnected = VARIANT_FALSE;
    connection.get_IsConnected(&isConnected);
    connection.get_IsConnectedToInternet(&isConnected);
    NLM_CONNECTIVITY connectivity{};
    connection.GetConnectivity(&connectivity);
}

void BareConnectionList(INetworkListManager& manager) {
    constexpr ULONG kBatch = 20;
    ComPtr<IEnumNetworkConnections> list;
    manager.GetNetworkConnections(list.GetAddressOf());
    INetworkConnection* batch[kBatch]{};
    ULONG count = 0;
    while (SUCCEEDED(list->Next(kBatch, batch, &count)) && count > 0) {
        for (ULONG i = 0; i < count; ++i) {
            BareConnection(*batch[i]);
            batch[i]->Release();
        }
    }
}

/// What grows with the number of adapters grows as the bare calls do. Whether Wi-Fi went off each time.
bool CompareMany(Table& table, Service& service, std::uint32_t adapters) {
    constexpr int kRounds = 31;
    const ComPtr<INetworkListManager> manager = NetworkList();
    const auto timed = [](const std::function<void()>& what) {
        return [what] {
            // Many calls would fill the trace.
            LockedMachine()->traceCount = 0;
            return Time(what);
        };
    };
    const std::string each = ", " + std::to_string(adapters);
    table.Add(
        "Ethernet test" + each + " adapters",
        Compare(kRounds, timed([] { static_cast<void>(NLMUtils::IsCableIn()); }), timed(&BareCableTest)),
        kMostRatioOfMany);
    table.Add("list of connections at start" + each + " connections",
              Compare(kRounds, timed([&] { NLMUtils::PrintNetworkConnections(manager.Get(), nullptr); }),
                      timed([&] { BareConnectionList(*manager.Get()); })),
              kMostRatioOfMany);
    const PlugMedians plugs = MeasurePlugs(service, true);
    table.Add("plug" + each + " adapters", plugs.times, kMostRatioOfMany);
    return plugs.areSwitched;
}

bool Run() {
    PutNotebookIntoThisProcess();
    GiveAdapters(0);
    NLMUtils::lanWlanSwitchingEnabled = true;
    HKEY key = nullptr;
    // Windows always has it; a test bed need not.
    RegCreateKeyW(HKEY_LOCAL_MACHINE, ServiceUtils::kAirplaneModeKey, &key);
    RegCloseKey(key);
    Service service;
    // The first one makes what is made once.
    static_cast<void>(MeasurePlug(service));
    Table table("From the network event to the last switch of a PHY", "service", "its calls");
    const bool first =
        ComparePlugs(table, service, "plug after a rest: its first line starts the log's writer", true);
    const bool second = ComparePlugs(table, service, "plug while the log's writer is at work", false);
    Table many("With many adapters, each with a connection", "service", "its calls");
    bool kept = true;
    for (const std::uint32_t adapters : {5U, 50U, 500U}) {
        GiveAdapters(adapters);
        kept = CompareMany(many, service, adapters) && kept;
    }
    return first && second && kept && table.AllWithin() && many.AllWithin();
}

}  // namespace
}  // namespace Bench

int wmain() {
    return Bench::Run() ? EXIT_SUCCESS : EXIT_FAILURE;
}
