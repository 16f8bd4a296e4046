#pragma once

#include <windows.h>

// What the DLL does when the executable's process takes it in, one function for each device.

namespace Notebook {

void StartWlan();

/// Puts the adapter list of the notebook in place of the machine's.
void ReplaceAdapterList();
/// Stands between the executable and the service manager: translates controls that no program may
/// send, notes state reports.
void ReplaceServiceControl();
/// Counts the executable's threads that sleep or wait with a time limit: they will go on.
void ReplaceWaits();
/// Keeps a copy of what is written to the event log.
void ReplaceEventLog();

}  // namespace Notebook
