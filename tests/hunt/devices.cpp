#include "tests/hunt/devices.h"

#include <windows.h>
#include <ipifcons.h>
#include <objbase.h>
#include <wlanapi.h>

#include <algorithm>
#include <array>

#include "notebook/state/machine.h"
#include "notebook/state/text.h"

namespace RandomEvents {

using namespace Notebook;

namespace {

void ChangeAdapters(const Command& command, Machine& machine, Micros now) {
    Adapter* const soft = FindAdapter(machine, command.choices[0]);
    if (command.verb == Verb::kFillAdapters) {
        for (std::uint32_t i = machine.devices.adapterCount; i < command.Number(0); ++i) {
            AddAdapter(machine, "filler", IF_TYPE_SOFTWARE_LOOPBACK)->hasAddress = 1;
        }
    } else if (command.IsOn(1) && soft == nullptr) {
        Adapter& added = *AddAdapter(machine, command.choices[0], IF_TYPE_ETHERNET_CSMACD);
        CopyText(added.description,
                 std::string_view(command.Is(0, "vpn") ? "Brook VPN Adapter" : "Virtual Switch"));
        PlugIn(machine, added, 0, now);
    } else if (!command.IsOn(1) && soft != nullptr) {
        RemoveAdapter(machine, *soft, now);
    }
}

void PostConnectionEvent(const Command& command, Machine& machine, Micros now) {
    Event event{};
    event.kind = EventKind::ConnectionConnectivity;
    event.value = command.Number(command.choices.size() - 1);
    if (command.verb == Verb::kConnectionEvent) {
        const Adapter* const adapter = FindAdapter(machine, command.choices[0]);
        if (adapter == nullptr) {
            return;
        }
        event.id = adapter->connectionId;
    }
    PostEvent(machine, event, now);
}

void PostWlanEvent(const Command& command, Machine& machine, Micros now) {
    Event event{};
    event.kind = command.choices.back() == "null" ? EventKind::WlanNullNotification : EventKind::Wlan;
    event.source = command.verb == Verb::kWifiNotify ? command.Number(0) : WLAN_NOTIFICATION_SOURCE_MSM;
    event.code = command.verb == Verb::kWifiNotify ? command.Number(1) : 7;
    PostEvent(machine, event, now);
}

void ChangeModem(const Command& command, Modem& modem) {
    constexpr std::array kRadios = {"same", "fresh", "opposite", "failing", "null"};
    if (command.verb == Verb::kModemConfirms) {
        modem.follows = 1;
        modem.confirmMs = command.Number(1);
    } else if (command.verb == Verb::kModemIsDeaf) {
        modem.follows = 0;
        modem.confirmMs = kForEver;
    } else if (command.verb == Verb::kModemRadio) {
        modem.confirmRadio =
            static_cast<ConfirmRadio>(std::ranges::find(kRadios, command.choices[1]) - kRadios.begin());
    } else if (command.verb == Verb::kModemReverts) {
        modem.revertsLeft = command.Number(1);
        modem.revertMs = command.Number(2);
    } else if (command.verb == Verb::kModemRefuses) {
        modem.refusalsLeft = command.Number(1);
    }
}

void ChangeSetting(const Command& command, Machine& machine) {
    const bool isWwan = command.verb == Verb::kFeature && command.Is(0, "wwan");
    const bool isSecond = command.verb == Verb::kSecondSetting || command.verb == Verb::kNoSecondSetting;
    Setting& setting = *PutSetting(machine, isWwan     ? L"LAN / WWAN Auto Switching"
                                            : isSecond ? L"LAN/WLAN Switching"
                                                       : L"LAN / WLAN Auto Switching");
    if (command.verb == Verb::kSettingTimesOut) {
        setting.timeoutsLeft = command.Number(0);
    } else if (command.verb == Verb::kFeature || command.verb == Verb::kSecondSetting) {
        const bool isDisabled = command.choices.back() == "off" || command.choices.back() == "*Disable";
        setting.type = VT_BSTR;
        CopyText(setting.text, std::wstring_view(isDisabled ? L"*Disabled" : L"Enabled"));
    } else if (command.verb == Verb::kNoSecondSetting || command.Is(0, "absent")) {
        setting.present = 0;
    } else {
        setting.type = VT_NULL;
    }
}

}  // namespace

void CarryToDevices(const Command& command, Machine& machine, Micros now) {
    switch (command.verb) {
        case Verb::kPlug:
            PlugIn(machine, *CablePort(machine, command.Number(0)), command.Number(1), now);
            break;
        case Verb::kPlugWithoutAddress:
            PlugIn(machine, *CablePort(machine, command.Number(0)), kForEver, now);
            break;
        case Verb::kUnplug:
            PullOut(machine, *CablePort(machine, command.Number(0)), now);
            break;
        case Verb::kSoftAdapter:
        case Verb::kFillAdapters:
            ChangeAdapters(command, machine, now);
            break;
        case Verb::kConnectionEvent:
        case Verb::kUnknownConnectionEvent:
            PostConnectionEvent(command, machine, now);
            break;
        case Verb::kWifi:
            SwitchWlanByUser(machine, command.IsOn(0), now);
            break;
        case Verb::kWifiLink:
            command.Is(0, "connect") ? static_cast<void>(ConnectWifi(machine, 0, now))
                                     : DisconnectWifi(machine, 0, now);
            break;
        case Verb::kWifiHardware:
            SwitchWlanHardware(machine, command.IsOn(0), now);
            break;
        case Verb::kWifiAvailable:
            AnnounceWlan(machine, 0, WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_network_available,
                         now);
            break;
        case Verb::kWifiNotify:
        case Verb::kWifiNotifyOdd:
            PostWlanEvent(command, machine, now);
            break;
        case Verb::kPhyRefuses:
            machine.devices.wlan[0].phys[command.Number(0)].refusalsLeft = command.Number(1);
            break;
        case Verb::kWwan:
            SwitchModemByUser(machine, 0, command.IsOn(0), now);
            break;
        case Verb::kModemConfirms:
        case Verb::kModemIsDeaf:
        case Verb::kModemRadio:
        case Verb::kModemReverts:
        case Verb::kModemRefuses:
            ChangeModem(command, machine.devices.modems[command.Number(0) - 1]);
            break;
        case Verb::kFeature:
        case Verb::kOddSetting:
        case Verb::kSecondSetting:
        case Verb::kNoSecondSetting:
        case Verb::kSettingTimesOut:
            ChangeSetting(command, machine);
            break;
        case Verb::kProvider:
            machine.devices.providerPresent = command.IsOn(0) ? 1 : 0;
            break;
        case Verb::kSuspend:
            machine.devices.asleep = 1;
            break;
        default:
            break;
    }
}

}  // namespace RandomEvents
