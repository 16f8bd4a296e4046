#pragma once

#include <windows.h>
#include <winsock2.h>
#include <iphlpapi.h>
#include <netlistmgr.h>

#include <string>

/// Whether one connection is carried by an Ethernet adapter. Callable on any thread; nothing is
/// thrown, failures are logged. No pointer but the manager's may be null. (Whether
/// any cable is in at all is answered in network/cable_check.h.)
namespace NLMUtils {

/// Looks up the adapter of a connection. False when its type could not be determined; else true,
/// with `*isEthernet` set to 1 when the adapter is of type Ethernet and otherwise left untouched.
bool IsEthernetConnection(INetworkListManager* networkListManager, const GUID& connectionId,
                          unsigned char* isEthernet);

/// Logs the adapter with the identifier `adapterId` (registry form, compared exactly) and sets
/// `*isEthernet` to 1 when its type is Ethernet.
void PrintAdapterInfo(const std::wstring& adapterId, unsigned char* isEthernet);

/// The name of an interface type of the IP helper (IANA ifType).
[[nodiscard]] std::wstring GetInterfaceTypeString(const DWORD* interfaceType);

}  // namespace NLMUtils
