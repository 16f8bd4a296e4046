#pragma once

#include <windows.h>

namespace Notebook {

// What stands in for the functions of these names; what was written shows in notebook/state/event_log.h.
HANDLE WINAPI NotebookRegisterEventSource(LPCWSTR server, LPCWSTR source);
BOOL WINAPI NotebookReportEvent(HANDLE log, WORD type, WORD category, DWORD identifier, PSID user,
                                WORD stringCount, DWORD dataSize, LPCWSTR* strings, LPVOID data);
BOOL WINAPI NotebookDeregisterEventSource(HANDLE log);

}  // namespace Notebook
