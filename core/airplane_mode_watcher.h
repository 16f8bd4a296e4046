#pragma once

struct ServiceState;
class LogScope;

/// Follows airplane mode until the service stops, as `CMainService::AirplaneModeWatcher`: switches WLAN off
/// when it begins and, where no cable is in, brings the radios back to the user's last choice when it ends.
/// On a thread of the pool of its own.
void AirplaneModeWatcher(ServiceState& service);

/// The event that wakes the watcher: at a change of airplane mode and at a stop. False, with an error line,
/// when there is none.
bool CreateAirplaneWatcherEvent(const LogScope& log, ServiceState& service);
/// Wakes the watcher for a stop, which has cleared the running flag.
void SignalAirplaneWatcher(const LogScope& log, ServiceState& service);
