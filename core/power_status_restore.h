#pragma once

/// Bring a radio back to the user's last choice, on or off, as `CMainService::UpdateWlanPowerStatus` and
/// `UpdateWwanPowerStatus`. The choice itself is only read (who writes it: radio/power_status.h).
/// Any thread.
void UpdateWlanPowerStatus();
void UpdateWwanPowerStatus();
