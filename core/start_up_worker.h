#pragma once

struct ServiceState;

/// Everything at start that may take long, as `CMainService::ServiceWorkerThread`: COM, BIOS settings,
/// subscriptions, and for each radio the first decision: off beside a cable, else as the user chose last.
/// Runs once for each start, on a persistent thread of the pool, and does not look at the running flag
/// between its steps. Throws what is no standard exception.
void ServiceWorkerThread(ServiceState& service);
