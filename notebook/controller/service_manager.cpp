#include "notebook/controller/service_manager.h"

#include <array>

#include "notebook/controller/words.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"
#include "platform/handles.h"

namespace Notebook {

namespace {

constexpr DWORD kServicePollMs = 20;
constexpr DWORD kStubStopMs = 5000;

using ScHandle = Platform::UniqueServiceHandle;

[[noreturn]] void Fail(const std::string& what, DWORD error) {
    throw CommandError(what + " failed with error " + std::to_string(error));
}

/// What a call gave, which has to be something.
template <class Handle>
Handle Checked(Handle handle, const std::string& what) {
    if (!handle) {
        Fail(what, GetLastError());
    }
    return handle;
}

/// Connected to once: each connection costs more than what is asked through it.
SC_HANDLE Manager() {
    static const ScHandle manager =
        Checked(ScHandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)), "OpenSCManager");
    return manager.Get();
}

ScHandle OpenInstalled(const std::wstring& name) {
    return Checked(ScHandle(OpenServiceW(Manager(), name.c_str(), SERVICE_ALL_ACCESS)),
                   "OpenService " + Narrow(name));
}

void Delete(const ScHandle& service, const std::wstring& name) {
    if (DeleteService(service.Get()) == FALSE) {
        Fail("DeleteService " + Narrow(name), GetLastError());
    }
}

}  // namespace

bool IsGone(DWORD process) {
    const Platform::UniqueHandle handle(OpenProcess(SYNCHRONIZE, FALSE, process));
    return !handle || WaitForSingleObject(handle.Get(), 0) == WAIT_OBJECT_0;
}

ServiceState QueryService(const std::wstring& name) {
    ServiceState result;
    const ScHandle service(OpenServiceW(Manager(), name.c_str(), SERVICE_QUERY_STATUS));
    if (!service) {
        return result;
    }
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    result.installed = true;
    if (QueryServiceStatusEx(service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                             sizeof(status), &needed) != FALSE) {
        result.state = status.dwCurrentState;
        result.process = status.dwProcessId;
        result.exitCode = status.dwWin32ExitCode;
    }
    // Not every service manager notices at once that a process was killed.
    if (result.process != 0 && IsGone(result.process)) {
        result.state = SERVICE_STOPPED;
        result.process = 0;
    }
    return result;
}

std::string StateName(const ServiceState& state) {
    static constexpr std::array<const char*, 8> kNames = {"unknown",       "stopped", "start-pending",
                                                          "stop-pending",  "running", "continue-pending",
                                                          "pause-pending", "paused"};
    if (!state.installed) {
        return "absent";
    }
    return state.state < kNames.size() ? kNames[state.state] : kNames[0];
}

void StartInstalled(const std::wstring& name) {
    const ScHandle service = OpenInstalled(name);
    if (StartServiceW(service.Get(), 0, nullptr) == FALSE) {
        Fail("StartService " + Narrow(name), GetLastError());
    }
}

bool SendControl(const std::wstring& name, DWORD control) {
    const ScHandle service = OpenInstalled(name);
    SERVICE_STATUS status{};
    if (ControlService(service.Get(), control, &status) != FALSE) {
        return true;
    }
    const DWORD error = GetLastError();
    // The second is what Wine's manager answers when an earlier control is still being handled. The
    // handler gets this one in its turn.
    if (error == ERROR_SERVICE_REQUEST_TIMEOUT || error == ERROR_IO_INCOMPLETE) {
        return false;
    }
    // Wine's dispatcher answers from a thread of its own: a process that ends as soon as it has
    // reported STOPPED may be gone before its answer. How it ended is asked separately.
    if (error == ERROR_BROKEN_PIPE) {
        return true;
    }
    Fail("ControlService " + Narrow(name), error);
}

bool WaitForState(const std::wstring& name, DWORD state, DWORD milliseconds) {
    const Micros end = Now() + Micros{milliseconds} * kMicrosPerMilli;
    while (true) {
        const ServiceState now = QueryService(name);
        if (now.installed && now.state == state) {
            return true;
        }
        if (Now() >= end) {
            return false;
        }
        Sleep(kServicePollMs);
    }
}

void KillService(const std::wstring& name) {
    const ServiceState state = QueryService(name);
    if (state.process == 0) {
        throw CommandError(Narrow(name) + " does not run");
    }
    const Platform::UniqueHandle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, state.process));
    if (!process || TerminateProcess(process.Get(), 1) == FALSE) {
        Fail("TerminateProcess", GetLastError());
    }
    WaitForSingleObject(process.Get(), INFINITE);
}

void InstallStub(const std::wstring& name, const std::wstring& executable) {
    if (QueryService(name).installed) {
        return;
    }
    const std::wstring command = L"\"" + executable + L"\" " + name;
    Checked(ScHandle(CreateServiceW(Manager(), name.c_str(), name.c_str(), SERVICE_ALL_ACCESS,
                                    SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                    command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr)),
            "CreateService " + Narrow(name));
}

void StopStub(const std::wstring& name) {
    const ServiceState state = QueryService(name);
    if (!state.installed || state.state == SERVICE_STOPPED) {
        return;
    }
    const ScHandle service = OpenInstalled(name);
    SERVICE_STATUS status{};
    if (ControlService(service.Get(), SERVICE_CONTROL_STOP, &status) == FALSE ||
        !WaitForState(name, SERVICE_STOPPED, kStubStopMs)) {
        KillService(name);
    }
}

void MarkForDeletion(const std::wstring& name) {
    static ScHandle kept;
    kept = OpenInstalled(name);
    Delete(kept, name);
}

void RemoveStub(const std::wstring& name) {
    if (!QueryService(name).installed) {
        return;
    }
    StopStub(name);
    Delete(OpenInstalled(name), name);
}

std::string RunProgram(const std::wstring& commandLine, DWORD& exitCode) {
    SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
    Platform::UniqueHandle reading;
    Platform::UniqueHandle writing;
    if (CreatePipe(reading.Put(), writing.Put(), &inherit, 0) == FALSE) {
        Fail("CreatePipe", GetLastError());
    }
    SetHandleInformation(reading.Get(), HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writing.Get();
    startup.hStdError = writing.Get();
    PROCESS_INFORMATION info{};
    std::wstring command = commandLine;
    if (CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                       &info) == FALSE) {
        Fail("CreateProcess", GetLastError());
    }
    const Platform::UniqueHandle process(info.hProcess);
    const Platform::UniqueHandle thread(info.hThread);
    writing.Reset();
    std::string printed;
    std::array<char, 1024> buffer{};
    DWORD read = 0;
    while (ReadFile(reading.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) !=
               FALSE &&
           read != 0) {
        printed.append(buffer.data(), read);
    }
    WaitForSingleObject(process.Get(), INFINITE);
    GetExitCodeProcess(process.Get(), &exitCode);
    return printed;
}

}  // namespace Notebook
