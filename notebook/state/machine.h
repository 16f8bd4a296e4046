#pragma once

#include <cstdint>
#include <ranges>
#include <span>
#include <string_view>
#include <utility>

#include "notebook/state/layout.h"

// How the devices behave: each operation changes the state and posts what Windows would announce.
// The caller holds the state's lock. Nothing here calls the system.

namespace Notebook {

/// Those of a row of devices that are there.
template <class Row>
auto Present(Row&& devices) {
    return std::views::filter(std::forward<Row>(devices),
                              [](const auto& device) { return device.present != 0; });
}
/// The same of all adapters, quick where there are few.
template <class AllDevices>
auto Adapters(AllDevices& devices) {
    return Present(std::span(devices.adapters, devices.adapterCount));
}
/// The place of a device in its row.
template <class Device, std::size_t kCount>
std::uint32_t IndexOf(const Device (&devices)[kCount], const Device& device) {
    return static_cast<std::uint32_t>(&device - devices);
}

/// What a fresh notebook is made of.
struct Shape {
    std::uint32_t wlanAdapters = 1;
    std::uint32_t phys = 2;
    std::uint32_t cables = 1;
    std::uint32_t modems = 0;
};

/// A fresh notebook: every radio on, no cable in, both features enabled in the BIOS, no rule for
/// any call, all counters zero. Who listens and what was announced so far stays.
void ResetMachine(Machine& machine, const Shape& shape, Micros now);

/// Tells those who subscribed; held back while the notebook sleeps.
void PostEvent(Machine& machine, Event event, Micros now);

/// Posts what was held back while the notebook slept.
void ReleaseHeldEvents(Machine& machine, Micros now);

// --- time ---

void Schedule(Machine& machine, PendingKind kind, std::uint32_t index, std::uint32_t value,
              std::uint32_t request, Micros due);

/// Does everything whose time has come, in its order.
void ApplyDue(Machine& machine, Micros now);

/// When the next thing happens by itself; `kNever` when nothing will.
Micros NextDue(const Machine& machine);

// --- cables and other adapters ---

Adapter* FindAdapter(Machine& machine, std::string_view name);
Adapter* FindAdapterByConnection(Machine& machine, const GUID& connectionId);
/// The port of a cable (numbered from 1), made when it is new. Null when no adapter is free.
Adapter* CablePort(Machine& machine, std::uint32_t number);
/// A new adapter with names and identifiers of its own; null when none is free.
Adapter* AddAdapter(Machine& machine, std::string_view name, std::uint32_t type);
void RemoveAdapter(Machine& machine, Adapter& adapter, Micros now);

/// The link comes up. The address is there after `addressMs`, at once for 0, never for `kForEver`.
void PlugIn(Machine& machine, Adapter& adapter, std::uint32_t addressMs, Micros now);
void PullOut(Machine& machine, Adapter& adapter, Micros now);
void GiveAddress(Machine& machine, Adapter& adapter, Micros now);
/// What the whole machine is connected to (NLM_CONNECTIVITY).
std::uint32_t MachineConnectivity(const Machine& machine);

// --- WLAN ---

/// A program sets one PHY. Returns the Win32 error with which the PHY refuses, or 0.
DWORD SetPhySoftware(Machine& machine, std::uint32_t adapter, std::uint32_t phy, std::uint32_t state,
                     Micros now);
/// The user's own switch, or Windows' for airplane mode: every PHY of every adapter.
void SwitchWlanByUser(Machine& machine, bool on, Micros now);
void SwitchWlanHardware(Machine& machine, bool on, Micros now);
/// Joins a wireless network; false while the radio is off.
bool ConnectWifi(Machine& machine, std::uint32_t adapter, Micros now);
void DisconnectWifi(Machine& machine, std::uint32_t adapter, Micros now);
void AnnounceWlan(Machine& machine, std::uint32_t adapter, std::uint32_t source, std::uint32_t code,
                  Micros now);
[[nodiscard]] bool AllPhysAre(const WlanAdapter& adapter, std::uint32_t state);

// --- mobile broadband ---

/// A program sets a radio. Returns the HRESULT with which the modem refuses, or S_OK and the
/// number of the request.
HRESULT SetModemSoftware(Machine& machine, std::uint32_t modem, std::uint32_t state, std::uint32_t& request,
                         Micros now);
/// Another program of the user's: done at once.
void SwitchModemByUser(Machine& machine, std::uint32_t modem, bool on, Micros now);

// --- the machine ---

/// What Windows does with the radios when airplane mode changes: off and remembered, or as before.
void FollowAirplaneMode(Machine& machine, bool on, Micros now);

Setting* FindSetting(Machine& machine, std::wstring_view name);
/// The setting of that name, made when it is new. Null when there is no room.
Setting* PutSetting(Machine& machine, std::wstring_view name);

}  // namespace Notebook
