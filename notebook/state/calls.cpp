#include "notebook/state/calls.h"

#include <algorithm>
#include <array>

namespace Notebook {

namespace {

constexpr std::array<std::string_view, kCallCount> kNames = {
    "WlanOpenHandle",
    "WlanCloseHandle",
    "WlanEnumInterfaces",
    "WlanGetInterfaceCapability",
    "WlanSetInterface",
    "WlanQueryInterface",
    "WlanRegisterNotification",
    "GetAdaptersInfo",
    "GetAdaptersAddresses",
    "IsNetworkAlive",
    "NetworkListManager::Create",
    "INetworkListManager::GetNetworkConnections",
    "INetworkListManager::GetNetworkConnection",
    "IEnumNetworkConnections::Next",
    "INetworkConnection::GetNetwork",
    "INetworkConnection::IsConnected",
    "INetworkConnection::IsConnectedToInternet",
    "INetworkConnection::GetConnectivity",
    "INetworkConnection::GetConnectionId",
    "INetworkConnection::GetAdapterId",
    "INetwork::GetName",
    "FindConnectionPoint",
    "Advise",
    "Unadvise",
    "MbnInterfaceManager::Create",
    "IMbnInterfaceManager::GetInterface",
    "IMbnInterfaceManager::GetInterfaces",
    "IMbnInterface::QueryInterface",
    "IMbnInterface::get_InterfaceID",
    "IMbnRadio::get_SoftwareRadioState",
    "IMbnRadio::SetSoftwareRadioState",
    "WbemLocator::Create",
    "IWbemLocator::ConnectServer",
    "IClientSecurity::SetBlanket",
    "IWbemServices::ExecQuery",
    "IEnumWbemClassObject::Next",
    "IWbemClassObject::Get",
    "RegisterServiceCtrlHandlerExW",
    "SetServiceStatus",
    "RegisterEventSourceW",
    "ReportEventW",
    "DeregisterEventSource",
    "ServiceControl",
    "Notification",
    "OpenSCManagerW",
    "OpenServiceW",
    "CreateServiceW",
    "ControlService",
    "QueryServiceStatus",
    "QueryServiceStatusEx",
    "DeleteService",
    "ChangeServiceConfig2W",
};

bool SameText(std::string_view left, std::string_view right) {
    const auto lower = [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

std::string_view Method(std::string_view name) {
    const std::size_t colons = name.find("::");
    return colons == std::string_view::npos ? name : name.substr(colons + 2);
}

}  // namespace

std::string_view CallName(Call call) {
    return kNames.at(static_cast<std::size_t>(call));
}

std::optional<Call> CallFromName(std::string_view name) {
    std::optional<Call> found;
    for (std::size_t i = 0; i < kCommandCallCount; ++i) {
        if (SameText(kNames[i], name)) {
            return static_cast<Call>(i);
        }
        if (SameText(Method(kNames[i]), name)) {
            if (found) {
                return std::nullopt;
            }
            found = static_cast<Call>(i);
        }
    }
    return found;
}

}  // namespace Notebook
