#include "service/service_utilities.h"

#include <array>
#include <cstddef>

#include "logging/format.h"
#include "logging/log_scope.h"
#include "platform/executable_path.h"
#include "platform/handles.h"
#include "service/service_names.h"

using Platform::UniqueHandle;
using Platform::UniqueLocalMemory;
using Platform::UniqueServiceHandle;

namespace {

constexpr wchar_t kUnknownVersion[] = L"0.0.0.0";
constexpr std::size_t kVersionCharacters = sizeof("65535.65535.65535.65535");

constexpr DWORD kPollMilliseconds = 1000;
constexpr int kMostPolls = 15;

// Answers of SetServiceRestartRecoveryOnFailure; the two failures add up.
constexpr int kRecoverySet = 0;
constexpr int kActionsNotSet = 1;
constexpr int kFlagNotSet = 16;

constexpr DWORD kMillisecondsPerMinute = 60 * 1000;

/// The fixed part of a version resource; null, and logged, when it is missing or unsound.
const VS_FIXEDFILEINFO* FindFixedFileInfo(const LogScope& log, const UniqueLocalMemory& resource) {
    void* found = nullptr;
    UINT size = 0;
    if (VerQueryValueW(resource.Get(), L"\\", &found, &size) == FALSE) {
        return log.Failure(nullptr, L"VerQueryValue failed with error %d", GetLastError());
    }
    // A record that is cut is as good as none.
    if (size < sizeof(VS_FIXEDFILEINFO)) {
        return log.Failure(nullptr, L"VerQueryValue returned size = %d", size);
    }
    const auto* const info = static_cast<const VS_FIXEDFILEINFO*>(found);
    if (info == nullptr) {
        return log.Failure(nullptr, L"VS_FIXEDFILEINFO buffer is NULL");
    }
    if (info->dwSignature != static_cast<DWORD>(VS_FFI_SIGNATURE)) {
        return log.Failure(nullptr, L"Signature not correct");
    }
    return info;
}

std::wstring FileVersionText(const VS_FIXEDFILEINFO& info) {
    std::array<wchar_t, kVersionCharacters> text{};
    Orva::Shared::FormatText(text.data(), text.size(), L"%u.%u.%u.%u", HIWORD(info.dwFileVersionMS),
                             LOWORD(info.dwFileVersionMS), HIWORD(info.dwFileVersionLS),
                             LOWORD(info.dwFileVersionLS));
    return text.data();
}

/// Opens a service with full access, runs `step` with it and closes it; the answer of `step`. When it cannot
/// be opened that is logged, and the status says why.
template <class Step>
int WithService(const LogScope& log, const wchar_t* serviceName, Step step) {
    const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        return log.Failure(Utils::kServiceNotOpened, L"OpenSCManager failed w/err 0x%08lx", GetLastError());
    }
    const UniqueServiceHandle service(OpenServiceW(manager.Get(), serviceName, SERVICE_ALL_ACCESS));
    if (service) {
        return step(service.Get());
    }
    const DWORD error = GetLastError();
    if (error == ERROR_SERVICE_DOES_NOT_EXIST) {
        return log.Failure(Utils::kServiceNotInstalled, L"Service does not exist. Error 0x%08lx", error);
    }
    return log.Failure(Utils::kServiceNotOpened, L"OpenService failed w/err 0x%08lx", error);
}

int QueryRunning(const LogScope& log, const wchar_t* serviceName, SC_HANDLE service) {
    log.Information(L"%s Service is installed. Querying status..", serviceName);
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    if (QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                             sizeof(status), &needed) == FALSE) {
        return Utils::kServiceNotQueried;
    }
    log.Information(L"%s Service is running status = 0x%08lx", serviceName, status.dwCurrentState);
    if (status.dwCurrentState == SERVICE_RUNNING) {
        log.Information(L"%s Service is running", serviceName);
        return Utils::kServiceRunning;
    }
    return log.Failure(Utils::kServiceNotRunning, L"%s Service is not running", serviceName);
}

/// `kRecoverySet`, or `failure` and its line.
int Configure(const LogScope& log, SC_HANDLE service, DWORD setting, void* information, int failure,
              const wchar_t* failureText) {
    if (ChangeServiceConfig2W(service, setting, information) != FALSE) {
        return kRecoverySet;
    }
    return log.Failure(failure, failureText, GetLastError());
}

int SetRecovery(const LogScope& log, SC_HANDLE service) {
    std::array<SC_ACTION, Utils::kRestartDelayMinutes.size()> restarts{};
    for (std::size_t i = 0; i < restarts.size(); ++i) {
        restarts.at(i) = {SC_ACTION_RESTART, Utils::kRestartDelayMinutes.at(i) * kMillisecondsPerMinute};
    }
    SERVICE_FAILURE_ACTIONSW actions{};
    actions.dwResetPeriod = Utils::kFailureCountResetSeconds;
    actions.cActions = static_cast<DWORD>(restarts.size());
    actions.lpsaActions = restarts.data();
    const int actionsSet =
        Configure(log, service, SERVICE_CONFIG_FAILURE_ACTIONS, &actions, kActionsNotSet,
                  L"ChangeServiceConfig2 (SERVICE_CONFIG_FAILURE_ACTIONS) failed w/err 0x%08lx\n");
    // Has them taken when the service stops with an error too, not only after a crash; and is set whatever
    // became of them.
    SERVICE_FAILURE_ACTIONS_FLAG flag{};
    flag.fFailureActionsOnNonCrashFailures = TRUE;
    return actionsSet +
           Configure(log, service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &flag, kFlagNotSet,
                     L"ChangeServiceConfig2 (SERVICE_CONFIG_FAILURE_ACTIONS_FLAG) failed w/err 0x%08lx\n");
}

}  // namespace

std::wstring Utils::GetFileVersion(const LogScope& log, const wchar_t* path) {
    const DWORD size = GetFileVersionInfoSizeW(path, nullptr);
    if (size == 0) {
        // The line ends where an error code would stand; it shows none.
        return log.Failure(kUnknownVersion, L"GetFileVersionInfoSize Return Value  = %d Error Code = ", size);
    }
    const UniqueLocalMemory resource(LocalAlloc(LPTR, size));
    if (!resource) {
        return log.Failure(kUnknownVersion, L"Version String Allocation failed");
    }
    if (GetFileVersionInfoW(path, 0, size, resource.Get()) == FALSE) {
        return log.Failure(kUnknownVersion, L"GetFileVersionInfo failed with error %d", GetLastError());
    }
    const VS_FIXEDFILEINFO* const info = FindFixedFileInfo(log, resource);
    return info != nullptr ? FileVersionText(*info) : kUnknownVersion;
}

std::wstring Utils::GetBinaryVersion() {
    const LogScope log("Utils::GetBinaryVersion");
    std::array<wchar_t, MAX_PATH> path{};
    return Platform::GetExecutablePath(path) == ERROR_SUCCESS ? GetFileVersion(log, path.data())
                                                              : kUnknownVersion;
}

int Utils::IsServicePresent(const wchar_t* serviceName) {
    // The numbers stand for "is it running?" and "not its version", all that is ever asked here.
    LogScope log("Utils::IsServicePresent",
                 L"Service Name = %s, Running Status To be checked = %d, To Get version Info Status = %d",
                 serviceName, 1, 0);
    return log.Return(L"Return Value = %d", WithService(log, serviceName, [&](SC_HANDLE service) {
                          return QueryRunning(log, serviceName, service);
                      }));
}

int Utils::WaitforServiceToStartRunning(const wchar_t* serviceName) {
    LogScope log("Utils::WaitforServiceToStartRunning");
    int status = kServiceNotRunning;
    // A negative status means that no waiting will help.
    for (int tries = 0; status > kServiceRunning && tries < kMostPolls; ++tries) {
        status = IsServicePresent(serviceName);
        if (status != kServiceRunning) {
            log.Verbose(L"%s service Running Status = %d, try %d", serviceName, status, tries);
            UtilSleep(kPollMilliseconds);
        }
    }
    log.ExitLine(L"%s Running Status = %d", serviceName, status);
    return status;
}

void Utils::UtilSleep(DWORD milliseconds) {
    const LogScope log("Utils::UtilSleep");
    const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!event) {
        log.Error(L"CreateEvent() failed with  error: %d", GetLastError());
        return;
    }
    WaitForSingleObject(event.Get(), milliseconds);
}

int Utils::SetServiceRestartRecoveryOnFailure() {
    LogScope log("Utils::SetServiceRestartRecoveryOnFailure", L"Service Name = %s", ServiceNames::kService);
    return log.Return(L"Return Value = %d", WithService(log, ServiceNames::kService, [&](SC_HANDLE service) {
                          return SetRecovery(log, service);
                      }));
}
