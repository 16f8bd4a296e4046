// Between the executable and the service manager: suspend, resume and pre-shutdown come as
// user-defined controls and reach the handler as what they stand for; state reports are noted. And what
// a service depends on is given out, which Wine keeps to itself.

#include <windows.h>

#include <cstring>

#include "notebook/hardware/call_scope.h"
#include "notebook/hardware/import_table.h"
#include "notebook/hardware/start.h"
#include "notebook/state/controls.h"
#include "notebook/state/shared_state.h"

namespace Notebook {

namespace {

decltype(&::RegisterServiceCtrlHandlerExW) g_realRegister = nullptr;
decltype(&::SetServiceStatus) g_realSetStatus = nullptr;
decltype(&::QueryServiceConfigW) g_realQueryConfig = nullptr;
LPHANDLER_FUNCTION_EX g_handler = nullptr;

DWORD WINAPI Handle(DWORD code, DWORD eventType, LPVOID eventData, LPVOID context) {
    ServiceRun& service = SharedState::Get().Raw().service;
    InterlockedIncrement(&service.controlsBegun);
    DWORD result = NO_ERROR;
    {
        CallScope call(Call::ServiceControl);
        DWORD control = code;
        DWORD type = eventType;
        if (const auto translated = TranslateControl(code)) {
            control = translated->control;
            type = translated->eventType;
        }
        call.Detail("control %lu type %lu", control, type);
        result = call.Result(g_handler(control, type, eventData, context));
    }
    InterlockedIncrement(&service.controlsEnded);
    return result;
}

/// A process begins to run as the service: what the last one held is gone with it.
void BeginRun() {
    LockedMachine machine;
    ServiceRun& service = machine->service;
    service.process = GetCurrentProcessId();
    ++service.runs;
    service.stopped = 0;
    service.reported = 0;
    service.controlsSent = 0;
    service.controlsBegun = 0;
    service.controlsEnded = 0;
    machine->ledger = {};
    machine->activity = {};
    // The registration that is being made right now.
    InterlockedIncrement(&machine->activity.callsBegun);
    InterlockedExchange64(&machine->activity.lastAt, machine.Time());
}

SERVICE_STATUS_HANDLE WINAPI NotebookRegister(LPCWSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context) {
    CallScope call(Call::RegisterServiceCtrlHandlerEx);
    if (call.RefusedWithLastError()) {
        return nullptr;
    }
    BeginRun();
    g_handler = handler;
    return g_realRegister(name, &Handle, context);
}

BOOL WINAPI NotebookSetStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status) {
    CallScope call(Call::SetServiceStatus);
    call.Detail("state %lu checkpoint %lu", status->dwCurrentState, status->dwCheckPoint);
    if (call.RefusedWithLastError()) {
        return FALSE;
    }
    {
        LockedMachine machine;
        ServiceRun& service = machine->service;
        service.reported = status->dwCurrentState;
        if (status->dwCurrentState == SERVICE_STOPPED) {
            service.stopped = 1;
        }
    }
    const BOOL done = g_realSetStatus(handle, status);
    call.Result(static_cast<DWORD>(done));
    return done;
}

/// Puts what the service depends on behind everything else in the buffer, which has to have room for it.
BOOL WINAPI NotebookQueryConfig(SC_HANDLE service, LPQUERY_SERVICE_CONFIGW config, DWORD size,
                                LPDWORD needed) {
    if (g_realQueryConfig(service, config, size, needed) == FALSE) {
        return FALSE;
    }
    constexpr wchar_t kServiceKey[] = L"SYSTEM\\CurrentControlSet\\Services\\LinkvaneService";
    wchar_t names[64]{};
    DWORD bytes = sizeof(names);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kServiceKey, L"DependOnService", RRF_RT_REG_MULTI_SZ, nullptr, names,
                     &bytes) == ERROR_SUCCESS) {
        auto* const end = reinterpret_cast<BYTE*>(config) + size;
        config->lpDependencies = reinterpret_cast<LPWSTR>(end - bytes);
        std::memcpy(config->lpDependencies, names, bytes);
    }
    return TRUE;
}

}  // namespace

void ReplaceServiceControl() {
    g_realQueryConfig = ReplaceImport("QueryServiceConfigW", &NotebookQueryConfig);
    g_realRegister = ReplaceImport("RegisterServiceCtrlHandlerExW", &NotebookRegister);
    g_realSetStatus = ReplaceImport("SetServiceStatus", &NotebookSetStatus);
}

}  // namespace Notebook
