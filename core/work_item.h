#pragma once

#include <windows.h>

class CMainService;

/// A member routine of the service that is to run on the system thread pool.
struct WorkItem {
    void (*routine)(CMainService& service);
    CMainService* service;
};

/// Queues a routine to the system thread pool; `flags` are WT_EXECUTE*. Throws the Win32 error as
/// `DWORD` when it cannot be queued. What the routine throws is not caught.
void QueueWorkItem(CMainService& service, void (*routine)(CMainService&), ULONG flags);
