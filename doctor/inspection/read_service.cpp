#include <windows.h>
#include <shellapi.h>

#include <array>
#include <filesystem>
#include <vector>

#include "doctor/inspection/readers.h"
#include "doctor/inspection/text.h"
#include "logging/log_scope.h"
#include "platform/handles.h"
#include "service/service_names.h"
#include "service/service_utilities.h"

namespace Inspection {
namespace {

using Platform::UniqueServiceHandle;

constexpr DWORD kMillisecondsPerMinute = 60 * 1000;
/// No answer of the service control manager is larger (QueryServiceConfigW, QueryServiceConfig2W).
constexpr DWORD kMostConfigBytes = 8 * 1024;
using ConfigBuffer = std::vector<std::max_align_t>;

ConfigBuffer MakeBuffer() {
    return ConfigBuffer(kMostConfigBytes / sizeof(ConfigBuffer::value_type));
}

const char* StateName(DWORD state) {
    switch (state) {
        case SERVICE_RUNNING:
            return "running";
        case SERVICE_STOPPED:
            return "stopped";
        case SERVICE_START_PENDING:
            return "starting";
        case SERVICE_STOP_PENDING:
            return "stopping";
        case SERVICE_PAUSED:
        case SERVICE_PAUSE_PENDING:
        case SERVICE_CONTINUE_PENDING:
            return "paused";
        default:
            return "unknown";
    }
}

const char* StartName(DWORD start) {
    switch (start) {
        case SERVICE_AUTO_START:
            return "automatic";
        case SERVICE_DEMAND_START:
            return "manual";
        case SERVICE_DISABLED:
            return "disabled";
        default:
            return "other";
    }
}

/// Reading needs no rights that a plain user has not.
constexpr DWORD kReadAccess = SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG;

UniqueServiceHandle OpenAndReadState(const wchar_t* name, Service& service) {
    service.name = Utf8(name);
    const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        service.error = GetLastError();
        return {};
    }
    UniqueServiceHandle handle(OpenServiceW(manager.Get(), name, kReadAccess));
    if (!handle) {
        service.error = GetLastError();
        if (service.error == ERROR_SERVICE_DOES_NOT_EXIST) {
            service.state = "absent";
        }
        return {};
    }
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    if (QueryServiceStatusEx(handle.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                             sizeof(status), &needed) == FALSE) {
        service.error = GetLastError();
    } else {
        service.state = StateName(status.dwCurrentState);
    }
    return handle;
}

/// The program in a command line, and whether it stands in quotes. Unquoted it ends behind ".exe".
std::wstring ProgramOf(const std::wstring& commandLine, bool& isQuoted) {
    isQuoted = commandLine.starts_with(L'"');
    if (isQuoted) {
        return commandLine.substr(1, commandLine.find(L'"', 1) - 1);
    }
    std::wstring lower = commandLine;
    CharLowerW(lower.data());
    constexpr std::wstring_view kExtension = L".exe";
    const std::size_t found = lower.find(kExtension);
    return found == std::wstring::npos ? commandLine : commandLine.substr(0, found + kExtension.size());
}

std::vector<std::string> SplitNames(const wchar_t* names) {
    std::vector<std::string> list;
    for (; names != nullptr && *names != L'\0'; names += list.back().size() + 1) {
        list.push_back(Utf8(names));
    }
    return list;
}

void ReadConfig(SC_HANDLE handle, Service& service) {
    ConfigBuffer buffer = MakeBuffer();
    auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    DWORD needed = 0;
    if (QueryServiceConfigW(handle, config, kMostConfigBytes, &needed) == FALSE) {
        service.error = GetLastError();
        return;
    }
    service.isConfigKnown = true;
    const std::wstring commandLine = config->lpBinaryPathName != nullptr ? config->lpBinaryPathName : L"";
    const std::wstring program = ProgramOf(commandLine, service.isQuoted);
    service.commandLine = Utf8(commandLine);
    service.executable = Utf8(program);
    service.isExecutableThere = GetFileAttributesW(program.c_str()) != INVALID_FILE_ATTRIBUTES;
    service.type = config->dwServiceType == SERVICE_WIN32_OWN_PROCESS ? "own-process" : "other";
    service.start = StartName(config->dwStartType);
    service.account = config->lpServiceStartName != nullptr ? Utf8(config->lpServiceStartName) : "";
    service.dependencies = SplitNames(config->lpDependencies);
    const LogScope log("Inspection::ReadConfig");
    service.version = Utf8(Utils::GetFileVersion(log, program.c_str()));
}

void ReadRecovery(SC_HANDLE handle, Service& service) {
    ConfigBuffer buffer = MakeBuffer();
    DWORD needed = 0;
    if (QueryServiceConfig2W(handle, SERVICE_CONFIG_FAILURE_ACTIONS, reinterpret_cast<BYTE*>(buffer.data()),
                             kMostConfigBytes, &needed) == FALSE) {
        return;
    }
    const auto* const actions = reinterpret_cast<const SERVICE_FAILURE_ACTIONSW*>(buffer.data());
    for (DWORD i = 0; i < actions->cActions && actions->lpsaActions != nullptr; ++i) {
        if (actions->lpsaActions[i].Type == SC_ACTION_RESTART) {
            service.restartMinutes.push_back(actions->lpsaActions[i].Delay / kMillisecondsPerMinute);
        }
    }
    service.forgetsAfterSeconds = actions->dwResetPeriod;
    SERVICE_FAILURE_ACTIONS_FLAG flag{};
    service.isRecoveryKnown =
        QueryServiceConfig2W(handle, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, reinterpret_cast<BYTE*>(&flag),
                             sizeof(flag), &needed) != FALSE;
    service.restartsAfterErrors = flag.fFailureActionsOnNonCrashFailures != FALSE;
}

}  // namespace

Service ReadNeighbour(const wchar_t* name) {
    Service service;
    static_cast<void>(OpenAndReadState(name, service));
    return service;
}

Service ReadService() {
    Service service;
    const UniqueServiceHandle handle = OpenAndReadState(ServiceNames::kService, service);
    service.expectedDependencies = SplitNames(ServiceNames::kDependencies);
    service.expectedRestartMinutes.assign(Utils::kRestartDelayMinutes.begin(),
                                          Utils::kRestartDelayMinutes.end());
    service.expectedForgetsAfterSeconds = Utils::kFailureCountResetSeconds;
    if (handle) {
        ReadConfig(handle.Get(), service);
        ReadRecovery(handle.Get(), service);
    }
    return service;
}

}  // namespace Inspection
