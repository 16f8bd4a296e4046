#pragma once

#include <windows.h>

namespace Notebook {

// What stands in for the functions of these names; what was written shows in notebook/state/event_log.h.
decltype(::RegisterEventSourceW) NotebookRegisterEventSource;
decltype(::ReportEventW) NotebookReportEvent;
decltype(::DeregisterEventSource) NotebookDeregisterEventSource;

}  // namespace Notebook
