#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>
#include <sensapi.h>

namespace Notebook {

// The notebook's answers to the IP helper's and the network-alive question.
decltype(::GetAdaptersInfo) NotebookAdaptersInfo;
decltype(::GetAdaptersAddresses) NotebookAdaptersAddresses;
decltype(::IsNetworkAlive) NotebookNetworkAlive;

}  // namespace Notebook
