#pragma once

#include "service/service_base.h"

/// Does what the command line asks for: `-install` and `-remove` (also with "/", in any case)
/// install and remove the service, any other switch does nothing, and anything else calls
/// `runService` after printing the usage and setting the process's COM security. Only the first
/// argument counts. Returns the exit code, always 0.
///
/// The service comes from the caller because nothing in this folder knows which one it is.
int RunCommandLine(int argumentCount, wchar_t** arguments, void (*runService)());

/// Connects `service` to the service control manager and returns when it has stopped. A failure,
/// such as a start from a console, is logged and printed.
void RunUntilStopped(CServiceBase& service);
