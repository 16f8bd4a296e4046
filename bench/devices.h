#pragma once

#include <windows.h>
#include <netlistmgr.h>

#include <cstddef>
#include <functional>
#include <vector>

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

/// One call into the system that the service makes while it handles a plug.
enum class Call {
    kTextOfGuid,
    kFreeText,
    kGetNetworkConnection,
    kGetAdapterId,
    kAdaptersAddresses,
    kAdaptersInfo,
    kHeapAllocate,
    kHeapFree,
    kOpenWlan,
    kEnumerateWlan,
    kQueryWlan,
    kWlanCapability,
    kFreeWlan,
    kCloseWlan,
    kSetWlan,
    kOpenKey,
    kQueryValue,
    kCloseKey,
    // The log's own: the calls of one line, and the start of its writer.
    kEnterQueue,
    kLeaveQueue,
    kStartWriter,
};
struct Step {
    Call call;
    std::size_t bytes = 0;  ///< of memory that is asked for
};
using Steps = std::vector<Step>;

/// The calls that this thread makes while `what` runs, up to the last switch of a PHY.
[[nodiscard]] Steps Record(const std::function<void()>& what);

/// The same without the log's.
[[nodiscard]] Steps WithoutLog(const Steps& steps);

/// Makes the same calls in the same order, and nothing else. A writer that is started writes the
/// lines of a plug to a file of its own, as the log's does.
void Replay(const Steps& steps);

}  // namespace Bench::Devices
