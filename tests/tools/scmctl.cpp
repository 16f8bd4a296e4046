// A hand on the service control manager, for places where Windows' own `sc` is missing or a stub.
//
//     scmctl start NAME                 asks for a start
//     scmctl stop NAME                  asks for a stop
//     scmctl state NAME                 prints the state, for example RUNNING
//     scmctl wait NAME STATE MILLISECONDS
//                                       waits for a state; prints how long it took
//     scmctl end NAME MILLISECONDS      asks for a stop, waits for the process to be gone and prints
//                                       the exit code of service and process
//     scmctl config NAME                prints how the service is registered, a line a field
//     scmctl doom NAME MILLISECONDS     deletes it and keeps it open for so long: marked for deletion
//
// The exit code is 0, or 1 with one line that names the failed call and its error, or 2 for a
// command line that is none of these.
#include <windows.h>
#include <winsvc.h>

#include <cstddef>
#include <cstdio>
#include <cwchar>
#include <string>
#include <string_view>
#include <vector>

#include "platform/handles.h"

namespace {

using Platform::UniqueServiceHandle;

constexpr DWORD kWaitStepMilliseconds = 10;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

struct NamedState {
    DWORD state;
    const char* name;
};

constexpr NamedState kStates[] = {
    {SERVICE_STOPPED, "STOPPED"},
    {SERVICE_START_PENDING, "START_PENDING"},
    {SERVICE_STOP_PENDING, "STOP_PENDING"},
    {SERVICE_RUNNING, "RUNNING"},
    {SERVICE_CONTINUE_PENDING, "CONTINUE_PENDING"},
    {SERVICE_PAUSE_PENDING, "PAUSE_PENDING"},
    {SERVICE_PAUSED, "PAUSED"},
};

/// Prints the failed call with the thread's last error.
int Fail(const char* call) {
    const DWORD error = GetLastError();
    std::printf("%s: error %lu\n", call, error);
    return kFailed;
}

const char* NameOfState(DWORD state) {
    for (const NamedState& known : kStates) {
        if (known.state == state) {
            return known.name;
        }
    }
    return "UNKNOWN";
}

/// Opens a service; an empty handle with the last error set when that fails.
UniqueServiceHandle Open(const wchar_t* name, DWORD access) {
    UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        return {};
    }
    UniqueServiceHandle service(OpenServiceW(manager.Get(), name, access));
    // Closing the manager must not hide why the service could not be opened.
    const DWORD error = GetLastError();
    manager.Reset();
    SetLastError(error);
    return service;
}

int Start(const wchar_t* name) {
    const UniqueServiceHandle service = Open(name, SERVICE_START);
    if (!service) {
        return Fail("OpenService");
    }
    return StartServiceW(service.Get(), 0, nullptr) != FALSE ? 0 : Fail("StartService");
}

/// Asks for a stop; false with the last error set when the manager refuses it.
bool SendStop(SC_HANDLE service) {
    SERVICE_STATUS status{};
    if (ControlService(service, SERVICE_CONTROL_STOP, &status) != FALSE) {
        return true;
    }
    // Wine's dispatcher answers from a thread of its own: a process that ends as soon as it has
    // reported STOPPED may be gone before its answer. How it ended is for the caller to ask.
    return GetLastError() == ERROR_BROKEN_PIPE;
}

int Stop(const wchar_t* name) {
    const UniqueServiceHandle service = Open(name, SERVICE_STOP);
    if (!service) {
        return Fail("OpenService");
    }
    return SendStop(service.Get()) ? 0 : Fail("ControlService");
}

int State(const wchar_t* name) {
    const UniqueServiceHandle service = Open(name, SERVICE_QUERY_STATUS);
    if (!service) {
        return Fail("OpenService");
    }
    SERVICE_STATUS status{};
    if (QueryServiceStatus(service.Get(), &status) == FALSE) {
        return Fail("QueryServiceStatus");
    }
    std::printf("%s\n", NameOfState(status.dwCurrentState));
    return 0;
}

int Wait(const wchar_t* name, const char* wanted, DWORD patienceMilliseconds) {
    const UniqueServiceHandle service = Open(name, SERVICE_QUERY_STATUS);
    if (!service) {
        return Fail("OpenService");
    }
    const ULONGLONG start = GetTickCount64();
    for (;;) {
        SERVICE_STATUS status{};
        if (QueryServiceStatus(service.Get(), &status) == FALSE) {
            return Fail("QueryServiceStatus");
        }
        const ULONGLONG elapsed = GetTickCount64() - start;
        const char* const state = NameOfState(status.dwCurrentState);
        if (std::string_view(state) == wanted) {
            std::printf("%s after %llu ms\n", state, elapsed);
            return 0;
        }
        if (elapsed >= patienceMilliseconds) {
            std::printf("still %s after %llu ms\n", state, elapsed);
            return kFailed;
        }
        Sleep(kWaitStepMilliseconds);
    }
}

/// The process of a running service; empty, with the last error set, when there is none.
Platform::UniqueHandle OpenProcessOf(SC_HANDLE service) {
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    if (QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                             sizeof(status), &needed) == FALSE) {
        return {};
    }
    return Platform::UniqueHandle(
        OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, status.dwProcessId));
}

int End(const wchar_t* name, DWORD patienceMilliseconds) {
    const UniqueServiceHandle service = Open(name, SERVICE_STOP | SERVICE_QUERY_STATUS);
    if (!service) {
        return Fail("OpenService");
    }
    const Platform::UniqueHandle process = OpenProcessOf(service.Get());
    if (!process) {
        return Fail("OpenProcess");
    }
    if (!SendStop(service.Get())) {
        return Fail("ControlService");
    }
    if (WaitForSingleObject(process.Get(), patienceMilliseconds) != WAIT_OBJECT_0) {
        return Fail("WaitForSingleObject");
    }
    DWORD exitCode = 0;
    if (GetExitCodeProcess(process.Get(), &exitCode) == FALSE) {
        return Fail("GetExitCodeProcess");
    }
    SERVICE_STATUS status{};
    if (QueryServiceStatus(service.Get(), &status) == FALSE) {
        return Fail("QueryServiceStatus");
    }
    std::printf("%s, service %lu, process %lu\n", NameOfState(status.dwCurrentState), status.dwWin32ExitCode,
                exitCode);
    return 0;
}

/// Room for the answer of one of the two-step query functions, big enough for any service.
std::vector<std::byte> ConfigBuffer() {
    constexpr std::size_t kMostBytes = 8192;  // the documented maximum of QueryServiceConfig
    return std::vector<std::byte>(kMostBytes);
}

int Config(const wchar_t* name) {
    const UniqueServiceHandle service = Open(name, SERVICE_QUERY_CONFIG);
    if (!service) {
        return Fail("OpenService");
    }
    std::vector<std::byte> buffer = ConfigBuffer();
    DWORD needed = 0;
    auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    if (QueryServiceConfigW(service.Get(), config, static_cast<DWORD>(buffer.size()), &needed) == FALSE) {
        return Fail("QueryServiceConfig");
    }
    std::printf("display name: %ls\n", config->lpDisplayName);
    std::printf("binary path: %ls\n", config->lpBinaryPathName);
    std::printf("type: 0x%lx\nstart: %lu\nerror control: %lu\n", config->dwServiceType, config->dwStartType,
                config->dwErrorControl);
    for (const wchar_t* each = config->lpDependencies; each != nullptr && *each != L'\0';
         each += std::wcslen(each) + 1) {
        std::printf("depends on: %ls\n", each);
    }
    std::printf("account: %ls\n", config->lpServiceStartName);

    std::vector<std::byte> descriptionBuffer = ConfigBuffer();
    const auto* const description = reinterpret_cast<const SERVICE_DESCRIPTIONW*>(descriptionBuffer.data());
    if (QueryServiceConfig2W(service.Get(), SERVICE_CONFIG_DESCRIPTION,
                             reinterpret_cast<BYTE*>(descriptionBuffer.data()),
                             static_cast<DWORD>(descriptionBuffer.size()), &needed) == FALSE) {
        return Fail("QueryServiceConfig2");
    }
    std::printf("description: %ls\n",
                description->lpDescription != nullptr ? description->lpDescription : L"");
    return 0;
}

int Doom(const wchar_t* name, DWORD milliseconds) {
    const UniqueServiceHandle service = Open(name, DELETE);
    if (!service) {
        return Fail("OpenService");
    }
    if (DeleteService(service.Get()) == FALSE) {
        return Fail("DeleteService");
    }
    std::printf("doomed\n");
    std::fflush(stdout);
    Sleep(milliseconds);
    return 0;
}

int Usage() {
    std::printf("usage: scmctl start|stop|state|config NAME | wait NAME STATE MS | end|doom NAME MS\n");
    return kUsage;
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
    if (argumentCount < 3) {
        return Usage();
    }
    const std::wstring_view command = arguments[1];
    const wchar_t* const name = arguments[2];
    if (command == L"start") {
        return Start(name);
    }
    if (command == L"stop") {
        return Stop(name);
    }
    if (command == L"state") {
        return State(name);
    }
    if (command == L"config") {
        return Config(name);
    }
    if (command == L"end" && argumentCount > 3) {
        return End(name, std::wcstoul(arguments[3], nullptr, 10));
    }
    if (command == L"doom" && argumentCount > 3) {
        return Doom(name, std::wcstoul(arguments[3], nullptr, 10));
    }
    if (command == L"wait" && argumentCount > 4) {
        const std::wstring_view wide = arguments[3];
        const std::string wanted(wide.begin(), wide.end());
        return Wait(name, wanted.c_str(), std::wcstoul(arguments[4], nullptr, 10));
    }
    return Usage();
}
