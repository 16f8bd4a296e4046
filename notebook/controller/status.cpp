#include "notebook/controller/status.h"

#include <winternl.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "notebook/controller/words.h"
#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"

namespace Notebook {

namespace {

Machine& Raw() {
    return SharedState::Get().Raw();
}

const Adapter* Named(const Devices& devices, std::string_view name) {
    for (const Adapter& adapter : Adapters(devices)) {
        if (name == adapter.name) {
            return &adapter;
        }
    }
    return nullptr;
}

std::string LinkText(const Adapter* adapter) {
    if (adapter == nullptr) {
        return "none";
    }
    return adapter->plugged == 0 ? "out" : adapter->hasAddress != 0 ? "in" : "no-address";
}

std::string Cables(const Devices& devices) {
    std::string text;
    for (const Adapter& adapter : Adapters(devices)) {
        const std::string_view name = adapter.name;
        if (name.starts_with("cable")) {
            text += (text.empty() ? "" : ",") + std::string(name.substr(5)) + ":" + LinkText(&adapter);
        }
    }
    return text.empty() ? "none" : text;
}

std::string RadioText(std::uint32_t state) {
    switch (state) {
        case kRadioOn:
            return "on";
        case kRadioOff:
            return "off";
        default:
            return std::to_string(state);
    }
}

std::string WlanText(const WlanAdapter& adapter) {
    if (adapter.present == 0) {
        return "none";
    }
    return AllPhysAre(adapter, kRadioOn) ? "on" : AllPhysAre(adapter, kRadioOff) ? "off" : "mixed";
}

/// What each PHY shows, with commas between.
template <class Function>
std::string PhysText(const WlanAdapter& adapter, Function show) {
    std::string text;
    for (const Phy& phy : std::span(adapter.phys, adapter.phyCount)) {
        text += (text.empty() ? "" : ",") + show(phy);
    }
    return text.empty() ? "none" : text;
}

std::string ModemText(const Modem& modem) {
    return modem.present == 0 ? "none" : modem.software != 0 ? "on" : "off";
}

std::string RegistryTypeName(DWORD type) {
    static constexpr std::pair<DWORD, const char*> kNames[] = {
        {REG_SZ, "REG_SZ"},       {REG_EXPAND_SZ, "REG_EXPAND_SZ"}, {REG_BINARY, "REG_BINARY"},
        {REG_DWORD, "REG_DWORD"}, {REG_MULTI_SZ, "REG_MULTI_SZ"},   {REG_QWORD, "REG_QWORD"}};
    for (const auto& [known, name] : kNames) {
        if (known == type) {
            return name;
        }
    }
    return "REG_" + std::to_string(type);
}

std::string Hex(const std::vector<BYTE>& data) {
    std::string text;
    for (const BYTE byte : data) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), "%02x", byte);
        text += digits;
    }
    return text;
}

std::string StoredText(const std::optional<RegistryValue>& value) {
    if (!value) {
        return "missing";
    }
    if (value->type != REG_SZ && value->type != REG_EXPAND_SZ) {
        return RegistryTypeName(value->type);
    }
    std::wstring text(value->data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), value->data.data(), text.size() * sizeof(wchar_t));
    while (!text.empty() && text.back() == L'\0') {
        text.pop_back();
    }
    return Narrow(text);
}

std::string TypeText(const std::optional<RegistryValue>& value) {
    return value ? RegistryTypeName(value->type) : "none";
}

std::string ModemSets(const Devices& devices) {
    std::uint32_t sets = 0;
    for (const Modem& modem : devices.modems) {
        sets += modem.sets;
    }
    return std::to_string(sets);
}

std::string ReportedText() {
    const DWORD reported = Raw().service.reported;
    return reported == 0 ? "nothing" : StateName({.installed = true, .state = reported});
}

/// One entry of the system's list of handles (NtQuerySystemInformation,
/// SystemExtendedHandleInformation), and the list.
struct SystemHandle {
    void* object;
    ULONG_PTR process;
    ULONG_PTR value;
    ULONG access;
    USHORT creatorBackTrace;
    USHORT objectType;
    ULONG attributes;
    ULONG reserved;
};
struct SystemHandles {
    ULONG_PTR count;
    ULONG_PTR reserved;
    SystemHandle handles[1];
};

/// SystemExtendedHandleInformation, which the header leaves out.
constexpr ULONG kSystemExtendedHandleInformation = 64;

/// A function, because a constant outside of the header's enumeration is none to the compiler.
SYSTEM_INFORMATION_CLASS InformationClass(ULONG number) {
    return static_cast<SYSTEM_INFORMATION_CLASS>(number);
}

/// How many handles a process holds. (GetProcessHandleCount does not answer everywhere.)
std::string HandlesText(DWORD process) {
    constexpr std::size_t kRoom = std::size_t{4} * 1024 * 1024;
    std::vector<std::byte> bytes(kRoom);
    if (NtQuerySystemInformation(InformationClass(kSystemExtendedHandleInformation), bytes.data(), kRoom,
                                 nullptr) != 0) {
        return "unknown";
    }
    const auto& all = *reinterpret_cast<const SystemHandles*>(bytes.data());
    return std::to_string(
        std::count_if(all.handles, all.handles + all.count,
                      [process](const SystemHandle& handle) { return handle.process == process; }));
}

/// Not among the pairs of a status: the system's list of handles is long.
constexpr std::string_view kHandlesKey = "handles";

using Tell = std::function<std::string(Snapshot&)>;

Tell Stub(const wchar_t* name) {
    return [name](Snapshot&) { return StateName(QueryService(name)); };
}

Tell Calls(Call call) {
    return [call](Snapshot&) { return std::to_string(Raw().counts[static_cast<std::size_t>(call)].calls); };
}

Tell Held(LONG Ledger::*what) {
    return [what](Snapshot&) { return std::to_string(Raw().ledger.*what); };
}

Tell Stored(const RegistryPlace& place, std::string (*show)(const std::optional<RegistryValue>&)) {
    return [place, show](Snapshot&) { return show(Read(place)); };
}

std::string BytesText(const std::optional<RegistryValue>& value) {
    return value ? Hex(value->data) : "";
}

/// The pairs of a status, in its order.
const std::vector<std::pair<std::string_view, Tell>>& Pairs() {
    static const std::vector<std::pair<std::string_view, Tell>> pairs = {
        {"cable", [](Snapshot& s) { return LinkText(Named(s.TheDevices(), "cable1")); }},
        {"cables", [](Snapshot& s) { return Cables(s.TheDevices()); }},
        {"wifi", [](Snapshot& s) { return WlanText(s.TheDevices().wlan[0]); }},
        {"phys",
         [](Snapshot& s) {
             return PhysText(s.TheDevices().wlan[0], [](const Phy& phy) { return RadioText(phy.software); });
         }},
        {"wifi2", [](Snapshot& s) { return WlanText(s.TheDevices().wlan[1]); }},
        {"wwan", [](Snapshot& s) { return ModemText(s.TheDevices().modems[0]); }},
        {"wwan2", [](Snapshot& s) { return ModemText(s.TheDevices().modems[1]); }},
        {"airplane", [](Snapshot&) { return std::string(AirplaneIsOn() ? "on" : "off"); }},
        {"asleep", [](Snapshot& s) { return std::string(s.TheDevices().asleep != 0 ? "yes" : "no"); }},
        {"stored_wlan", Stored(kStoredWlan, &StoredText)},
        {"stored_wwan", Stored(kStoredWwan, &StoredText)},
        {"stored_wlan_type", Stored(kStoredWlan, &TypeText)},
        {"stored_wwan_type", Stored(kStoredWwan, &TypeText)},
        {"stored_wlan_bytes", Stored(kStoredWlan, &BytesText)},
        {"stored_wwan_bytes", Stored(kStoredWwan, &BytesText)},
        {"service", [](Snapshot& s) { return StateName(s.Service()); }},
        {"pid", [](Snapshot& s) { return std::to_string(s.Service().process); }},
        {"exit", [](Snapshot& s) { return std::to_string(s.Service().exitCode); }},
        {"reported", [](Snapshot&) { return ReportedText(); }},
        {"wlansvc", Stub(L"WlanSvc")},
        {"wwansvc", Stub(L"WwanSvc")},
        {"wlan_sets", Calls(Call::WlanSetInterface)},
        {"phy_sets",
         [](Snapshot& s) {
             return PhysText(s.TheDevices().wlan[0], [](const Phy& phy) { return std::to_string(phy.sets); });
         }},
        {"wwan_sets", [](Snapshot& s) { return ModemSets(s.TheDevices()); }},
        {"event_log", Calls(Call::ReportEvent)},
        {"wlan_handles", Held(&Ledger::wlanHandles)},
        {"wlan_memory", Held(&Ledger::wlanMemory)},
        {"wlan_registrations", Held(&Ledger::wlanRegistrations)},
        {"com_references", Held(&Ledger::comReferences)},
        {"com_sinks", Held(&Ledger::comSinks)},
        {"event_sources", Held(&Ledger::eventSources)},
    };
    return pairs;
}

struct ActivityCounts {
    LONG calls;
    LONG deliveries;
    LONG controls;
    LONG waits;
    std::uint64_t unseen;
    bool due;
    Micros idle;
};

/// Adds what one process is busy with.
void Count(ActivityCounts& counts, const Machine& machine, const Activity& activity, std::uint32_t process) {
    counts.calls += activity.callsBegun - activity.callsEnded;
    counts.deliveries += activity.deliveriesBegun - activity.deliveriesEnded;
    counts.waits += activity.waitsBegun - activity.waitsEnded;
    counts.idle = std::min<Micros>(counts.idle, Now() - activity.lastAt);
    for (const Listener& listener : machine.listeners) {
        if (listener.process != 0 && listener.process == process) {
            counts.unseen += machine.eventCount - listener.seen;
        }
    }
}

ActivityCounts CountActivity() {
    LockedMachine machine;
    const ServiceRun& service = machine->service;
    ActivityCounts counts{};
    counts.controls = service.controlsBegun - service.controlsEnded;
    counts.due = NextDue(*machine) != kNever;
    counts.idle = kNever;
    Count(counts, *machine, machine->activity, service.process);
    if (machine->deviceServer != 0) {
        Count(counts, *machine, machine->serverActivity, machine->deviceServer);
    }
    return counts;
}

}  // namespace

const Devices& Snapshot::TheDevices() {
    if (!m_devices) {
        LockedMachine machine;
        m_devices = std::make_unique<Devices>(machine->devices);
    }
    return *m_devices;
}

const ServiceState& Snapshot::Service() {
    if (!m_service) {
        m_service = QueryService(kServiceName);
    }
    return *m_service;
}

std::string StatusLine() {
    Snapshot snapshot;
    std::string line;
    for (const auto& [key, reader] : Pairs()) {
        line += (line.empty() ? "" : " ") + std::string(key) + "=" + Quoted(reader(snapshot));
    }
    return line;
}

std::string StatusValue(Snapshot& snapshot, std::string_view key) {
    if (key == kHandlesKey) {
        return HandlesText(snapshot.Service().process);
    }
    for (const auto& [name, reader] : Pairs()) {
        if (name == key) {
            return reader(snapshot);
        }
    }
    throw CommandError("no such key: " + std::string(key));
}

Condition ParseCondition(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw CommandError("a condition is KEY=VALUE or KEY!=VALUE, not " + text);
    }
    const bool equal = text[equals - 1] != '!';
    return {text.substr(0, equal ? equals : equals - 1), text.substr(equals + 1), equal};
}

std::string Unsettled(Micros quiet) {
    const ActivityCounts counts = CountActivity();
    if (counts.calls == 0 && counts.deliveries == 0 && counts.controls == 0 && counts.waits == 0 &&
        counts.unseen == 0 && !counts.due && counts.idle >= quiet) {
        return {};
    }
    // The manager is asked only when it may have something else to say: asking takes longer than all the
    // rest.
    const ServiceRun& service = Raw().service;
    if ((service.stopped != 0 || IsGone(service.process)) &&
        QueryService(kServiceName).state == SERVICE_STOPPED) {
        return {};
    }
    return "calls=" + std::to_string(counts.calls) + " deliveries=" + std::to_string(counts.deliveries) +
           " controls=" + std::to_string(counts.controls) + " waits=" + std::to_string(counts.waits) +
           " unseen=" + std::to_string(counts.unseen) + " due=" + (counts.due ? "yes" : "no") +
           " idle=" + std::to_string(counts.idle / kMicrosPerMilli);
}

}  // namespace Notebook
