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

Adapter& NewAdapter(Machine& machine, std::string_view name, std::uint32_t type) {
    Adapter* const adapter = AddAdapter(machine, name, type);
    if (adapter == nullptr) {
        throw CommandError("no room for another adapter");
    }
    return *adapter;
}

/// The port of the cable that was named, or of the first.
Adapter& Port(Machine& machine, const Arguments& given) {
    const std::string cable = std::to_string(given.Number("cable", 1));
    Adapter* const port = FindAdapter(machine, "cable" + cable);
    if (port == nullptr) {
        throw CommandError("no port for cable " + cable + " (reset cables N makes several)");
    }
    return *port;
}

void Plug(const Arguments& given) {
    const std::uint32_t addressMs = given.Has("noaddress") ? kForEver : given.Number("dhcp", 0);
    LockedMachine machine;
    PlugIn(*machine, Port(*machine, given), addressMs, machine.Time());
}

void Unplug(const Arguments& given) {
    LockedMachine machine;
    PullOut(*machine, Port(*machine, given), machine.Time());
}

void Wifi(const Arguments& given) {
    LockedMachine machine;
    if (given.Has("connect")) {
        if (!ConnectWifi(*machine, 0, machine.Time())) {
            throw CommandError("the WLAN radio is off");
        }
    } else if (given.Has("disconnect")) {
        DisconnectWifi(*machine, 0, machine.Time());
    } else if (given.Has("available")) {
        AnnounceWlan(*machine, 0, WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_network_available,
                     machine.Time());
    } else if (given.Has("hardware")) {
        SwitchWlanHardware(*machine, given.IsOn("hardware"), machine.Time());
    } else if (given.Has("notify")) {
        const std::uint32_t times = given.Number("TIMES", 1);
        for (std::uint32_t i = 0; i < times; ++i) {
            PostEvent(*machine,
                      {.kind = given.Has("null") ? EventKind::WlanNullNotification : EventKind::Wlan,
                       .source = given.Number("SOURCE"),
                       .code = given.Number("CODE"),
                       .id = machine->devices.wlan[0].id,
                       .withoutData = given.Has("nodata") ? 1U : 0U},
                      machine.Time());
        }
    } else {
        SwitchWlanByUser(*machine, given.IsOn("wifi"), machine.Time());
    }
}

void PhyCommand(const Arguments& given) {
    const std::uint32_t number = given.Number("INDEX");
    LockedMachine machine;
    WlanAdapter& wlan = machine->devices.wlan[0];
    if (number >= wlan.phyCount) {
        throw CommandError("no such PHY");
    }
    Phy& phy = wlan.phys[number];
    if (given.Has("refuse")) {
        phy.refusalsLeft = given.Count("refuse", "for-ever");
    } else {
        phy.software = given.Number("state");
    }
}

Modem& TheModem(Machine& machine, std::uint32_t number) {
    if (number == 0 || number > kMaxModems || machine.devices.modems[number - 1].present == 0) {
        throw CommandError("no such modem");
    }
    return machine.devices.modems[number - 1];
}

void Wwan(const Arguments& given) {
    LockedMachine machine;
    TheModem(*machine, 1);
    SwitchModemByUser(*machine, 0, given.IsOn("wwan"), machine.Time());
}

void ModemCommand(const Arguments& given) {
    static constexpr std::pair<std::string_view, ConfirmRadio> kRadios[] = {
        {"same", ConfirmRadio::Same},         {"fresh", ConfirmRadio::Fresh},
        {"opposite", ConfirmRadio::Opposite}, {"failing", ConfirmRadio::Failing},
        {"null", ConfirmRadio::Null},
    };
    LockedMachine machine;
    Modem& modem = TheModem(*machine, given.Number("NUMBER"));
    Modem changed = modem;
    if (given.Has("confirm")) {
        changed.confirmMs = given.Count("confirm", "never");
    }
    if (given.Has("follows")) {
        changed.follows = given.IsOn("follows") ? 1 : 0;
    }
    if (given.Has("radio")) {
        changed.confirmRadio = given.OneOf(kRadios);
    }
    if (given.Has("status")) {
        changed.confirmStatus = static_cast<std::int32_t>(given.Number("status"));
    }
    if (given.Has("request")) {
        changed.wrongRequest = 1;
    }
    if (given.Has("reverts")) {
        changed.revertsLeft = given.Count("reverts", "for-ever");
        changed.revertMs = given.Number("after", 0);
    }
    if (given.Has("refuse")) {
        changed.refusalsLeft = given.Count("refuse", "for-ever");
    }
    if (given.Has("id")) {
        CopyText(changed.idText, Widen(given.Text("id")));
    }
    modem = changed;
}

void ModemListCommand(const Arguments& given) {
    static constexpr std::pair<std::string_view, ModemList> kLists[] = {
        {"normal", ModemList::Normal},
        {"empty", ModemList::Empty},
        {"null", ModemList::Null},
        {"odd-bounds", ModemList::OddBounds},
        {"null-element", ModemList::NullElement},
        {"wrong-type", ModemList::WrongType},
    };
    LockedMachine machine;
    machine->devices.modemList = given.OneOf(kLists);
}

void AdapterCommand(const Arguments& given) {
    LockedMachine machine;
    if (given.Has("fill")) {
        for (std::uint32_t i = machine->devices.adapterCount; i < given.Number("fill"); ++i) {
            NewAdapter(*machine, "filler" + std::to_string(i), IF_TYPE_SOFTWARE_LOOPBACK).hasAddress = 1;
        }
        return;
    }
    const std::string& name = given.Text("NAME");
    const std::uint32_t type = given.Number("type", IF_TYPE_ETHERNET_CSMACD);
    Adapter* const known = FindAdapter(*machine, name);
    if ((known != nullptr) == given.Has("add")) {
        throw CommandError((known != nullptr ? "there is an adapter of that name: " : "no such adapter: ") +
                           name);
    }
    if (known != nullptr) {
        RemoveAdapter(*machine, *known, machine.Time());
        return;
    }
    Adapter& adapter = NewAdapter(*machine, name, type);
    CopyText(adapter.address, given.Text("address", adapter.address));
    CopyText(adapter.description, given.Text("description", adapter.description));
    if (given.Has("up")) {
        PlugIn(*machine, adapter, 0, machine.Time());
    }
}

Answer ListAdapters() {
    Answer answer;
    LockedMachine machine;
    for (const Adapter& adapter : Adapters(machine->devices)) {
        answer.lines.push_back(std::string(adapter.name) + " type=" + std::to_string(adapter.type) +
                               " address=" + (adapter.hasAddress != 0 ? adapter.address : "0.0.0.0") +
                               " connectivity=" + std::to_string(adapter.connectivity) +
                               " connection=" + Narrow(GuidText(adapter.connectionId)) + " adapter=" +
                               Narrow(GuidText(adapter.id)) + " description=" + Quoted(adapter.description));
    }
    return answer;
}

/// An adapter's connection by the adapter's name, or any identifier.
GUID ConnectionOf(Machine& machine, const std::string& word) {
    if (const Adapter* const adapter = FindAdapter(machine, word)) {
        return adapter->connectionId;
    }
    GUID id{};
    if (FAILED(IIDFromString(Widen(word).c_str(), &id))) {
        throw CommandError("no such adapter: " + word);
    }
    return id;
}

void EventCommand(const Arguments& given) {
    LockedMachine machine;
    PostEvent(*machine,
              {.kind = EventKind::ConnectionConnectivity,
               .id = ConnectionOf(*machine, given.Text("ADAPTER")),
               .value = given.Number("CONNECTIVITY")},
              machine.Time());
}

Setting& NamedSetting(Machine& machine, std::wstring_view name) {
    Setting* const setting = PutSetting(machine, name);
    if (setting == nullptr) {
        throw CommandError("no room for another setting");
    }
    return *setting;
}

void Bios(const Arguments& given) {
    static constexpr std::pair<std::string_view, VARTYPE> kTypes[] = {
        {"text", VT_BSTR},   {"null", VT_NULL},       {"empty", VT_EMPTY},
        {"int16", VT_I2},    {"int32", VT_I4},        {"bool", VT_BOOL},
        {"error", VT_ERROR}, {"unknown", VT_UNKNOWN}, {"texts", VT_ARRAY | VT_BSTR},
    };
    LockedMachine machine;
    if (given.Has("provider")) {
        machine->devices.providerPresent = given.IsOn("provider") ? 1 : 0;
        return;
    }
    Setting& setting = NamedSetting(*machine, Widen(given.Text("NAME")));
    if (given.Has("absent")) {
        setting.present = 0;
    } else if (given.Has("timeouts")) {
        setting.timeoutsLeft = given.Count("timeouts", "for-ever");
    } else {
        setting.type = given.OneOf(kTypes);
        CopyText(setting.text, Widen(given.Text("VALUE", Narrow(setting.text))));
    }
}

void Feature(const Arguments& given) {
    static constexpr std::pair<std::string_view, const wchar_t*> kSettings[] = {
        {"wlan", L"LAN / WLAN Auto Switching"},
        {"wwan", L"LAN / WWAN Auto Switching"},
    };
    LockedMachine machine;
    Setting& setting = NamedSetting(*machine, given.OneOf(kSettings));
    setting.type = VT_BSTR;
    CopyText(setting.text, std::wstring_view(given.IsOn("feature") ? L"Enabled" : L"*Disabled"));
}

}  // namespace

const std::vector<Command>& DeviceCommands() {
    static const std::vector<Command> commands = {
        {"plug", "[cable N] [noaddress | dhcp MS]",
         "A cable goes in, with its address at once, after so long, or never.", &Plug},
        {"unplug", "[cable N]", "A cable comes out.", &Unplug},
        {"wifi",
         "on|off | connect | disconnect | available | hardware on|off | notify SOURCE CODE "
         "[nodata|null] [times TIMES]",
         "The user's Wi-Fi switch; joining a network; one being in reach; the hardware switch; any "
         "notification.",
         &Wifi},
        {"phy", "INDEX (refuse TIMES|for-ever | state N)", "How one PHY takes being set; its software state.",
         &PhyCommand},
        {"wwan", "on|off", "The user's mobile-broadband switch.", &Wwan},
        {"modem",
         "NUMBER (confirm MS|never | follows on|off | radio same|fresh|opposite|failing|null | "
         "status HRESULT | request wrong | reverts TIMES|for-ever [after MS] | refuse TIMES|for-ever | "
         "id TEXT)...",
         "How a modem answers a switch: when it confirms, whether its radio follows, which radio object and "
         "request the completion carries, whether it takes the change back or refuses.",
         &ModemCommand},
        {"modems", "normal|empty|null|odd-bounds|null-element|wrong-type",
         "What the list of modems looks like.", &ModemListCommand},
        {"adapter", "add NAME [type N] [address A] [description D] [up] | remove NAME | fill COUNT",
         "Any adapter at all, a VPN's, say; fill makes the list that long.", &AdapterCommand},
        {"adapters", "", "Lists them.", &ListAdapters},
        {"event", "connection ADAPTER CONNECTIVITY",
         "An event of a connection as it is, of an adapter or a GUID, whatever the adapters do.",
         &EventCommand},
        {"bios",
         "provider on|off | NAME (null|empty|unknown | absent | timeouts TIMES|for-ever | "
         "text|int16|int32|bool|error|texts [VALUE])",
         "A BIOS setting: its value by type, missing, answered after time-outs; the provider.", &Bios},
        {"feature", "wlan|wwan on|off", "The BIOS setting that enables one half of the switching.", &Feature},
    };
    return commands;
}

}  // namespace Notebook
