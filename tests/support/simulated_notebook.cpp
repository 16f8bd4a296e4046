#include "tests/support/simulated_notebook.h"

#include <netlistmgr.h>
#include <wbemcli.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "notebook/hardware/adapters.h"
#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/event_log.h"
#include "notebook/hardware/start.h"
#include "notebook/hardware/wlan.h"
#include "notebook/state/event_log.h"
#include "notebook/state/text.h"

namespace Rig {

using namespace ::Notebook;
using Detail::RigLockHolder;

namespace {

Machine& StateInMemory() {
    static Machine& state = []() -> Machine& {
        SharedState::KeepInMemory();
        StartWlan();
        EventPump::Get().DeliverByHand();
        return SharedState::Get().Raw();
    }();
    return state;
}

}  // namespace

SimulatedNotebook::SimulatedNotebook(TestClock& clock, const Shape& shape)
    : m_clock(clock), m_state(StateInMemory()) {
    const Micros start = Now();
    SetClock([&clock, start] {
        return start + std::chrono::duration_cast<std::chrono::microseconds>(clock.Elapsed()).count();
    });
    m_state.ledger = {};
    m_state.traceOn = 1;
    Make(shape);
    ResetServices();
    ForgetCalls();
    Deliver();
    SharedState::Get().OnNews([this] { PlanDelivery(); });
    SetCallHook([this](Call call) { return Answer(call); });
    ReplaceImports();
}

SimulatedNotebook::~SimulatedNotebook() {
    SetCallHook(nullptr);
    SharedState::Get().OnNews(nullptr);
    SetClock(nullptr);
    m_imports.clear();
    const ::Notebook::Ledger& held = m_state.ledger;
    EXPECT_EQ(held.wlanHandles, 0);
    EXPECT_EQ(held.wlanMemory, 0);
    EXPECT_EQ(held.wlanRegistrations, 0);
    EXPECT_EQ(held.comReferences, 0);
    EXPECT_EQ(held.comSinks, 0);
    EXPECT_EQ(held.eventSources, 0);
    EXPECT_EQ(OpenServiceHandles(), 0U);
    EXPECT_EQ(held.misuses, 0) << "something was used or given back that was gone";
}

void SimulatedNotebook::Make(const Shape& shape) const {
    LockedMachine machine;
    ResetMachine(*machine, shape, machine.Time());
}

WlanAdapter& SimulatedNotebook::Wlan(std::size_t adapter) const {
    return Devices().wlan[adapter];
}

Modem& SimulatedNotebook::Modem(std::size_t modem) const {
    return Devices().modems[modem];
}

void SimulatedNotebook::SetPhys(const std::vector<Phy>& phys) const {
    Wlan().phyCount = static_cast<std::uint32_t>(phys.size());
    std::ranges::copy(phys, Wlan().phys);
}

Adapter& SimulatedNotebook::Cable(std::uint32_t port) const {
    return *CablePort(m_state, port);
}

Adapter& SimulatedNotebook::AddAdapter(std::uint32_t type) const {
    LockedMachine machine;
    const std::string name = "adapter" + std::to_string(machine->devices.adapterCount + 1);
    return *::Notebook::AddAdapter(*machine, name, type);
}

void SimulatedNotebook::PlugCable(std::uint32_t port, std::uint32_t addressMs) const {
    LockedMachine machine;
    PlugIn(*machine, *CablePort(*machine, port), addressMs, machine.Time());
}

void SimulatedNotebook::PullCable(std::uint32_t port) const {
    LockedMachine machine;
    PullOut(*machine, *CablePort(*machine, port), machine.Time());
}

void SimulatedNotebook::RemoveSettings() const {
    std::ranges::fill(Devices().settings, Setting{});
}

void SimulatedNotebook::SetSetting(std::wstring_view name, std::wstring_view text) const {
    Setting& setting = *PutSetting(m_state, name);
    setting.type = VT_BSTR;
    CopyText(setting.text, text);
}

void SimulatedNotebook::SetSetting(std::wstring_view name, const VARIANT& value) const {
    Setting& setting = *PutSetting(m_state, name);
    setting.type = ::Notebook::kRawVariant;
    setting.raw = value;
}

void SimulatedNotebook::At(Call call, int nth, Action what) {
    const RigLockHolder hold(m_lock);
    m_actions[{call, m_counts[call] + nth}] = std::move(what);
}

void SimulatedNotebook::Before(Call call, int nth, const std::function<void()>& what) {
    At(call, nth, [what]() -> std::optional<DWORD> {
        what();
        return std::nullopt;
    });
}

void SimulatedNotebook::AtEach(Call call, Action what) {
    const RigLockHolder hold(m_lock);
    m_actions[{call, 0}] = std::move(what);
}

void SimulatedNotebook::Fail(Call call, int nth, LONG error) {
    At(call, nth, [error] { return static_cast<DWORD>(error); });
}

void SimulatedNotebook::FailEach(Call call, LONG error) {
    AtEach(call, [error] { return static_cast<DWORD>(error); });
}

std::optional<DWORD> SimulatedNotebook::Answer(Call call) {
    Action action;
    {
        const RigLockHolder hold(m_lock);
        auto found = m_actions.find({call, ++m_counts[call]});
        if (found == m_actions.end()) {
            found = m_actions.find({call, 0});
        }
        if (found != m_actions.end()) {
            action = found->second;
        }
    }
    return action ? action() : std::nullopt;
}

std::vector<std::string> SimulatedNotebook::Calls() const {
    std::vector<std::string> calls;
    const auto capacity = static_cast<LONGLONG>(kTraceCapacity);
    for (LONGLONG i = std::max(LONGLONG{0}, m_state.traceCount - capacity); i < m_state.traceCount; ++i) {
        const TraceEntry& entry = m_state.trace[i % capacity];
        if (entry.call == Call::Count) {
            calls.emplace_back(entry.detail);
        } else if (entry.call != Call::Notification) {
            const std::string name(CallName(entry.call));
            calls.push_back(entry.detail[0] == '\0' ? name : name + " " + entry.detail);
        }
    }
    return calls;
}

std::vector<std::string> SimulatedNotebook::Calls(Call call) const {
    std::vector<std::string> calls = Calls();
    const std::string name(CallName(call));
    std::erase_if(calls, [&name](const std::string& text) { return text.substr(0, text.find(' ')) != name; });
    return calls;
}

void SimulatedNotebook::Note(const std::string& call) {
    // By a name that the notebook does not know.
    Trace(Call::Count, Now(), 0, call.c_str());
}

bool SimulatedNotebook::WlanIsOn(std::size_t adapter) const {
    return AllPhysAre(Wlan(adapter), kRadioOn);
}

bool SimulatedNotebook::WlanIsOff(std::size_t adapter) const {
    return AllPhysAre(Wlan(adapter), kRadioOff);
}

std::vector<std::string> SimulatedNotebook::EventLog() {
    std::vector<std::string> entries = EventLogLines();
    for (std::string& entry : entries) {
        entry.erase(0, entry.find('|') + 1);
    }
    return entries;
}

void SimulatedNotebook::Deliver() {
    EventPump::Get().DeliverNow();
}

HRESULT SimulatedNotebook::CreateObject(REFCLSID classId, REFIID interfaceId, void** object) {
    Microsoft::WRL::ComPtr<IClassFactory> factory;
    HRESULT result =
        GetDeviceClass(classId, IID_IClassFactory, reinterpret_cast<void**>(factory.GetAddressOf()));
    if (SUCCEEDED(result)) {
        result = factory->CreateInstance(nullptr, interfaceId, object);
    }
    return result;
}

/// When the next delivery is due, the clock makes it.
void SimulatedNotebook::PlanDelivery() {
    if (m_state.ledger.comSinks == 0 && m_state.ledger.wlanRegistrations == 0) {
        return;
    }
    using std::chrono::milliseconds;
    const Micros due = NextDue(m_state);
    const milliseconds now = m_clock.Elapsed();
    std::vector<milliseconds> times{now};
    if (due != kNever) {
        times.push_back(now + milliseconds((due - Now()) / kMicrosPerMilli));
    }
    for (const milliseconds time : times) {
        const RigLockHolder hold(m_lock);
        if (m_planned.insert(time).second) {
            m_clock.AtOnOwnThread(time, [this, time] {
                {
                    const RigLockHolder locked(m_lock);
                    m_planned.erase(time);
                }
                Deliver();
            });
        }
    }
}

void SimulatedNotebook::ReplaceImports() {
    m_imports = {
        ReplaceIfImported<&::WlanOpenHandle>(&NotebookWlanOpenHandle),
        ReplaceIfImported<&::WlanCloseHandle>(&NotebookWlanCloseHandle),
        ReplaceIfImported<&::WlanEnumInterfaces>(&NotebookWlanEnumInterfaces),
        ReplaceIfImported<&::WlanGetInterfaceCapability>(&NotebookWlanGetInterfaceCapability),
        ReplaceIfImported<&::WlanSetInterface>(&NotebookWlanSetInterface),
        ReplaceIfImported<&::WlanQueryInterface>(&NotebookWlanQueryInterface),
        ReplaceIfImported<&::WlanFreeMemory>(&NotebookWlanFreeMemory),
        ReplaceIfImported<&::WlanRegisterNotification>(&NotebookWlanRegisterNotification),
        ReplaceIfImported<&::GetAdaptersInfo>(&NotebookAdaptersInfo),
        ReplaceIfImported<&::GetAdaptersAddresses>(&NotebookAdaptersAddresses),
        ReplaceIfImported<&::IsNetworkAlive>(&NotebookNetworkAlive),
        ReplaceIfImported<&::OpenSCManagerW>(&NotebookOpenSCManager),
        ReplaceIfImported<&::OpenServiceW>(&NotebookOpenService),
        ReplaceIfImported<&::CreateServiceW>(&NotebookCreateService),
        ReplaceIfImported<&::ControlService>(&NotebookControlService),
        ReplaceIfImported<&::QueryServiceStatus>(&NotebookQueryServiceStatus),
        ReplaceIfImported<&::QueryServiceStatusEx>(&NotebookQueryServiceStatusEx),
        ReplaceIfImported<&::DeleteService>(&NotebookDeleteService),
        ReplaceIfImported<&::ChangeServiceConfig2W>(&NotebookChangeServiceConfig2),
        ReplaceIfImported<&::CloseServiceHandle>(&NotebookCloseServiceHandle),
        ReplaceIfImported<&::RegisterEventSourceW>(&NotebookRegisterEventSource),
        ReplaceIfImported<&::ReportEventW>(&NotebookReportEvent),
        ReplaceIfImported<&::DeregisterEventSource>(&NotebookDeregisterEventSource),
        ReplaceIfImported<&::CoCreateInstance>(
            [](REFCLSID classId, IUnknown*, DWORD, REFIID, void**) {
                return IsEqualCLSID(classId, CLSID_NetworkListManager) ||
                       IsEqualCLSID(classId, CLSID_MbnInterfaceManager) ||
                       IsEqualCLSID(classId, CLSID_WbemLocator);
            },
            [](REFCLSID classId, IUnknown*, DWORD, REFIID interfaceId, void** object) {
                return CreateObject(classId, interfaceId, object);
            }),
    };
}

}  // namespace Rig
