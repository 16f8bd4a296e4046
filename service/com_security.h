#pragma once

#include <windows.h>

/// Sets the process-wide COM security, so that the event sinks accept calls from the system,
/// administrators and users, and holds the process's multithreaded apartment to its end, so that they
/// get any (CoIncrementMTAUsage). Once it has worked, later calls leave COM alone. Call it before any
/// other thread of the process uses COM. Returns the failing call's HRESULT, or S_OK, and
/// logs it; none is fatal. What cannot be put into the descriptor is left out of it.
HRESULT InitializeSecurity();
