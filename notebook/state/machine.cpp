#include "notebook/state/machine.h"

#include <windows.h>
#include <ipifcons.h>
#include <netlistmgr.h>
#include <wlanapi.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>

#include "notebook/state/text.h"
#include "platform/wlan_notifications.h"

namespace Notebook {

namespace {

constexpr std::uint32_t kConnectivityNoTraffic =
    NLM_CONNECTIVITY_IPV4_NOTRAFFIC | NLM_CONNECTIVITY_IPV6_NOTRAFFIC;
constexpr std::uint32_t kFirstRequest = 100;

/// Identifiers that a reader of a log can tell apart: the family in front, the number at the end.
GUID NumberedId(std::uint32_t family, std::uint32_t number) {
    return {family,
            0x5E1F,
            0x4B2C,
            {0x9A, 0xD3, 0xC0, 0xDE, 0x00, 0x00, static_cast<unsigned char>(number >> 8),
             static_cast<unsigned char>(number)}};
}

constexpr std::uint32_t kAdapterFamily = 0xADA97E50;
constexpr std::uint32_t kConnectionFamily = 0xC0AA3C70;
constexpr std::uint32_t kNetworkFamily = 0x9E7A0C80;
constexpr std::uint32_t kWlanFamily = 0xA1A0D100;
constexpr std::uint32_t kModemFamily = 0x3B0DE300;

void CancelPending(Machine& machine, PendingKind kind, std::uint32_t index) {
    for (Pending& pending : machine.devices.pending) {
        if (pending.kind == kind && pending.index == index) {
            pending.kind = PendingKind::Free;
        }
    }
}

void AnnounceConnectivity(Machine& machine, Adapter& adapter, std::uint32_t value, Micros now) {
    adapter.connectivity = value;
    PostEvent(machine,
              {.kind = EventKind::ConnectionConnectivity, .id = adapter.connectionId, .value = value}, now);
    PostEvent(machine, {.kind = EventKind::NetworkConnectivity, .id = adapter.networkId, .value = value},
              now);
    const std::uint32_t all = MachineConnectivity(machine);
    if (all != machine.devices.machineConnectivity) {
        machine.devices.machineConnectivity = all;
        PostEvent(machine, {.kind = EventKind::MachineConnectivity, .value = all}, now);
    }
}

void AnnouncePhy(Machine& machine, const WlanAdapter& adapter, std::uint32_t phy, Micros now) {
    PostEvent(machine,
              {.kind = EventKind::Wlan,
               .source = WLAN_NOTIFICATION_SOURCE_MSM,
               .code = Platform::kWlanNotificationMsmRadioStateChange,
               .id = adapter.id,
               .value = phy,
               .software = adapter.phys[phy].software,
               .hardware = adapter.phys[phy].hardware},
              now);
}

/// What a WLAN adapter does once its radio has changed: off ends the connection, on makes it ready.
void AfterWlanChange(Machine& machine, std::uint32_t index, Micros now) {
    WlanAdapter& adapter = machine.devices.wlan[index];
    const bool anyOn = std::any_of(adapter.phys, adapter.phys + adapter.phyCount, [](const Phy& phy) {
        return phy.software == kRadioOn && phy.hardware == kRadioOn;
    });
    if (!anyOn && adapter.phyCount != 0) {
        DisconnectWifi(machine, index, now);
        adapter.state = wlan_interface_state_not_ready;
        return;
    }
    if (adapter.state == wlan_interface_state_not_ready) {
        adapter.state = wlan_interface_state_disconnected;
    }
}

Adapter* WifiAdapter(Machine& machine, std::uint32_t index) {
    return FindAdapter(machine, "wifi" + std::to_string(index + 1));
}

void SetWlanRadios(Machine& machine, bool on, bool restore, Micros now) {
    for (WlanAdapter& adapter : Present(machine.devices.wlan)) {
        // All change before any is announced: who hears of one finds the others changed too.
        std::uint64_t changed = 0;
        for (std::uint32_t phy = 0; phy < adapter.phyCount; ++phy) {
            Phy& radio = adapter.phys[phy];
            const std::uint32_t wanted = restore ? radio.beforeAirplane : on ? kRadioOn : kRadioOff;
            if (restore && radio.software == kRadioOn) {
                continue;  // switched on by someone while airplane mode was set
            }
            if (radio.software != wanted) {
                radio.software = wanted;
                changed |= 1ULL << phy;
            }
        }
        for (std::uint32_t phy = 0; phy < adapter.phyCount; ++phy) {
            if ((changed & (1ULL << phy)) != 0) {
                AnnouncePhy(machine, adapter, phy, now);
            }
        }
        if (changed != 0) {
            AfterWlanChange(machine, IndexOf(machine.devices.wlan, adapter), now);
        }
    }
}

/// The radio changes, unless it is in that state.
void ChangeModem(Machine& machine, std::uint32_t index, std::uint32_t state, Micros now) {
    Modem& modem = machine.devices.modems[index];
    if (modem.present != 0 && modem.software != state) {
        modem.software = state;
        PostEvent(machine, {.kind = EventKind::ModemStateChange, .value = index}, now);
    }
}

void AnnounceModemComplete(Machine& machine, std::uint32_t index, std::uint32_t request, Micros now) {
    const Modem& modem = machine.devices.modems[index];
    PostEvent(machine,
              {.kind = EventKind::ModemSetComplete,
               .value = index,
               .software = modem.software,
               .request = modem.wrongRequest != 0 ? request + 1000 : request,
               .status = modem.confirmStatus,
               .radio = modem.confirmRadio},
              now);
}

void ConfirmModem(Machine& machine, const Pending& pending, Micros now) {
    Modem& modem = machine.devices.modems[pending.index];
    const std::uint32_t before = modem.software;
    if (modem.follows != 0) {
        ChangeModem(machine, pending.index, pending.value, now);
    }
    AnnounceModemComplete(machine, pending.index, pending.request, now);
    if (before != modem.software && TakeOne(modem.revertsLeft)) {
        Schedule(machine, PendingKind::ModemReverts, pending.index, before, 0,
                 now + Micros{modem.revertMs} * kMicrosPerMilli);
    }
}

void Perform(Machine& machine, const Pending& pending, Micros now) {
    switch (pending.kind) {
        case PendingKind::AddressArrives:
            GiveAddress(machine, machine.devices.adapters[pending.index], now);
            break;
        case PendingKind::ModemConfirms:
            ConfirmModem(machine, pending, now);
            break;
        case PendingKind::ModemReverts:
            ChangeModem(machine, pending.index, pending.value, now);
            break;
        case PendingKind::Free:
            break;
    }
}

/// What is due first, and came first; null when nothing is pending.
Pending* FirstPending(Machine& machine) {
    const auto isSooner = [](const Pending& left, const Pending& right) {
        const auto rank = [](const Pending& pending) {
            return std::tuple(pending.kind == PendingKind::Free, pending.due, pending.order);
        };
        return rank(left) < rank(right);
    };
    Pending& first = *std::ranges::min_element(machine.devices.pending, isSooner);
    return first.kind == PendingKind::Free ? nullptr : &first;
}

void MakeWlanAdapter(Machine& machine, std::uint32_t index, std::uint32_t phys) {
    WlanAdapter& wlan = machine.devices.wlan[index];
    wlan.present = 1;
    wlan.id = NumberedId(kWlanFamily, index + 1);
    CopyText(wlan.description, L"Brook Wireless Adapter " + std::to_wstring(index + 1));
    wlan.state = wlan_interface_state_disconnected;
    wlan.phyCount = std::min<std::uint32_t>(phys, kMaxPhys);
    for (Phy& phy : wlan.phys) {
        phy.software = kRadioOn;
        phy.hardware = kRadioOn;
        phy.refuseError = ERROR_GEN_FAILURE;
    }
    if (Adapter* const adapter = AddAdapter(machine, "wifi" + std::to_string(index + 1), IF_TYPE_IEEE80211)) {
        adapter->id = wlan.id;
        CopyText(adapter->description, "Brook Wireless Adapter " + std::to_string(index + 1));
        CopyText(adapter->friendlyName, L"Wi-Fi " + std::to_wstring(index + 1));
        CopyText(adapter->address, "192.168.40." + std::to_string(20 + index));
        CopyText(adapter->networkName, std::wstring_view(L"Meadow"));
    }
}

void MakeModem(Machine& machine, std::uint32_t index) {
    Modem& modem = machine.devices.modems[index];
    modem.present = 1;
    modem.id = NumberedId(kModemFamily, index + 1);
    modem.software = 1;
    modem.follows = 1;
    modem.refuseError = static_cast<std::uint32_t>(E_FAIL);
}

void EnableFeature(Machine& machine, const wchar_t* name) {
    Setting* const setting = PutSetting(machine, name);
    setting->type = VT_BSTR;
    CopyText(setting->text, std::wstring_view(L"Enabled"));
}

}  // namespace

void ResetMachine(Machine& machine, const Shape& shape, Micros now) {
    const std::uint32_t connectivity = machine.devices.machineConnectivity;
    std::memset(&machine.devices, 0, sizeof(machine.devices));
    std::memset(machine.rules, 0, sizeof(machine.rules));
    std::memset(machine.counts, 0, sizeof(machine.counts));
    machine.heldCount = 0;
    machine.eventLogCount = 0;
    machine.devices.wlanServiceRuns = 1;
    machine.devices.wwanServiceRuns = 1;
    machine.devices.providerPresent = 1;
    machine.devices.nextRequest = kFirstRequest;
    for (std::uint32_t number = 1; number <= shape.cables; ++number) {
        CablePort(machine, number);
    }
    for (std::uint32_t i = 0; i < std::min<std::uint32_t>(shape.wlanAdapters, kMaxWlanAdapters); ++i) {
        MakeWlanAdapter(machine, i, shape.phys);
    }
    for (std::uint32_t i = 0; i < std::min<std::uint32_t>(shape.modems, kMaxModems); ++i) {
        MakeModem(machine, i);
    }
    EnableFeature(machine, L"LAN / WLAN Auto Switching");
    EnableFeature(machine, L"LAN / WWAN Auto Switching");
    if (connectivity != 0) {
        PostEvent(machine, {.kind = EventKind::MachineConnectivity}, now);
    }
}

void PostEvent(Machine& machine, Event event, Micros now) {
    event.at = now;
    if (machine.devices.asleep != 0) {
        if (machine.heldCount < kMaxHeldEvents) {
            machine.held[machine.heldCount++] = event;
        }
        return;
    }
    machine.events[machine.eventCount % kEventCapacity] = event;
    ++machine.eventCount;
}

void ReleaseHeldEvents(Machine& machine, Micros now) {
    const std::uint32_t count = machine.heldCount;
    machine.heldCount = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        PostEvent(machine, machine.held[i], now);
    }
}

void Schedule(Machine& machine, PendingKind kind, std::uint32_t index, std::uint32_t value,
              std::uint32_t request, Micros due) {
    for (Pending& pending : machine.devices.pending) {
        if (pending.kind == PendingKind::Free) {
            pending = {kind, index, value, request, due, machine.devices.nextPendingOrder++};
            ++machine.schedule;
            return;
        }
    }
}

void ApplyDue(Machine& machine, Micros now) {
    for (Pending* first = FirstPending(machine); first != nullptr && first->due <= now;
         first = FirstPending(machine)) {
        const Pending pending = *first;
        first->kind = PendingKind::Free;
        Perform(machine, pending, now);
    }
}

Micros NextDue(const Machine& machine) {
    Micros next = kNever;
    for (const Pending& pending : machine.devices.pending) {
        if (pending.kind != PendingKind::Free) {
            next = std::min(next, pending.due);
        }
    }
    return next;
}

Adapter* FindAdapter(Machine& machine, std::string_view name) {
    for (Adapter& adapter : Adapters(machine.devices)) {
        if (name == adapter.name) {
            return &adapter;
        }
    }
    return nullptr;
}

Adapter* FindAdapterByConnection(Machine& machine, const GUID& connectionId) {
    for (Adapter& adapter : Adapters(machine.devices)) {
        if (IsEqualGUID(adapter.connectionId, connectionId)) {
            return &adapter;
        }
    }
    return nullptr;
}

Adapter* CablePort(Machine& machine, std::uint32_t number) {
    const std::string name = "cable" + std::to_string(number);
    if (Adapter* const known = FindAdapter(machine, name)) {
        return known;
    }
    Adapter* const port = AddAdapter(machine, name, IF_TYPE_ETHERNET_CSMACD);
    if (port != nullptr) {
        CopyText(port->description, "Brook Gigabit Ethernet Controller " + std::to_string(number));
        CopyText(port->friendlyName, L"Ethernet " + std::to_wstring(number));
        CopyText(port->address, "192.168.1." + std::to_string(19 + number % 200));
        CopyText(port->networkName, std::wstring_view(L"Office"));
    }
    return port;
}

Adapter* AddAdapter(Machine& machine, std::string_view name, std::uint32_t type) {
    for (std::uint32_t i = 0; i < kMaxAdapters; ++i) {
        Adapter& adapter = machine.devices.adapters[i];
        if (adapter.present != 0) {
            continue;
        }
        adapter = {};
        adapter.present = 1;
        adapter.type = type;
        CopyText(adapter.name, name);
        adapter.id = NumberedId(kAdapterFamily, i + 1);
        adapter.connectionId = NumberedId(kConnectionFamily, i + 1);
        adapter.networkId = NumberedId(kNetworkFamily, i + 1);
        adapter.connectivityUp = NLM_CONNECTIVITY_IPV4_INTERNET;
        CopyText(adapter.description, "Brook Adapter " + std::to_string(i + 1));
        CopyText(adapter.friendlyName, L"Adapter " + std::to_wstring(i + 1));
        CopyText(adapter.networkName, L"Network " + std::to_wstring(i + 1));
        CopyText(adapter.address, "10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1));
        machine.devices.adapterCount = std::max(machine.devices.adapterCount, i + 1);
        return &adapter;
    }
    return nullptr;
}

void RemoveAdapter(Machine& machine, Adapter& adapter, Micros now) {
    PullOut(machine, adapter, now);
    adapter.present = 0;
    std::uint32_t& count = machine.devices.adapterCount;
    while (count != 0 && machine.devices.adapters[count - 1].present == 0) {
        --count;
    }
}

void PlugIn(Machine& machine, Adapter& adapter, std::uint32_t addressMs, Micros now) {
    const std::uint32_t index = IndexOf(machine.devices.adapters, adapter);
    CancelPending(machine, PendingKind::AddressArrives, index);
    adapter.plugged = 1;
    if (addressMs == 0) {
        adapter.hasAddress = 1;
        AnnounceConnectivity(machine, adapter, adapter.connectivityUp, now);
        return;
    }
    adapter.hasAddress = 0;
    AnnounceConnectivity(machine, adapter, kConnectivityNoTraffic, now);
    if (addressMs != kForEver) {
        Schedule(machine, PendingKind::AddressArrives, index, 0, 0,
                 now + Micros{addressMs} * kMicrosPerMilli);
    }
}

void PullOut(Machine& machine, Adapter& adapter, Micros now) {
    CancelPending(machine, PendingKind::AddressArrives, IndexOf(machine.devices.adapters, adapter));
    adapter.plugged = 0;
    adapter.hasAddress = 0;
    if (adapter.connectivity != 0) {
        AnnounceConnectivity(machine, adapter, 0, now);
    }
}

void GiveAddress(Machine& machine, Adapter& adapter, Micros now) {
    CancelPending(machine, PendingKind::AddressArrives, IndexOf(machine.devices.adapters, adapter));
    if (adapter.present == 0 || adapter.plugged == 0 || adapter.hasAddress != 0) {
        return;
    }
    adapter.hasAddress = 1;
    AnnounceConnectivity(machine, adapter, adapter.connectivityUp, now);
}

std::uint32_t MachineConnectivity(const Machine& machine) {
    std::uint32_t all = 0;
    for (const Adapter& adapter : Adapters(machine.devices)) {
        all |= adapter.connectivity;
    }
    return all;
}

DWORD SetPhySoftware(Machine& machine, std::uint32_t adapter, std::uint32_t phy, std::uint32_t state,
                     Micros now) {
    WlanAdapter& wlan = machine.devices.wlan[adapter];
    if (phy >= wlan.phyCount || (state != kRadioOn && state != kRadioOff)) {
        return ERROR_INVALID_PARAMETER;
    }
    Phy& radio = wlan.phys[phy];
    ++radio.sets;
    if (TakeOne(radio.refusalsLeft)) {
        return radio.refuseError;
    }
    if (radio.software != state) {
        radio.software = state;
        AnnouncePhy(machine, wlan, phy, now);
        AfterWlanChange(machine, adapter, now);
    }
    return ERROR_SUCCESS;
}

void SwitchWlanByUser(Machine& machine, bool on, Micros now) {
    SetWlanRadios(machine, on, false, now);
}

void SwitchWlanHardware(Machine& machine, bool on, Micros now) {
    for (WlanAdapter& adapter : Present(machine.devices.wlan)) {
        for (std::uint32_t phy = 0; phy < adapter.phyCount; ++phy) {
            adapter.phys[phy].hardware = on ? kRadioOn : kRadioOff;
            AnnouncePhy(machine, adapter, phy, now);
        }
        AfterWlanChange(machine, IndexOf(machine.devices.wlan, adapter), now);
    }
}

bool ConnectWifi(Machine& machine, std::uint32_t adapter, Micros now) {
    WlanAdapter& wlan = machine.devices.wlan[adapter];
    Adapter* const link = WifiAdapter(machine, adapter);
    if (wlan.present == 0 || link == nullptr || wlan.state == wlan_interface_state_not_ready) {
        return false;
    }
    if (wlan.state != wlan_interface_state_connected) {
        wlan.state = wlan_interface_state_connected;
        AnnounceWlan(machine, adapter, WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_connection_start,
                     now);
        AnnounceWlan(machine, adapter, WLAN_NOTIFICATION_SOURCE_ACM,
                     wlan_notification_acm_connection_complete, now);
        PlugIn(machine, *link, 0, now);
    }
    return true;
}

void DisconnectWifi(Machine& machine, std::uint32_t adapter, Micros now) {
    WlanAdapter& wlan = machine.devices.wlan[adapter];
    Adapter* const link = WifiAdapter(machine, adapter);
    if (wlan.state != wlan_interface_state_connected || link == nullptr) {
        return;
    }
    wlan.state = wlan_interface_state_disconnected;
    AnnounceWlan(machine, adapter, WLAN_NOTIFICATION_SOURCE_ACM, wlan_notification_acm_disconnected, now);
    PullOut(machine, *link, now);
}

void AnnounceWlan(Machine& machine, std::uint32_t adapter, std::uint32_t source, std::uint32_t code,
                  Micros now) {
    PostEvent(machine,
              {.kind = EventKind::Wlan,
               .source = source,
               .code = code,
               .id = machine.devices.wlan[adapter].id,
               .withoutData = 1},
              now);
}

bool AllPhysAre(const WlanAdapter& adapter, std::uint32_t state) {
    return std::all_of(adapter.phys, adapter.phys + adapter.phyCount,
                       [state](const Phy& phy) { return phy.software == state; });
}

HRESULT SetModemSoftware(Machine& machine, std::uint32_t modem, std::uint32_t state, std::uint32_t& request,
                         Micros now) {
    Modem& device = machine.devices.modems[modem];
    ++device.sets;
    if (TakeOne(device.refusalsLeft)) {
        return static_cast<HRESULT>(device.refuseError);
    }
    request = machine.devices.nextRequest++;
    if (device.confirmMs == kForEver) {
        if (device.follows != 0) {
            ChangeModem(machine, modem, state, now);
        }
        return S_OK;
    }
    Schedule(machine, PendingKind::ModemConfirms, modem, state, request,
             now + Micros{device.confirmMs} * kMicrosPerMilli);
    ApplyDue(machine, now);
    return S_OK;
}

void SwitchModemByUser(Machine& machine, std::uint32_t modem, bool on, Micros now) {
    if (machine.devices.modems[modem].present != 0) {
        ChangeModem(machine, modem, on ? 1 : 0, now);
        // Every subscriber hears of the end of every program's request.
        AnnounceModemComplete(machine, modem, machine.devices.nextRequest++, now);
    }
}

void FollowAirplaneMode(Machine& machine, bool on, Micros now) {
    if (on) {
        for (WlanAdapter& adapter : machine.devices.wlan) {
            for (Phy& phy : adapter.phys) {
                phy.beforeAirplane = phy.software;
            }
        }
        for (Modem& modem : machine.devices.modems) {
            modem.beforeAirplane = modem.software;
        }
    }
    SetWlanRadios(machine, false, !on, now);
    for (const Modem& modem : Present(machine.devices.modems)) {
        const bool wanted = !on && (modem.beforeAirplane != 0 || modem.software != 0);
        if ((modem.software != 0) != wanted) {
            SwitchModemByUser(machine, IndexOf(machine.devices.modems, modem), wanted, now);
        }
    }
}

Setting* FindSetting(Machine& machine, std::wstring_view name) {
    for (Setting& setting : Present(machine.devices.settings)) {
        if (name == setting.name) {
            return &setting;
        }
    }
    return nullptr;
}

Setting* PutSetting(Machine& machine, std::wstring_view name) {
    if (Setting* const known = FindSetting(machine, name)) {
        return known;
    }
    for (Setting& setting : machine.devices.settings) {
        if (setting.present == 0) {
            setting = {};
            setting.present = 1;
            CopyText(setting.name, name);
            return &setting;
        }
    }
    return nullptr;
}

}  // namespace Notebook
