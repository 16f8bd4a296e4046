#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Notebook {

/// The platform calls that the hardware answers, each with its name as commands and traces write it.
#define NOTEBOOK_COMMAND_CALLS(CALL)                                                            \
    CALL(WlanOpenHandle, "WlanOpenHandle")                                                      \
    CALL(WlanCloseHandle, "WlanCloseHandle")                                                    \
    CALL(WlanEnumInterfaces, "WlanEnumInterfaces")                                              \
    CALL(WlanGetInterfaceCapability, "WlanGetInterfaceCapability")                              \
    CALL(WlanSetInterface, "WlanSetInterface")                                                  \
    CALL(WlanQueryInterface, "WlanQueryInterface")                                              \
    CALL(WlanRegisterNotification, "WlanRegisterNotification")                                  \
    CALL(GetAdaptersInfo, "GetAdaptersInfo")                                                    \
    CALL(GetAdaptersAddresses, "GetAdaptersAddresses")                                          \
    CALL(IsNetworkAlive, "IsNetworkAlive")                                                      \
    CALL(NetworkListManagerCreate, "NetworkListManager::Create")                                \
    CALL(NetworkListManagerGetNetworkConnections, "INetworkListManager::GetNetworkConnections") \
    CALL(NetworkListManagerGetNetworkConnection, "INetworkListManager::GetNetworkConnection")   \
    CALL(NetworkConnectionsNext, "IEnumNetworkConnections::Next")                               \
    CALL(NetworkConnectionGetNetwork, "INetworkConnection::GetNetwork")                         \
    CALL(NetworkConnectionIsConnected, "INetworkConnection::IsConnected")                       \
    CALL(NetworkConnectionIsConnectedToInternet, "INetworkConnection::IsConnectedToInternet")   \
    CALL(NetworkConnectionGetConnectivity, "INetworkConnection::GetConnectivity")               \
    CALL(NetworkConnectionGetConnectionId, "INetworkConnection::GetConnectionId")               \
    CALL(NetworkConnectionGetAdapterId, "INetworkConnection::GetAdapterId")                     \
    CALL(NetworkGetName, "INetwork::GetName")                                                   \
    CALL(FindConnectionPoint, "FindConnectionPoint")                                            \
    CALL(Advise, "Advise")                                                                      \
    CALL(Unadvise, "Unadvise")                                                                  \
    CALL(MbnInterfaceManagerCreate, "MbnInterfaceManager::Create")                              \
    CALL(MbnInterfaceManagerGetInterface, "IMbnInterfaceManager::GetInterface")                 \
    CALL(MbnInterfaceManagerGetInterfaces, "IMbnInterfaceManager::GetInterfaces")               \
    CALL(MbnInterfaceQueryInterface, "IMbnInterface::QueryInterface")                           \
    CALL(MbnInterfaceGetInterfaceId, "IMbnInterface::get_InterfaceID")                          \
    CALL(MbnRadioGetSoftwareRadioState, "IMbnRadio::get_SoftwareRadioState")                    \
    CALL(MbnRadioSetSoftwareRadioState, "IMbnRadio::SetSoftwareRadioState")                     \
    CALL(WbemLocatorCreate, "WbemLocator::Create")                                              \
    CALL(WbemConnectServer, "IWbemLocator::ConnectServer")                                      \
    CALL(WbemSetBlanket, "IClientSecurity::SetBlanket")                                         \
    CALL(WbemExecQuery, "IWbemServices::ExecQuery")                                             \
    CALL(WbemNext, "IEnumWbemClassObject::Next")                                                \
    CALL(WbemGet, "IWbemClassObject::Get")                                                      \
    CALL(RegisterServiceCtrlHandlerEx, "RegisterServiceCtrlHandlerExW")                         \
    CALL(SetServiceStatus, "SetServiceStatus")                                                  \
    CALL(RegisterEventSource, "RegisterEventSourceW")                                           \
    CALL(ReportEvent, "ReportEventW")                                                           \
    CALL(DeregisterEventSource, "DeregisterEventSource")                                        \
    CALL(ServiceControl, "ServiceControl")                                                      \
    CALL(Notification, "Notification")

/// Those that are answered in unit tests alone, where no other service manager is: no command knows their
/// names.
#define NOTEBOOK_UNIT_CALLS(CALL)                      \
    CALL(OpenSCManager, "OpenSCManagerW")              \
    CALL(OpenService, "OpenServiceW")                  \
    CALL(CreateService, "CreateServiceW")              \
    CALL(ControlService, "ControlService")             \
    CALL(QueryServiceStatus, "QueryServiceStatus")     \
    CALL(QueryServiceStatusEx, "QueryServiceStatusEx") \
    CALL(DeleteService, "DeleteService")               \
    CALL(ChangeServiceConfig2, "ChangeServiceConfig2W")

#define NOTEBOOK_CALL(id, name) id,
/// Every platform call. A rule can make each of them slow, failing or held; each is counted and can be
/// traced.
enum class Call : std::uint32_t {
    NOTEBOOK_COMMAND_CALLS(NOTEBOOK_CALL) NOTEBOOK_UNIT_CALLS(NOTEBOOK_CALL) Count
};
#undef NOTEBOOK_CALL

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
