#pragma once

struct ServiceState;

/// Subscribes to the Mobile Broadband API's radio events, as `CMainService::ListenForWwanEvents`. From here
/// on a modem's completion of a radio switch reaches `CMbnSinks` (radio/mbn_sinks.h). Failures are logged. On
/// the start-up worker's thread.
void ListenForWwanEvents(ServiceState& service);
