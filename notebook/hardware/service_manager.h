#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

// The service control manager as unit tests have it. (Where the notebook runs as a whole it is Wine's own.)

namespace Notebook {

/// An installed service, as the test wants it or as it was configured.
struct ManagedService {
    DWORD state = SERVICE_RUNNING;
    DWORD stateAfterStop = SERVICE_STOPPED;  ///< what a stop request leaves it in
    DWORD type = 0;
    DWORD startType = 0;
    DWORD errorControl = 0;
    bool hasMore = false;  ///< a group, a tag, an account or a password
    std::wstring displayName;
    std::wstring path;
    std::vector<std::wstring> dependencies;
    std::wstring description;
    /// Their pointers tell no more than whether there was something.
    SERVICE_FAILURE_ACTIONSW failureActions{};
    std::vector<SC_ACTION> actions;
    BOOL actsOnFailingExit = FALSE;
};

/// All that are installed, by name. Changed only while no call is in progress.
std::map<std::wstring, ManagedService>& InstalledServices();

/// WlanSvc, WwanSvc and LinkvaneService run, no handle is open.
void ResetServices();

/// Handles that were given out and not closed.
std::size_t OpenServiceHandles();

// The service manager's own functions, by its names for them.
decltype(::OpenSCManagerW) NotebookOpenSCManager;
decltype(::OpenServiceW) NotebookOpenService;
decltype(::CreateServiceW) NotebookCreateService;
decltype(::ControlService) NotebookControlService;
decltype(::QueryServiceStatus) NotebookQueryServiceStatus;
decltype(::QueryServiceStatusEx) NotebookQueryServiceStatusEx;
decltype(::DeleteService) NotebookDeleteService;
decltype(::ChangeServiceConfig2W) NotebookChangeServiceConfig2;
decltype(::CloseServiceHandle) NotebookCloseServiceHandle;

}  // namespace Notebook
