#include "service/service_installer.h"

#include <windows.h>

#include <array>
#include <cstddef>

#include "logging/format.h"
#include "logging/log_scope.h"
#include "platform/executable_path.h"
#include "platform/handles.h"
#include "radio/power_status.h"
#include "registry/registry.h"
#include "service/console.h"
#include "service/service_names.h"

using Platform::UniqueServiceHandle;
using ServiceNames::kDisplay;
using ServiceNames::kService;

namespace {

constexpr std::size_t kQuotes = 2;
using QuotedPath = std::array<wchar_t, MAX_PATH + kQuotes>;

constexpr DWORD kStopPollMilliseconds = 1000;

/// Logs a failed call and tells the person at the console; `format` takes the Win32 error.
void TellFailure(const LogScope& log, const wchar_t* format, DWORD error) {
    log.Error(format, error);
    Console::Print(format, error);
    Console::PrintText(L"\n");
}

/// The executable's path in quotes, so that one with blanks starts the right program. False, and
/// logged, when there is none; the console is not told.
bool GetQuotedPath(const LogScope& log, QuotedPath& quoted) {
    std::array<wchar_t, MAX_PATH> path{};
    const DWORD error = Platform::GetExecutablePath(path);
    if (error != ERROR_SUCCESS) {
        return log.Failure(false, L"GetModuleFileName failed w/err 0x%08lx", error);
    }
    Orva::Shared::FormatText(quoted.data(), quoted.size(), L"\"%s\"", path.data());
    return true;
}

/// `service` may be null: the call, and its line on the console, come after a failed creation too.
void SetDescription(SC_HANDLE service) {
    auto text = std::to_array(kDisplay);
    SERVICE_DESCRIPTIONW description{};
    description.lpDescription = text.data();
    if (ChangeServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, &description) == FALSE) {
        Console::Print(L"ChangeServiceConfig2 (SERVICE_CONFIG_DESCRIPTION) failed w/err 0x%08lx\n",
                       GetLastError());
    }
}

/// Stops the service, and waits for as long as it is stopping. One that refuses, most likely because it does
/// not run, is passed over.
void Stop(const LogScope& log, SC_HANDLE service) {
    SERVICE_STATUS status{};
    if (ControlService(service, SERVICE_CONTROL_STOP, &status) == FALSE) {
        return;
    }
    Console::Print(L"Stopping %s.", kService);
    Sleep(kStopPollMilliseconds);
    while (QueryServiceStatus(service, &status) != FALSE && status.dwCurrentState == SERVICE_STOP_PENDING) {
        Console::PrintText(L".");
        Sleep(kStopPollMilliseconds);
    }
    if (status.dwCurrentState == SERVICE_STOPPED) {
        Console::Print(L"\n%s is stopped.\n", kService);
    } else {
        log.Error(L"%s failed to stop.", kService);
        Console::Print(L"\n%s failed to stop.\n", kService);
    }
}

/// Deletes the keys with the remembered radio states. Failures are only logged, with the last
/// error like every failure here.
void ForgetRadioStates(const LogScope& log) {
    const Registry registry(HKEY_LOCAL_MACHINE);
    if (registry.DeleteSubkey(PowerStatus::kWlanKey) != ERROR_SUCCESS) {
        log.Error(L"DeleteSubkey (BrimletWlanPowerStatus) failed w/err 0x%08lx", GetLastError());
    }
    if (registry.DeleteSubkey(PowerStatus::kWwanKey) != ERROR_SUCCESS) {
        log.Error(L"DeleteSubkey (BrimletWwanPowerStatus) failed w/err 0x%08lx", GetLastError());
    }
}

}  // namespace

void InstallService() {
    const LogScope log("InstallService");
    QuotedPath path{};
    if (!GetQuotedPath(log, path)) {
        return;
    }
    const UniqueServiceHandle manager(
        OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
    if (!manager) {
        TellFailure(log, L"OpenSCManager failed w/err 0x%08lx", GetLastError());
        return;
    }
    const UniqueServiceHandle service(CreateServiceW(
        manager.Get(), kService, kDisplay, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
        SERVICE_ERROR_NORMAL, path.data(), nullptr, nullptr, ServiceNames::kDependencies, nullptr, nullptr));
    const DWORD creationError = GetLastError();
    // Described before the outcome is told: a failed creation shows the description's failure first.
    SetDescription(service.Get());
    if (!service) {
        TellFailure(log, L"CreateService failed w/err 0x%08lx", creationError);
        return;
    }
    log.Information(L"%s is installed.", kService);
    Console::Print(L"%s is installed.\n", kService);
}

void UninstallService() {
    const LogScope log("UninstallService");
    const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        TellFailure(log, L"OpenSCManager failed w/err 0x%08lx", GetLastError());
        return;
    }
    const UniqueServiceHandle service(
        OpenServiceW(manager.Get(), kService, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE));
    if (!service) {
        TellFailure(log, L"OpenService failed w/err 0x%08lx", GetLastError());
        return;
    }
    Stop(log, service.Get());
    if (DeleteService(service.Get()) == FALSE) {
        TellFailure(log, L"DeleteService failed w/err 0x%08lx", GetLastError());
        return;
    }
    ForgetRadioStates(log);
    Console::Print(L"%s is removed.\n", kService);
}
