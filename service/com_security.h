#pragma once

#include <windows.h>

/// Sets the process-wide COM security, so that the event sinks accept calls from the system,
/// administrators and users. Works once a process; later calls do nothing. Call it before any
/// other thread of the process uses COM. Returns the failing call's HRESULT, or S_OK; every
/// failure is logged and none is fatal.
HRESULT InitializeSecurity();
