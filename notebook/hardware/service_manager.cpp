#include "notebook/hardware/service_manager.h"

#include <cwchar>

#include "notebook/hardware/call_scope.h"
#include "notebook/hardware/deliveries.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"

namespace Notebook {

namespace {

/// The open handles, each with its service's name; empty: the manager itself.
class Handles {
  public:
    static Handles& Get() {
        static Handles& handles = *new Handles();
        return handles;
    }
    SC_HANDLE Open(const std::wstring& service) {
        const ExclusiveLock lock(m_lock);
        m_last += 4;
        const auto handle = reinterpret_cast<SC_HANDLE>(m_last);
        m_open[handle] = service;
        return handle;
    }
    bool Close(SC_HANDLE handle) {
        const ExclusiveLock lock(m_lock);
        return m_open.erase(handle) != 0;
    }
    void CloseAll() {
        const ExclusiveLock lock(m_lock);
        m_open.clear();
    }
    std::size_t Count() {
        const ExclusiveLock lock(m_lock);
        return m_open.size();
    }
    /// The service behind a handle; null, and booked as a misuse, when there is none.
    ManagedService* Find(SC_HANDLE handle) {
        const ExclusiveLock lock(m_lock);
        const auto open = m_open.find(handle);
        const auto found =
            open == m_open.end() ? InstalledServices().end() : InstalledServices().find(open->second);
        if (found == InstalledServices().end()) {
            InterlockedIncrement(&SharedState::Get().Raw().ledger.misuses);
            return nullptr;
        }
        return &found->second;
    }
    /// Deletes the service behind a handle; the handle stays open.
    void Delete(SC_HANDLE handle) {
        const ExclusiveLock lock(m_lock);
        InstalledServices().erase(m_open[handle]);
    }

  private:
    SRWLOCK m_lock = SRWLOCK_INIT;
    ULONG_PTR m_last = 0x5C0000;
    std::map<SC_HANDLE, std::wstring> m_open;
};

/// The last error of a call; TRUE when there is none.
BOOL Answer(DWORD error) {
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

/// The service that a call is about; null, with the last error set, when it has to fail.
ManagedService* ServiceOf(const CallScope& call, SC_HANDLE handle) {
    if (call.Refused()) {
        Answer(call.Error());
        return nullptr;
    }
    ManagedService* const service = handle == nullptr ? nullptr : Handles::Get().Find(handle);
    if (service == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return service;
}

std::vector<std::wstring> TextsOf(LPCWSTR list) {
    std::vector<std::wstring> texts;
    for (; list != nullptr && *list != L'\0'; list += texts.back().size() + 1) {
        texts.emplace_back(list);
    }
    return texts;
}

}  // namespace

std::map<std::wstring, ManagedService>& InstalledServices() {
    static auto& services = *new std::map<std::wstring, ManagedService>();
    return services;
}

void ResetServices() {
    InstalledServices() = {{L"LinkvaneService", {}}, {L"WlanSvc", {}}, {L"WwanSvc", {}}};
    Handles::Get().CloseAll();
}

std::size_t OpenServiceHandles() {
    return Handles::Get().Count();
}

SC_HANDLE WINAPI NotebookOpenSCManager(LPCWSTR machine, LPCWSTR database, DWORD access) {
    CallScope call(Call::OpenSCManager);
    call.Detail("0x%lx%s", access, machine != nullptr || database != nullptr ? " of another" : "");
    if (call.Refused()) {
        Answer(call.Error());
        return nullptr;
    }
    return Handles::Get().Open({});
}

SC_HANDLE WINAPI NotebookOpenService(SC_HANDLE, LPCWSTR name, DWORD access) {
    CallScope call(Call::OpenService);
    call.Detail("%ls 0x%lx", name, access);
    if (call.Refused() || !InstalledServices().contains(name)) {
        Answer(call.Refused() ? call.Error() : DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
        return nullptr;
    }
    return Handles::Get().Open(name);
}

SC_HANDLE WINAPI NotebookCreateService(SC_HANDLE, LPCWSTR name, LPCWSTR displayName, DWORD access, DWORD type,
                                       DWORD startType, DWORD errorControl, LPCWSTR path, LPCWSTR group,
                                       LPDWORD tag, LPCWSTR dependencies, LPCWSTR account, LPCWSTR password) {
    CallScope call(Call::CreateService);
    call.Detail("%ls 0x%lx", name, access);
    if (call.Refused() || InstalledServices().contains(name)) {
        Answer(call.Refused() ? call.Error() : DWORD{ERROR_SERVICE_EXISTS});
        return nullptr;
    }
    ManagedService& service = InstalledServices()[name];
    service.state = SERVICE_STOPPED;
    service.type = type;
    service.startType = startType;
    service.errorControl = errorControl;
    service.hasMore = group != nullptr || tag != nullptr || account != nullptr || password != nullptr;
    service.displayName = displayName;
    service.path = path;
    service.dependencies = TextsOf(dependencies);
    return Handles::Get().Open(name);
}

BOOL WINAPI NotebookControlService(SC_HANDLE handle, DWORD control, LPSERVICE_STATUS status) {
    CallScope call(Call::ControlService);
    call.Detail("%lu", control);
    ManagedService* const service = ServiceOf(call, handle);
    if (service == nullptr) {
        return FALSE;
    }
    if (service->state == SERVICE_STOPPED) {
        return Answer(ERROR_SERVICE_NOT_ACTIVE);
    }
    service->state = service->stateAfterStop;
    *status = {};
    status->dwCurrentState = service->state;
    return TRUE;
}

BOOL WINAPI NotebookQueryServiceStatus(SC_HANDLE handle, LPSERVICE_STATUS status) {
    CallScope call(Call::QueryServiceStatus);
    const ManagedService* const service = ServiceOf(call, handle);
    if (service == nullptr) {
        return FALSE;
    }
    status->dwCurrentState = service->state;
    return TRUE;
}

BOOL WINAPI NotebookQueryServiceStatusEx(SC_HANDLE handle, SC_STATUS_TYPE level, LPBYTE buffer, DWORD bytes,
                                         LPDWORD needed) {
    CallScope call(Call::QueryServiceStatusEx);
    const ManagedService* const service = ServiceOf(call, handle);
    if (service == nullptr) {
        return FALSE;
    }
    if (level != SC_STATUS_PROCESS_INFO || bytes < sizeof(SERVICE_STATUS_PROCESS) || needed == nullptr) {
        return Answer(ERROR_INVALID_PARAMETER);
    }
    reinterpret_cast<SERVICE_STATUS_PROCESS*>(buffer)->dwCurrentState = service->state;
    return TRUE;
}

BOOL WINAPI NotebookDeleteService(SC_HANDLE handle) {
    CallScope call(Call::DeleteService);
    if (ServiceOf(call, handle) == nullptr) {
        return FALSE;
    }
    Handles::Get().Delete(handle);
    return TRUE;
}

BOOL WINAPI NotebookChangeServiceConfig2(SC_HANDLE handle, DWORD setting, LPVOID information) {
    CallScope call(Call::ChangeServiceConfig2);
    call.Detail("%lu", setting);
    ManagedService* const service = ServiceOf(call, handle);
    if (service == nullptr) {
        return FALSE;
    }
    switch (setting) {
        case SERVICE_CONFIG_DESCRIPTION:
            service->description = static_cast<const SERVICE_DESCRIPTIONW*>(information)->lpDescription;
            return TRUE;
        case SERVICE_CONFIG_FAILURE_ACTIONS:
            service->failureActions = *static_cast<const SERVICE_FAILURE_ACTIONSW*>(information);
            service->actions.assign(service->failureActions.lpsaActions,
                                    service->failureActions.lpsaActions + service->failureActions.cActions);
            return TRUE;
        case SERVICE_CONFIG_FAILURE_ACTIONS_FLAG:
            service->actsOnFailingExit = static_cast<const SERVICE_FAILURE_ACTIONS_FLAG*>(information)
                                             ->fFailureActionsOnNonCrashFailures;
            return TRUE;
        default:
            return Answer(ERROR_INVALID_LEVEL);
    }
}

BOOL WINAPI NotebookCloseServiceHandle(SC_HANDLE handle) {
    if (!Handles::Get().Close(handle)) {
        InterlockedIncrement(&SharedState::Get().Raw().ledger.misuses);
        return Answer(ERROR_INVALID_HANDLE);
    }
    return TRUE;
}

}  // namespace Notebook
