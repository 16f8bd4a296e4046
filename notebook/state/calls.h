#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Notebook {

/// Every platform call that the hardware answers. A rule can make each of them slow, failing or
/// held; each is counted and can be traced.
enum class Call : std::uint32_t {
    WlanOpenHandle,
    WlanCloseHandle,
    WlanEnumInterfaces,
    WlanGetInterfaceCapability,
    WlanSetInterface,
    WlanQueryInterface,
    WlanRegisterNotification,
    GetAdaptersInfo,
    GetAdaptersAddresses,
    IsNetworkAlive,
    NetworkListManagerCreate,
    NetworkListManagerGetNetworkConnections,
    NetworkListManagerGetNetworkConnection,
    NetworkConnectionsNext,
    NetworkConnectionGetNetwork,
    NetworkConnectionIsConnected,
    NetworkConnectionIsConnectedToInternet,
    NetworkConnectionGetConnectivity,
    NetworkConnectionGetConnectionId,
    NetworkConnectionGetAdapterId,
    NetworkGetName,
    FindConnectionPoint,
    Advise,
    Unadvise,
    MbnInterfaceManagerCreate,
    MbnInterfaceManagerGetInterface,
    MbnInterfaceManagerGetInterfaces,
    MbnInterfaceQueryInterface,
    MbnInterfaceGetInterfaceId,
    MbnRadioGetSoftwareRadioState,
    MbnRadioSetSoftwareRadioState,
    WbemLocatorCreate,
    WbemConnectServer,
    WbemSetBlanket,
    WbemExecQuery,
    WbemNext,
    WbemGet,
    RegisterServiceCtrlHandlerEx,
    SetServiceStatus,
    RegisterEventSource,
    ReportEvent,
    DeregisterEventSource,
    ServiceControl,
    Notification,

    // Answered in unit tests alone, where no other service manager is: no command knows their names.
    OpenSCManager,
    OpenService,
    CreateService,
    ControlService,
    QueryServiceStatus,
    QueryServiceStatusEx,
    DeleteService,
    ChangeServiceConfig2,
    Count
};

inline constexpr std::size_t kCallCount = static_cast<std::size_t>(Call::Count);
/// How many of them commands know, from the first.
inline constexpr std::size_t kCommandCallCount = static_cast<std::size_t>(Call::OpenSCManager);

/// The call's name as commands and traces write it, such as "WlanSetInterface" or
/// "INetworkConnection::GetAdapterId".
std::string_view CallName(Call call);

/// The call of that name, if commands know it. The part behind "::" is enough where no other call has it;
/// letters' case does not matter.
std::optional<Call> CallFromName(std::string_view name);

}  // namespace Notebook
