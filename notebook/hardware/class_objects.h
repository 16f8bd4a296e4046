#pragma once

#include <windows.h>
#include <unknwn.h>

#include <cstdint>

#include "notebook/state/layout.h"
#include "platform/mbn_api.h"

// The COM classes that the notebook serves. Each function gives a new object (or the one there is)
// with one reference for the caller.

namespace Notebook {

IUnknown* MakeNetworkListManager();
IUnknown* MakeMbnInterfaceManager();
IUnknown* MakeWbemLocator();

/// The radio that an event about the modem carries, with a reference; null where it carries none.
IMbnRadio* EventRadio(std::uint32_t modem, ConfirmRadio kind);

/// The class object of one of these; CLASS_E_CLASSNOTAVAILABLE for any other class.
HRESULT GetDeviceClass(REFCLSID clsid, REFIID iid, void** object);

}  // namespace Notebook
