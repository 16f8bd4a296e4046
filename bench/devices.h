#pragma once

#include <windows.h>
#include <netlistmgr.h>

#include <atomic>
#include <string>

/// A notebook whose devices answer at once: one WLAN interface, one Ethernet adapter, one network
/// connection over it. They stand in for this process's imports; everything else (registry, heap,
/// COM's own functions) is the system's.
namespace Bench::Devices {

/// Puts the stand-ins into the import table, for the life of the process. Pauses become no-ops.
void Install();

/// The cable, as the adapter list shows it.
void PlugIn();
void PullOut();

void SetWifi(bool on);
[[nodiscard]] bool IsWifiOn();

/// The connection over the cable, and the manager that knows it.
[[nodiscard]] const GUID& ConnectionId();
[[nodiscard]] INetworkListManager& Manager();

/// The time (QueryPerformanceCounter) of the last switch of a PHY.
[[nodiscard]] long long LastSwitch();

/// The platform calls since `StartTrace`, a word each.
void StartTrace();
[[nodiscard]] std::string EndTrace();

/// The calls that one plug makes up to its last switch of a PHY, bare and in the same order.
void PlugBare();

}  // namespace Bench::Devices
