// Commands that move cables, switches and devices.

#include <windows.h>
#include <ipifcons.h>
#include <objbase.h>
#include <wlanapi.h>

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

Adapter& NewAdapter(Machine& machine, std::string_view name, AdapterRole role, std::uint32_t type) {
    Adapter* const adapter = AddAdapter(machine, name, role, type);
    if (adapter == nullptr) {
        throw CommandError("no room for another adapter");
    }
    return *adapter;
}

Adapter& Port(Machine& machine, std::uint32_t cable) {
    Adapter* const port = FindAdapter(machine, "cable" + std::to_string(cable));
    if (port == nullptr) {
        throw CommandError("no port for cable " + std::to_string(cable) + " (reset cables N makes several)");
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
    const std::uint32_t cable = TakeCable(words);
    words.End();
    LockedMachine machine;
    PullOut(*machine, Port(*machine, cable), machine.Time());
    return {};
}

/// An adapter that presents itself as Ethernet without being a cable.
Answer SoftAdapter(Words& words, const char* name, AdapterRole role, const char* description,
                   const wchar_t* friendly, const char* address) {
    const bool on = words.TakeOnOff();
    words.End();
    LockedMachine machine;
    Adapter* adapter = FindAdapter(*machine, name);
    if (adapter != nullptr && !on) {
        RemoveAdapter(*machine, *adapter, machine.Time());
    }
    if (adapter == nullptr && on) {
        adapter = &NewAdapter(*machine, name, role, IF_TYPE_ETHERNET_CSMACD);
        CopyText(adapter->description, std::string_view(description));
        CopyText(adapter->friendlyName, std::wstring_view(friendly));
        CopyText(adapter->address, std::string_view(address));
        PlugIn(*machine, *adapter, 0, machine.Time());
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

/// Any notification of the first WLAN adapter.
Answer WifiNotify(Words& words) {
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
    event.id = machine->devices.wlan[0].id;
    PostEvent(*machine, event, machine.Time());
    return {};
}

Answer Wifi(Words& words) {
    const std::string what = words.Take("on, off, connect, ...");
    if (what == "notify") {
        return WifiNotify(words);
    }
    const bool hardwareOn = what == "hardware" && words.TakeOnOff();
    words.End();
    LockedMachine machine;
    if (what == "on" || what == "off") {
        SwitchWlanByUser(*machine, what == "on", machine.Time());
    } else if (what == "connect") {
        if (!ConnectWifi(*machine, 0, machine.Time())) {
            throw CommandError("the WLAN radio is off");
        }
    } else if (what == "disconnect") {
        DisconnectWifi(*machine, 0, machine.Time());
    } else if (what == "available") {
        AnnounceWlan(*machine, 0, WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_network_available,
                     machine.Time());
    } else if (what == "hardware") {
        SwitchWlanHardware(*machine, hardwareOn, machine.Time());
    } else {
        throw CommandError("not understood: wifi " + what);
    }
    return {};
}

Answer PhyCommand(Words& words) {
    const std::uint32_t number = words.TakeNumber("PHY index");
    LockedMachine machine;
    WlanAdapter& wlan = machine->devices.wlan[0];
    if (number >= wlan.phyCount) {
        throw CommandError("no such PHY");
    }
    Phy& phy = wlan.phys[number];
    const std::string what = words.Take("refuse or state");
    if (what == "refuse") {
        phy.refusalsLeft = TakeCount(words, "times or for-ever");
    } else if (what == "state") {
        phy.software = words.TakeNumber("state");
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
    words.End();
    LockedMachine machine;
    TheModem(*machine, 1);
    SwitchModemByUser(*machine, 0, on, machine.Time());
    return {};
}

constexpr std::pair<std::string_view, ConfirmRadio> kConfirmRadios[] = {
    {"same", ConfirmRadio::Same},       {"fresh", ConfirmRadio::Fresh}, {"opposite", ConfirmRadio::Opposite},
    {"failing", ConfirmRadio::Failing}, {"null", ConfirmRadio::Null},
};

/// One property of a modem, as the words name it.
void SetModem(Words& words, Modem& modem) {
    const std::string what = words.Take("confirm, follows, radio, ...");
    if (what == "confirm") {
        modem.confirmMs = words.TakeIf("never") ? kForEver : words.TakeNumber("milliseconds or never");
    } else if (what == "follows") {
        modem.follows = words.TakeOnOff() ? 1 : 0;
    } else if (what == "radio") {
        modem.confirmRadio = words.TakeOneOf(kConfirmRadios);
    } else if (what == "status") {
        modem.confirmStatus = static_cast<std::int32_t>(words.TakeNumber("HRESULT"));
    } else if (what == "request") {
        words.TakeThe("wrong");
        modem.wrongRequest = 1;
    } else if (what == "reverts") {
        modem.revertsLeft = TakeCount(words, "times or for-ever");
        modem.revertMs = words.TakeIf("after") ? words.TakeNumber("milliseconds") : 0;
    } else if (what == "refuse") {
        modem.refusalsLeft = TakeCount(words, "times or for-ever");
    } else if (what == "id") {
        CopyText(modem.idText, Widen(words.Take("text")));
    } else {
        throw CommandError("not understood: modem " + what);
    }
}

Answer ModemCommand(Words& words) {
    const std::uint32_t number = words.TakeNumber("modem number");
    LockedMachine machine;
    Modem& modem = TheModem(*machine, number);
    do {
        SetModem(words, modem);
    } while (!words.Empty());
    return {};
}

Answer ModemListCommand(Words& words) {
    static constexpr std::pair<std::string_view, ModemList> kTable[] = {
        {"normal", ModemList::Normal},
        {"empty", ModemList::Empty},
        {"null", ModemList::Null},
        {"odd-bounds", ModemList::OddBounds},
        {"null-element", ModemList::NullElement},
        {"wrong-type", ModemList::WrongType},
    };
    const ModemList list = words.TakeOneOf(kTable);
    LockedMachine machine;
    machine->devices.modemList = list;
    return {};
}

void AddNamedAdapter(Words& words, LockedMachine& machine) {
    const std::string name = words.Take("adapter name");
    if (FindAdapter(*machine, name) != nullptr) {
        throw CommandError("there is an adapter of that name: " + name);
    }
    Adapter& adapter = NewAdapter(*machine, name, AdapterRole::Other, IF_TYPE_ETHERNET_CSMACD);
    while (!words.Empty()) {
        const std::string what = words.Take("property");
        if (what == "type") {
            adapter.type = words.TakeNumber("type");
        } else if (what == "address") {
            CopyText(adapter.address, words.Take("address"));
        } else if (what == "description") {
            CopyText(adapter.description, words.Take("text"));
        } else if (what == "up") {
            PlugIn(*machine, adapter, 0, machine.Time());
        } else {
            throw CommandError("not understood: adapter ... " + what);
        }
    }
}

Answer AdapterCommand(Words& words) {
    const bool fills = words.TakeIf("fill");
    LockedMachine machine;
    if (!fills) {
        words.TakeThe("add");
        AddNamedAdapter(words, machine);
        return {};
    }
    const std::uint32_t count = words.TakeNumber("adapters in all");
    for (std::uint32_t i = machine->devices.adapterCount; i < count; ++i) {
        NewAdapter(*machine, "filler" + std::to_string(i), AdapterRole::Other, IF_TYPE_SOFTWARE_LOOPBACK)
            .hasAddress = 1;
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
    words.TakeThe("connection");
    LockedMachine machine;
    Event event{};
    event.kind = EventKind::ConnectionConnectivity;
    event.id = TakeConnection(words, *machine);
    event.value = words.TakeNumber("value");
    PostEvent(*machine, event, machine.Time());
    return {};
}

constexpr std::pair<std::string_view, SettingKind> kSettingKinds[] = {
    {"text", SettingKind::Text},       {"null", SettingKind::Null},   {"empty", SettingKind::Empty},
    {"int16", SettingKind::Int16},     {"int32", SettingKind::Int32}, {"int64", SettingKind::Int64},
    {"byte", SettingKind::Byte},       {"bool", SettingKind::Bool},   {"double", SettingKind::Double},
    {"date", SettingKind::Date},       {"error", SettingKind::Error}, {"unknown", SettingKind::Unknown},
    {"texts", SettingKind::TextArray},
};

Answer BiosSetting(const std::string& name, Words& words) {
    LockedMachine machine;
    Setting* const setting = PutSetting(*machine, Widen(name));
    if (setting == nullptr) {
        throw CommandError("no room for another setting");
    }
    if (words.TakeIf("absent")) {
        setting->present = 0;
    } else if (words.TakeIf("timeouts")) {
        setting->timeoutsLeft = TakeCount(words, "times or for-ever");
    } else {
        setting->kind = words.TakeOneOf(kSettingKinds);
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
    static constexpr std::pair<std::string_view, const wchar_t*> kTable[] = {
        {"wlan", L"LAN / WLAN Auto Switching"},
        {"wwan", L"LAN / WWAN Auto Switching"},
    };
    const wchar_t* const name = words.TakeOneOf(kTable);
    const bool on = words.TakeOnOff();
    LockedMachine machine;
    Setting* const setting = PutSetting(*machine, name);
    setting->kind = SettingKind::Text;
    CopyText(setting->text, std::wstring_view(on ? L"Enabled" : L"*Disabled"));
    return {};
}

}  // namespace

const std::vector<Command>& DeviceCommands() {
    static const std::vector<Command> commands = {
        {"plug", "[cable N] [noaddress | dhcp MS]",
         "A cable goes in, with its address at once, after so long, or never.", &Plug},
        {"unplug", "[cable N]", "A cable comes out.", &Unplug},
        {"vpn", "on|off", "An Ethernet-typed VPN adapter, connected.", &Vpn},
        {"virtual", "on|off", "The same for a virtual switch.", &Virtual},
        {"wifi", "on|off | connect|disconnect|available | hardware on|off | notify SOURCE CODE [nodata|null]",
         "The user's Wi-Fi switch; joining a network; one being in reach; the hardware switch; any "
         "notification.",
         &Wifi},
        {"phy", "INDEX refuse TIMES|for-ever | INDEX state N",
         "How one PHY takes being set; its software state.", &PhyCommand},
        {"wwan", "on|off", "The user's mobile-broadband switch.", &Wwan},
        {"modem",
         "N [confirm MS|never] [follows on|off] [radio same|fresh|opposite|failing|null] [status HRESULT] "
         "[request wrong] [reverts TIMES|for-ever [after MS]] [refuse TIMES|for-ever] [id TEXT]",
         "How a modem answers a switch: when it confirms, whether its radio follows, which radio object and "
         "request the completion carries, whether it takes the change back or refuses.",
         &ModemCommand},
        {"modems", "normal|empty|null|odd-bounds|null-element|wrong-type",
         "What the list of modems looks like.", &ModemListCommand},
        {"adapter", "add NAME [type N] [address A] [description D] [up] | fill COUNT",
         "Any adapter at all; fill makes the list that long.", &AdapterCommand},
        {"adapters", "", "Lists them.", &Adapters},
        {"event", "connection ADAPTER|GUID CONNECTIVITY",
         "An event of a connection as it is, whatever the adapters do.", &EventCommand},
        {"bios",
         "NAME text|int16|int32|int64|byte|bool|double|date|error|texts VALUE | NAME "
         "null|empty|unknown|absent | NAME timeouts TIMES|for-ever | provider on|off",
         "A BIOS setting: its value by type, missing, answered after time-outs; the provider.", &Bios},
        {"feature", "wlan|wwan on|off", "The BIOS setting that enables one half of the switching.", &Feature},
    };
    return commands;
}

}  // namespace Notebook
