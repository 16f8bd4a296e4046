#pragma once

#include <windows.h>

struct ServiceState;
class LogScope;

/// WLAN's notifications: that a network has become available, and that a radio has changed. Beside a cable
/// they have the radio switched off again; without one a change of the radio is stored as the user's choice.
/// They come on a thread of the WLAN interface and are handled one at a time.

/// Registers for them (`*registers` not 0) or takes the registration back, as
/// `CMainService::RegisterWlanNotification`. Opens the WLAN handle when there is none. The Win32 error,
/// ERROR_SUCCESS on success. Any thread.
DWORD RegisterWlanNotification(ServiceState& service, const unsigned char* registers);

/// A handle that cannot be closed is kept, and logged.
void CloseWlanHandle(const LogScope& log, ServiceState& service);
