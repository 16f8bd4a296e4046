#pragma once

struct ServiceState;

/// Everything at start that may take long, as `CMainService::ServiceWorkerThread`: COM, BIOS settings,
/// subscriptions, and for each radio the first decision: off beside a cable, else as the user chose last.
/// Runs once for each start, on a persistent thread of the pool, and does not end early for a stop:
/// it looks at the running flag only to clean up behind one. Throws what is no standard exception (the Win32
/// error of a work item that could not be queued).
void ServiceWorkerThread(ServiceState& service);
