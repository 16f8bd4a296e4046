#pragma once

#include <windows.h>
#include <netlistmgr.h>

#include "network/wired_connections.h"

/// Writes the network picture into the log. Nothing is thrown.
namespace NLMUtils {

/// One value of NLM_CONNECTIVITY in words, a line for each group of its bits.
void PrintConnectivityState(const DWORD* connectivity);

/// Every connection with its adapter, network and connectivity; the identifiers of Ethernet
/// connections join `wiredConnections` (may be null), connected or not, each under the
/// connectivity-change lock. Without a manager there is only a line that says so. Any thread that has
/// entered COM.
void PrintNetworkConnections(INetworkListManager* networkListManager, WiredConnections* wiredConnections);

}  // namespace NLMUtils
