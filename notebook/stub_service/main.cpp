// A service in name only: stands in for WLAN AutoConfig and WWAN AutoConfig. Its first argument is
// the service's name. It is start pending for as long as the notebook says, then runs until stopped.
// Under the device server's name it serves the devices' COM classes while it runs.

#include <windows.h>

#include <string>

#include "notebook/state/shared_state.h"
#include "notebook/stub_service/device_classes.h"

namespace {

using Notebook::LockedMachine;

std::wstring g_name;
SERVICE_STATUS_HANDLE g_handle = nullptr;
HANDLE g_stop = nullptr;

bool IsWlan() {
    return g_name == L"WlanSvc";
}

void SetRuns(bool runs) {
    LockedMachine machine;
    (IsWlan() ? machine->devices.wlanServiceRuns : machine->devices.wwanServiceRuns) = runs ? 1 : 0;
}

DWORD LateMs() {
    LockedMachine machine;
    return IsWlan() ? machine->devices.wlanServiceLateMs : machine->devices.wwanServiceLateMs;
}

void Report(DWORD state, DWORD accepted, DWORD waitHintMs) {
    SERVICE_STATUS status{};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = accepted;
    status.dwWaitHint = waitHintMs;
    SetServiceStatus(g_handle, &status);
}

DWORD WINAPI Handle(DWORD control, DWORD, LPVOID, LPVOID) {
    if (control == SERVICE_CONTROL_STOP) {
        SetEvent(g_stop);
    }
    return NO_ERROR;
}

void RunInNameOnly() {
    const DWORD late = LateMs();
    if (late != 0) {
        Report(SERVICE_START_PENDING, SERVICE_ACCEPT_STOP, late);
    }
    if (late == 0 || WaitForSingleObject(g_stop, late) == WAIT_TIMEOUT) {
        SetRuns(true);
        Report(SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0);
        WaitForSingleObject(g_stop, INFINITE);
    }
    SetRuns(false);
}

void RunAsDeviceServer() {
    if (Notebook::ServeDevices()) {
        Report(SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0);
        WaitForSingleObject(g_stop, INFINITE);
    }
    Notebook::StopServingDevices();
}

void WINAPI Main(DWORD, LPWSTR*) {
    g_handle = RegisterServiceCtrlHandlerExW(g_name.c_str(), &Handle, nullptr);
    if (g_name == Notebook::kDeviceServer) {
        RunAsDeviceServer();
    } else {
        RunInNameOnly();
    }
    Report(SERVICE_STOPPED, 0, 0);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) {
        return 1;
    }
    g_name = argv[1];
    g_stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SERVICE_TABLE_ENTRYW table[] = {{g_name.data(), &Main}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) != FALSE ? 0 : 1;
}
