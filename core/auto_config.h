#pragma once

class LogScope;

/// Wait until the service of Windows that manages a kind of radio runs, at most 15 seconds. One that does
/// not come up in time costs an error line of the operation that asks, nothing more: the callers go on and
/// let the radio operations find out. Any thread.
void WaitForWlanAutoConfig(const LogScope& log);
/// Announces its wait with a line.
void WaitForWwanAutoConfig(const LogScope& log);
