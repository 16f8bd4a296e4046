#pragma once

#include <windows.h>
#include <unknwn.h>

// The COM classes that the notebook serves. Each function gives a new object (or the one there is)
// with one reference for the caller.

namespace Notebook {

IUnknown* MakeNetworkListManager();
IUnknown* MakeMbnInterfaceManager();
IUnknown* MakeWbemLocator();

}  // namespace Notebook
