#pragma once

namespace Notebook {

/// Serves the Network List Manager and the Mobile Broadband manager to other processes, from now until
/// this process ends. The calling thread enters the multithreaded apartment and has to stay. False
/// when COM refuses.
bool ServeDevices();

/// COM offers them no more. Who uses them is told nothing.
void StopServingDevices();

}  // namespace Notebook
