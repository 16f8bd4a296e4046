#pragma once

#include <windows.h>

struct ServiceState;

/// Queues a routine to the system thread pool; `flags` are WT_EXECUTE*. Throws the Win32 error as
/// `DWORD` when it cannot be queued. What the routine throws is not caught.
void QueueWorkItem(ServiceState& service, void (*routine)(ServiceState&), ULONG flags);
