// Commands that move cables, switches and devices.

#include <windows.h>
#include <ipifcons.h>
#include <objbase.h>
#include <wlanapi.h>

#include <array>
#include <utility>

#include "notebook/controller/conversation.h"
#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"

namespace Notebook {

namespace {

/// `for-ever` or a number.
std::uint32_t TakeCount(Words& words, std::string_view what) {
    return words.TakeIf("for-ever") ? kForEver : words.TakeNumber(what);
}

/// `cable N`, or cable 1.
std::uint32_t TakeCable(Words& words) {
    return words.TakeIf("cable") ? words.TakeNumber("cable number") : 1;
}

Adapter& Port(Machine& machine, std::uint32_t cable) {
    Adapter* const port = CablePort(machine, cable);
    if (port == nullptr) {
        throw CommandError("no room for another adapter");
    }
    return *port;
}

Answer Plug(Words& words) {
    std::uint32_t cable = 1;
    std::uint32_t addressMs = 0;
    while (!words.Empty()) {
        if (words.Peek() == "cable") {
            cable = TakeCable(words);
        } else if (words.TakeIf("dhcp")) {
            addressMs = words.TakeNumber("milliseconds");
        } else if (words.TakeIf("noaddress")) {
            addressMs = kForEver;
        } else {
            break;
        }
    }
    words.End();
    LockedMachine machine;
    PlugIn(*machine, Port(*machine, cable), addressMs, machine.Time());
    return {};
}

Answer Unplug(Words& words) {
    const bool all = words.TakeIf("all");
    const std::uint32_t cable = all ? 0 : TakeCable(words);
    words.End();
    LockedMachine machine;
    for (Adapter& adapter : machine->devices.adapters) {
        if (adapter.present != 0 && adapter.role == AdapterRole::Cable && (all || adapter.number == cable)) {
            PullOut(*machine, adapter, machine.Time());
        }
    }
    return {};
}

Answer Address(Words& words) {
    std::uint32_t cable = 1;
    bool on = true;
    std::optional<std::string> text;
    while (!words.Empty()) {
        if (words.Peek() == "cable") {
            cable = TakeCable(words);
        } else if (words.Peek() == "on" || words.Peek() == "off") {
            on = words.TakeOnOff();
        } else if (words.TakeIf("is")) {
            text = words.Take("address");
        } else {
            break;
        }
    }
    words.End();
    LockedMachine machine;
    Adapter& port = Port(*machine, cable);
    if (text) {
        CopyText(port.address, *text);
    }
    if (on) {
        GiveAddress(*machine, port, machine.Time());
    } else {
        TakeAddress(*machine, port, machine.Time());
    }
    return {};
}

/// An adapter that presents itself as Ethernet without being a cable: on, off, or there but idle.
Answer SoftAdapter(Words& words, const char* name, AdapterRole role, const char* description,
                   const wchar_t* friendly, const char* address) {
    const std::string wanted = words.Take("on, off or idle");
    words.End();
    if (wanted != "on" && wanted != "off" && wanted != "idle") {
        throw CommandError("on, off or idle, not " + wanted);
    }
    LockedMachine machine;
    Adapter* adapter = FindAdapter(*machine, name);
    if (wanted == "off") {
        if (adapter != nullptr) {
            RemoveAdapter(*machine, *adapter, machine.Time());
        }
        return {};
    }
    if (adapter == nullptr) {
        adapter = AddAdapter(*machine, name, role, IF_TYPE_ETHERNET_CSMACD);
        if (adapter == nullptr) {
            throw CommandError("no room for another adapter");
        }
        CopyText(adapter->description, std::string_view(description));
        CopyText(adapter->friendlyName, std::wstring_view(friendly));
        CopyText(adapter->address, std::string_view(address));
    }
    if (wanted == "on") {
        PlugIn(*machine, *adapter, 0, machine.Time());
    } else {
        PullOut(*machine, *adapter, machine.Time());
    }
    return {};
}

Answer Vpn(Words& words) {
    return SoftAdapter(words, "vpn", AdapterRole::Vpn, "Brook VPN Adapter", L"Tunnel", "10.8.0.2");
}

Answer Virtual(Words& words) {
    return SoftAdapter(words, "virtual", AdapterRole::Virtual, "Brook Virtual Switch Adapter", L"vEthernet",
                       "172.20.0.1");
}

std::uint32_t TakeWlanAdapter(Words& words) {
    const std::uint32_t number = words.TakeIf("adapter") ? words.TakeNumber("adapter number") : 1;
    if (number == 0 || number > kMaxWlanAdapters) {
        throw CommandError("no such WLAN adapter");
    }
    return number - 1;
}

void WifiNotify(Words& words, std::uint32_t adapter) {
    Event event{};
    event.kind = EventKind::Wlan;
    event.source = words.TakeNumber("source");
    event.code = words.TakeNumber("code");
    if (words.TakeIf("null")) {
        event.kind = EventKind::WlanNullNotification;
    } else if (words.TakeIf("nodata")) {
        event.withoutData = 1;
    }
    words.End();
    LockedMachine machine;
    event.id = machine->devices.wlan[adapter].id;
    PostEvent(*machine, event, machine.Time());
}

/// Properties of the WLAN adapter and its hardware switch. Returns whether `what` was one of them.
bool WifiSetting(const std::string& what, Words& words, std::uint32_t adapter) {
    if (what == "notify") {
        WifiNotify(words, adapter);
    } else if (what == "joins") {
        const bool never = words.TakeIf("never");
        const std::uint32_t after = never ? 0 : words.TakeNumber("milliseconds");
        LockedMachine machine;
        machine->devices.wlan[adapter].joinsByItself = never ? 0 : 1;
        machine->devices.wlan[adapter].joinMs = after;
    } else if (what == "hardware") {
        const bool on = words.TakeOnOff();
        LockedMachine machine;
        SwitchWlanHardware(*machine, on, machine.Time());
    } else if (what == "interface-state") {
        const std::uint32_t state = words.TakeNumber("state");
        LockedMachine machine;
        machine->devices.wlan[adapter].state = state;
    } else {
        return false;
    }
    return true;
}

Answer Wifi(Words& words) {
    const std::string what = words.Take("on, off, connect, ...");
    const std::uint32_t adapter = TakeWlanAdapter(words);
    if (WifiSetting(what, words, adapter)) {
        return {};
    }
    words.End();
    LockedMachine machine;
    if (what == "on" || what == "off") {
        SwitchWlanByUser(*machine, what == "on", machine.Time());
    } else if (what == "connect") {
        if (!ConnectWifi(*machine, adapter, machine.Time())) {
            throw CommandError("the WLAN radio is off");
        }
    } else if (what == "disconnect") {
        DisconnectWifi(*machine, adapter, machine.Time());
    } else if (what == "available") {
        AnnounceWlan(*machine, adapter, WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_network_available,
                     machine.Time());
    } else {
        throw CommandError("not understood: wifi " + what);
    }
    return {};
}

Answer PhyCommand(Words& words) {
    const std::uint32_t number = words.TakeNumber("PHY index");
    const std::uint32_t adapter = TakeWlanAdapter(words);
    const std::string what = words.Take("accept, refuse, slow or state");
    std::uint32_t value = 0;
    std::uint32_t error = ERROR_GEN_FAILURE;
    if (what == "refuse") {
        value = TakeCount(words, "times or for-ever");
        error = words.TakeIf("error") ? words.TakeNumber("error") : error;
    } else if (what != "accept") {
        value = words.TakeNumber("number");
    }
    words.End();
    LockedMachine machine;
    WlanAdapter& wlan = machine->devices.wlan[adapter];
    if (number >= wlan.phyCount) {
        throw CommandError("no such PHY");
    }
    Phy& phy = wlan.phys[number];
    if (what == "accept" || what == "refuse") {
        phy.refusalsLeft = value;
        phy.refuseError = error;
        phy.slowMs = what == "accept" ? 0 : phy.slowMs;
    } else if (what == "slow") {
        phy.slowMs = value;
    } else if (what == "state") {
        phy.software = value;
    } else {
        throw CommandError("not understood: phy " + what);
    }
    return {};
}

Modem& TheModem(Machine& machine, std::uint32_t number) {
    if (number == 0 || number > kMaxModems || machine.devices.modems[number - 1].present == 0) {
        throw CommandError("no such modem");
    }
    return machine.devices.modems[number - 1];
}

Answer Wwan(Words& words) {
    const bool on = words.TakeOnOff();
    const std::uint32_t number = words.TakeIf("modem") ? words.TakeNumber("modem number") : 1;
    words.End();
    LockedMachine machine;
    TheModem(*machine, number);
    SwitchModemByUser(*machine, number - 1, on, machine.Time());
    return {};
}

ConfirmRadio TakeConfirmRadio(Words& words) {
    static constexpr std::array<std::pair<std::string_view, ConfirmRadio>, 5> kNames = {{
        {"same", ConfirmRadio::Same},
        {"fresh", ConfirmRadio::Fresh},
        {"opposite", ConfirmRadio::Opposite},
        {"failing", ConfirmRadio::Failing},
        {"null", ConfirmRadio::Null},
    }};
    const std::string word = words.Take("same, fresh, opposite, failing or null");
    for (const auto& [name, radio] : kNames) {
        if (name == word) {
            return radio;
        }
    }
    throw CommandError("not understood: radio " + word);
}

/// One property of a modem, as the words name it.
void SetModem(Words& words, Modem& modem, std::uint32_t index, LockedMachine& machine) {
    const std::string what = words.Take("confirm, follows, radio, ...");
    if (what == "confirm") {
        modem.confirmMs = words.TakeIf("never") ? kForEver : words.TakeNumber("milliseconds or never");
    } else if (what == "follows") {
        modem.follows = words.TakeOnOff() ? 1 : 0;
    } else if (what == "radio") {
        modem.confirmRadio = TakeConfirmRadio(words);
    } else if (what == "status") {
        modem.confirmStatus = static_cast<std::int32_t>(words.TakeNumber("HRESULT"));
    } else if (what == "request") {
        modem.wrongRequest = words.Take("right or wrong") == "wrong" ? 1 : 0;
    } else if (what == "reverts") {
        modem.revertsLeft = TakeCount(words, "times or for-ever");
        modem.revertMs = words.TakeIf("after") ? words.TakeNumber("milliseconds") : 0;
    } else if (what == "refuse") {
        modem.refusalsLeft = TakeCount(words, "times or for-ever");
        modem.refuseError =
            words.TakeIf("error") ? words.TakeNumber("HRESULT") : static_cast<std::uint32_t>(E_FAIL);
    } else if (what == "accept") {
        modem.refusalsLeft = 0;
    } else if (what == "id") {
        CopyText(modem.idText, Widen(words.Take("text")));
    } else if (what == "becomes") {
        ChangeModemByItself(*machine, index, words.TakeOnOff(), machine.Time());
    } else {
        throw CommandError("not understood: modem " + what);
    }
}

Answer ModemCommand(Words& words) {
    const std::uint32_t number = words.TakeNumber("modem number");
    LockedMachine machine;
    Modem& modem = TheModem(*machine, number);
    do {
        SetModem(words, modem, number - 1, machine);
    } while (!words.Empty());
    return {};
}

Answer ModemListCommand(Words& words) {
    static constexpr std::array<std::pair<std::string_view, ModemList>, 6> kNames = {{
        {"normal", ModemList::Normal},
        {"empty", ModemList::Empty},
        {"null", ModemList::Null},
        {"odd-bounds", ModemList::OddBounds},
        {"null-element", ModemList::NullElement},
        {"wrong-type", ModemList::WrongType},
    }};
    const std::string word = words.Take("normal, empty, ...");
    for (const auto& [name, kind] : kNames) {
        if (name == word) {
            LockedMachine machine;
            machine->devices.modemList = kind;
            return {};
        }
    }
    throw CommandError("not understood: modems " + word);
}

void AdapterProperties(Words& words, Adapter& adapter, LockedMachine& machine) {
    while (!words.Empty()) {
        const std::string what = words.Take("property");
        if (what == "type") {
            adapter.type = words.TakeNumber("type");
        } else if (what == "address") {
            CopyText(adapter.address, words.Take("address"));
        } else if (what == "description") {
            CopyText(adapter.description, words.Take("text"));
        } else if (what == "friendly") {
            CopyText(adapter.friendlyName, Widen(words.Take("text")));
        } else if (what == "network") {
            CopyText(adapter.networkName, Widen(words.Take("text")));
        } else if (what == "connectivity") {
            adapter.connectivityUp = words.TakeNumber("NLM_CONNECTIVITY");
        } else if (what == "up") {
            PlugIn(*machine, adapter, 0, machine.Time());
        } else if (what == "down") {
            PullOut(*machine, adapter, machine.Time());
        } else if (what == "listed") {
            // In the adapter list with its address, without a connection or an event.
            adapter.hasAddress = words.TakeOnOff() ? 1 : 0;
        } else {
            throw CommandError("not understood: adapter ... " + what);
        }
    }
}

void FillAdapters(Machine& machine, std::uint32_t count) {
    for (std::uint32_t i = machine.devices.adapterCount; i < count; ++i) {
        const std::string name = "filler" + std::to_string(i);
        Adapter* const adapter = AddAdapter(machine, name, AdapterRole::Other, IF_TYPE_SOFTWARE_LOOPBACK);
        if (adapter == nullptr) {
            throw CommandError("no room for another adapter");
        }
        adapter->hasAddress = 1;
    }
}

Answer AdapterCommand(Words& words) {
    const std::string what = words.Take("add, set, remove, fill or clear");
    LockedMachine machine;
    if (what == "fill") {
        FillAdapters(*machine, words.TakeNumber("adapters in all"));
        return {};
    }
    if (what == "clear") {
        for (Adapter& adapter : machine->devices.adapters) {
            if (adapter.present != 0) {
                RemoveAdapter(*machine, adapter, machine.Time());
            }
        }
        return {};
    }
    const std::string name = words.Take("adapter name");
    Adapter* adapter = FindAdapter(*machine, name);
    if (what == "add" && adapter == nullptr) {
        adapter = AddAdapter(*machine, name, AdapterRole::Other, IF_TYPE_ETHERNET_CSMACD);
    }
    if (adapter == nullptr) {
        throw CommandError("no such adapter: " + name);
    }
    if (what == "remove") {
        RemoveAdapter(*machine, *adapter, machine.Time());
    } else if (what == "add" || what == "set") {
        AdapterProperties(words, *adapter, machine);
    } else {
        throw CommandError("not understood: adapter " + what);
    }
    return {};
}

Answer Adapters(Words& words) {
    words.End();
    Answer answer;
    LockedMachine machine;
    for (std::uint32_t i = 0; i < machine->devices.adapterCount; ++i) {
        const Adapter& adapter = machine->devices.adapters[i];
        if (adapter.present != 0) {
            answer.lines.push_back(std::string(adapter.name) + " type=" + std::to_string(adapter.type) +
                                   " address=" + (adapter.hasAddress != 0 ? adapter.address : "0.0.0.0") +
                                   " connectivity=" + std::to_string(adapter.connectivity) +
                                   " connection=" + Narrow(GuidText(adapter.connectionId)) +
                                   " adapter=" + Narrow(GuidText(adapter.id)) +
                                   " description=" + Quoted(adapter.description));
        }
    }
    return answer;
}

/// An adapter's connection by the adapter's name, or any identifier.
GUID TakeConnection(Words& words, Machine& machine) {
    const std::string word = words.Take("adapter name or GUID");
    if (const Adapter* const adapter = FindAdapter(machine, word)) {
        return adapter->connectionId;
    }
    GUID id{};
    if (FAILED(IIDFromString(Widen(word).c_str(), &id))) {
        throw CommandError("no such adapter: " + word);
    }
    return id;
}

Answer EventCommand(Words& words) {
    static constexpr std::array<std::pair<std::string_view, EventKind>, 7> kNames = {{
        {"connection", EventKind::ConnectionConnectivity},
        {"connection-property", EventKind::ConnectionProperty},
        {"network", EventKind::NetworkConnectivity},
        {"network-added", EventKind::NetworkAdded},
        {"network-deleted", EventKind::NetworkDeleted},
        {"network-property", EventKind::NetworkProperty},
        {"machine", EventKind::MachineConnectivity},
    }};
    const std::string word = words.Take("kind of event");
    for (const auto& [name, kind] : kNames) {
        if (name != word) {
            continue;
        }
        LockedMachine machine;
        Event event{};
        event.kind = kind;
        if (kind != EventKind::MachineConnectivity) {
            event.id = TakeConnection(words, *machine);
        }
        event.value = words.Empty() ? 0 : words.TakeNumber("value");
        PostEvent(*machine, event, machine.Time());
        return {};
    }
    throw CommandError("not understood: event " + word);
}

SettingKind TakeSettingKind(const std::string& word) {
    static constexpr std::array<std::pair<std::string_view, SettingKind>, 13> kNames = {{
        {"text", SettingKind::Text},
        {"null", SettingKind::Null},
        {"empty", SettingKind::Empty},
        {"int16", SettingKind::Int16},
        {"int32", SettingKind::Int32},
        {"int64", SettingKind::Int64},
        {"byte", SettingKind::Byte},
        {"bool", SettingKind::Bool},
        {"double", SettingKind::Double},
        {"date", SettingKind::Date},
        {"error", SettingKind::Error},
        {"unknown", SettingKind::Unknown},
        {"texts", SettingKind::TextArray},
    }};
    for (const auto& [name, kind] : kNames) {
        if (name == word) {
            return kind;
        }
    }
    throw CommandError("not understood: bios ... " + word);
}

Answer BiosSetting(const std::string& name, Words& words) {
    const std::string what = words.Take("text, null, absent, ...");
    LockedMachine machine;
    Setting* const setting = PutSetting(*machine, Widen(name));
    if (setting == nullptr) {
        throw CommandError("no room for another setting");
    }
    if (what == "absent") {
        setting->present = 0;
    } else if (what == "timeouts") {
        setting->timeoutsLeft = TakeCount(words, "times or for-ever");
    } else if (what == "slow") {
        setting->slowMs = words.TakeNumber("milliseconds");
    } else {
        setting->kind = TakeSettingKind(what);
        if (!words.Empty()) {
            CopyText(setting->text, Widen(words.Take("value")));
        }
    }
    return {};
}

Answer Bios(Words& words) {
    const std::string name = words.Take("setting or provider");
    if (name != "provider") {
        return BiosSetting(name, words);
    }
    const bool on = words.TakeOnOff();
    LockedMachine machine;
    machine->devices.providerPresent = on ? 1 : 0;
    return {};
}

Answer Feature(Words& words) {
    const std::string which = words.Take("wlan or wwan");
    const bool on = words.TakeOnOff();
    const wchar_t* const name = which == "wlan" ? L"LAN / WLAN Auto Switching" : L"LAN / WWAN Auto Switching";
    if (which != "wlan" && which != "wwan") {
        throw CommandError("wlan or wwan, not " + which);
    }
    LockedMachine machine;
    Setting* const setting = PutSetting(*machine, name);
    setting->kind = SettingKind::Text;
    CopyText(setting->text, std::wstring_view(on ? L"Enabled" : L"*Disabled"));
    return {};
}

Answer Threads(Words& words) {
    const std::uint32_t count = words.TakeNumber("threads");
    LockedMachine machine;
    machine->devices.networkThreads = count;
    return {};
}

Answer CloseWaits(Words& words) {
    const bool on = words.TakeOnOff();
    LockedMachine machine;
    machine->devices.closeWaits = on ? 1 : 0;
    return {};
}

}  // namespace

const std::vector<Command>& DeviceCommands() {
    static const std::vector<Command> commands = {
        {"plug", "[cable N] [noaddress | dhcp MS]",
         "A cable goes in, with its address at once, after so long, or never.", &Plug},
        {"unplug", "[cable N | all]", "A cable comes out.", &Unplug},
        {"address", "[on|off] [is ADDRESS] [cable N]", "A plugged cable gets or loses its address.",
         &Address},
        {"vpn", "on|off|idle", "An Ethernet-typed VPN adapter: connected, gone, or there unconnected.", &Vpn},
        {"virtual", "on|off|idle", "The same for a virtual switch.", &Virtual},
        {"wifi",
         "on|off | connect|disconnect|available | joins MS|never | hardware on|off | "
         "interface-state N | notify SOURCE CODE [nodata|null]   ([adapter N] behind the first word)",
         "The user's Wi-Fi switch; joining a network; one being in reach; joining again by itself when the "
         "radio is back; the hardware switch; any notification.",
         &Wifi},
        {"phy", "INDEX [adapter N] accept | refuse TIMES|for-ever [error E] | slow MS | state N",
         "How one PHY takes being set; its software state.", &PhyCommand},
        {"wwan", "on|off [modem N]", "The user's mobile-broadband switch.", &Wwan},
        {"modem",
         "N [confirm MS|never] [follows on|off] [radio same|fresh|opposite|failing|null] [status HRESULT] "
         "[request right|wrong] [reverts TIMES|for-ever [after MS]] [refuse TIMES|for-ever [error HRESULT]] "
         "[accept] [id TEXT] [becomes on|off]",
         "How a modem answers a switch: when it confirms, whether its radio follows, which radio object and "
         "request the completion carries, whether it takes the change back, refuses, or changes by itself.",
         &ModemCommand},
        {"modems", "normal|empty|null|odd-bounds|null-element|wrong-type",
         "What the list of modems looks like.", &ModemListCommand},
        {"adapter",
         "add|set NAME [type N] [address A] [description D] [friendly F] [network N] [connectivity N] "
         "[listed on|off] [up|down] | remove NAME | fill COUNT | clear",
         "Any adapter at all; fill makes the list that long.", &AdapterCommand},
        {"adapters", "", "Lists them.", &Adapters},
        {"event",
         "connection|connection-property|network|network-added|network-deleted|network-property "
         "ADAPTER|GUID [VALUE] | machine VALUE",
         "A network event as it is, whatever the adapters do.", &EventCommand},
        {"bios",
         "NAME text|int16|int32|int64|byte|bool|double|date|error|texts VALUE | NAME "
         "null|empty|unknown|absent "
         "| NAME timeouts TIMES|for-ever | NAME slow MS | provider on|off",
         "A BIOS setting: its value by type, missing, answered after time-outs or slowly; the provider.",
         &Bios},
        {"feature", "wlan|wwan on|off", "The BIOS setting that enables one half of the switching.", &Feature},
        {"threads", "N", "How many threads deliver network events.", &Threads},
        {"close-waits", "on|off", "Whether leaving the WLAN notifications waits for a callback that runs.",
         &CloseWaits},
    };
    return commands;
}

}  // namespace Notebook
