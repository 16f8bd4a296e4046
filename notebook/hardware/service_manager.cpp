#include "notebook/hardware/service_manager.h"

#include <cwchar>

#include "notebook/hardware/call_scope.h"
#include "notebook/hardware/handle_table.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"

namespace Notebook {

namespace {

/// The open handles, each with its service's name; empty: the manager itself.
HandleTable<SC_HANDLE, std::wstring>& Handles() {
    static auto& handles = *new HandleTable<SC_HANDLE, std::wstring>(0x5C0000);
    return handles;
}

void CountMisuse() {
    InterlockedIncrement(&SharedState::Get().Raw().ledger.misuses);
}

/// The last error of a call; TRUE when there is none.
BOOL Answer(DWORD error) {
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

/// The installed service that a call is about; the end, with the last error set, when the call has to fail.
auto ServiceOf(const CallScope& call, SC_HANDLE handle) {
    if (call.RefusedWithLastError()) {
        return InstalledServices().end();
    }
    const auto found = InstalledServices().find(Handles().Find(handle).value_or(L""));
    if (found == InstalledServices().end()) {
        // A call without a handle is a failure of the one that should have given it.
        if (handle != nullptr) {
            CountMisuse();
        }
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return found;
}

/// What the call does to its service. FALSE, with the last error set, when the call has to fail.
template <class Function>
BOOL With(const CallScope& call, SC_HANDLE handle, Function function) {
    const auto service = ServiceOf(call, handle);
    return service == InstalledServices().end() ? FALSE : function(service->second);
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
    Handles().CloseAll();
}

std::size_t OpenServiceHandles() {
    return Handles().Count();
}

SC_HANDLE WINAPI NotebookOpenSCManager(LPCWSTR machine, LPCWSTR database, DWORD access) {
    CallScope call(Call::OpenSCManager);
    call.Detail("0x%lx%s", access, machine != nullptr || database != nullptr ? " of another" : "");
    return call.RefusedWithLastError() ? nullptr : Handles().Open({});
}

SC_HANDLE WINAPI NotebookOpenService(SC_HANDLE, LPCWSTR name, DWORD access) {
    CallScope call(Call::OpenService);
    call.Detail("%ls 0x%lx", name, access);
    if (call.Refused() || !InstalledServices().contains(name)) {
        Answer(call.Refused() ? call.Error() : DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
        return nullptr;
    }
    return Handles().Open(name);
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
    return Handles().Open(name);
}

BOOL WINAPI NotebookControlService(SC_HANDLE handle, DWORD control, LPSERVICE_STATUS status) {
    CallScope call(Call::ControlService);
    call.Detail("%lu", control);
    return With(call, handle, [&](ManagedService& service) {
        if (service.state == SERVICE_STOPPED) {
            return Answer(ERROR_SERVICE_NOT_ACTIVE);
        }
        service.state = service.stateAfterStop;
        *status = {};
        status->dwCurrentState = service.state;
        return TRUE;
    });
}

BOOL WINAPI NotebookQueryServiceStatus(SC_HANDLE handle, LPSERVICE_STATUS status) {
    CallScope call(Call::QueryServiceStatus);
    return With(call, handle, [&](const ManagedService& service) {
        status->dwCurrentState = service.state;
        return TRUE;
    });
}

BOOL WINAPI NotebookQueryServiceStatusEx(SC_HANDLE handle, SC_STATUS_TYPE level, LPBYTE buffer, DWORD bytes,
                                         LPDWORD needed) {
    CallScope call(Call::QueryServiceStatusEx);
    return With(call, handle, [&](const ManagedService& service) {
        if (level != SC_STATUS_PROCESS_INFO || bytes < sizeof(SERVICE_STATUS_PROCESS) || needed == nullptr) {
            return Answer(ERROR_INVALID_PARAMETER);
        }
        reinterpret_cast<SERVICE_STATUS_PROCESS*>(buffer)->dwCurrentState = service.state;
        return TRUE;
    });
}

BOOL WINAPI NotebookDeleteService(SC_HANDLE handle) {
    CallScope call(Call::DeleteService);
    const auto service = ServiceOf(call, handle);
    if (service == InstalledServices().end()) {
        return FALSE;
    }
    InstalledServices().erase(service);
    return TRUE;
}

BOOL WINAPI NotebookChangeServiceConfig2(SC_HANDLE handle, DWORD setting, LPVOID information) {
    CallScope call(Call::ChangeServiceConfig2);
    call.Detail("%lu", setting);
    return With(call, handle, [&](ManagedService& service) {
        switch (setting) {
            case SERVICE_CONFIG_DESCRIPTION:
                service.description = static_cast<const SERVICE_DESCRIPTIONW*>(information)->lpDescription;
                return TRUE;
            case SERVICE_CONFIG_FAILURE_ACTIONS:
                service.failureActions = *static_cast<const SERVICE_FAILURE_ACTIONSW*>(information);
                service.actions.assign(service.failureActions.lpsaActions,
                                       service.failureActions.lpsaActions + service.failureActions.cActions);
                return TRUE;
            case SERVICE_CONFIG_FAILURE_ACTIONS_FLAG:
                service.actsOnFailingExit = static_cast<const SERVICE_FAILURE_ACTIONS_FLAG*>(information)
                                                ->fFailureActionsOnNonCrashFailures;
                return TRUE;
            default:
                return Answer(ERROR_INVALID_LEVEL);
        }
    });
}

BOOL WINAPI NotebookCloseServiceHandle(SC_HANDLE handle) {
    if (!Handles().Close(handle)) {
        CountMisuse();
        return Answer(ERROR_INVALID_HANDLE);
    }
    return TRUE;
}

}  // namespace Notebook
