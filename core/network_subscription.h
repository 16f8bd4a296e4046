#pragma once

struct ServiceState;

/// Subscribes to the Network List Manager's events (not to those of WLAN, despite the name), as
/// `CMainService::ListenForWlanEvents`. From here on a cable that is plugged in or pulled reaches
/// `NLMEventHandler::NetworkConnectionConnectivityChanged` (network/nlm_event_handler.h). Failures are
/// logged. On the start-up worker's thread.
void ListenForWlanEvents(ServiceState& service);
