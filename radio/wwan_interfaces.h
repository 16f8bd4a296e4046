#pragma once

#include <windows.h>
#include <oleauto.h>

#include "platform/handles.h"

namespace NLMUtils {

/// Reads the identifiers of a list of modems (mobile-broadband adapters). `interfaces` is a vector of
/// COM references; `*count` becomes the number of its elements, however its bounds lie, and
/// `*identifiers` holds one GUID for each. Stops at the first failure and returns it; both outputs
/// are empty then. E_POINTER when an argument is null. Exceptions travel to the caller.
HRESULT CopyArrayOfInterfaces(SAFEARRAY* interfaces, ULONG* count,
                              Platform::UniqueProcessHeap<GUID>* identifiers);

}  // namespace NLMUtils

namespace ServiceUtils {

/// Looks for the modem (the WWAN adapter) and records its interface identifier; the last one listed wins.
/// Needs the interface manager published. True when one was found. Nothing is thrown, failures are logged.
bool EnumerateWwanInterfaces();

}  // namespace ServiceUtils
