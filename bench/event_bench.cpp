// What the service adds to a cable event. Prints one table; ends with 0 when every bound is kept.
//
// The devices are the simulated notebook's, in this process; the log is the default one, below the
// application-data folder under this program's own name.
#include <windows.h>
#include <process.h>
#include <wrl/client.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/measure.h"
#include "bios/bios_settings.h"
#include "network/nlm_event_handler.h"
#include "notebook/hardware/adapters.h"
#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/deliveries.h"
#include "notebook/hardware/import_table.h"
#include "notebook/hardware/start.h"
#include "notebook/hardware/wlan.h"
#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"
#include "radio/airplane_mode.h"

namespace Bench {
namespace {

using Notebook::LockedMachine;
using Notebook::Micros;
using Notebook::Now;

constexpr double kNanosecondsPerMicrosecond = 1e3;
constexpr double kMostAddedNanoseconds = 1e6;
constexpr double kMostRatio = 2.0;

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
    LockedMachine machine;
    Notebook::ResetMachine(*machine, {.wlanAdapters = 1, .phys = 3, .cables = 1}, machine.Time());
    machine->traceOn = 1;
}

Microsoft::WRL::ComPtr<INetworkListManager> NetworkList() {
    Microsoft::WRL::ComPtr<IUnknown> unknown;
    unknown.Attach(Notebook::MakeNetworkListManager());
    Microsoft::WRL::ComPtr<INetworkListManager> manager;
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
    Microsoft::WRL::ComPtr<INetworkListManager> m_manager = NetworkList();
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

bool ComparePlugs(Table& table, Service& service, const char* what, bool isRested) {
    constexpr int kRounds = 301;
    std::vector<double> wholes;
    std::vector<double> calls;
    std::vector<double> added;
    for (int round = 0; round < kRounds; ++round) {
        if (isRested) {
            WaitForTheLog();
        }
        const PlugTimes times = MeasurePlug(service);
        if (!times.isSwitched) {
            std::printf("    round %d: Wi-Fi did not go off\n", round);
            return false;
        }
        wholes.push_back(times.whole);
        calls.push_back(times.calls);
        // Windows would not start the log's writer without the service.
        added.push_back(times.whole - times.calls + times.logs);
    }
    table.Add(what, {Median(wholes), Median(calls)}, kMostRatio);
    const double most = Median(added);
    std::printf("    added: %.1f microseconds (at most 1000)%s\n", most / kNanosecondsPerMicrosecond,
                most < kMostAddedNanoseconds ? "" : " MISSED");
    return most < kMostAddedNanoseconds;
}

bool Run() {
    PutNotebookIntoThisProcess();
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
    return first && second && table.AllWithin();
}

}  // namespace
}  // namespace Bench

int wmain() {
    return Bench::Run() ? EXIT_SUCCESS : EXIT_FAILURE;
}
