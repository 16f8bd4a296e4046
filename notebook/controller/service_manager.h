#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace Notebook {

inline constexpr wchar_t kServiceName[] = L"LinkvaneService";

/// What the service manager knows of a service.
struct ServiceState {
    bool installed = false;
    DWORD state = SERVICE_STOPPED;
    DWORD process = 0;
    DWORD exitCode = 0;
};

/// Whether the process has ended, or never was.
bool IsGone(DWORD process);

ServiceState QueryService(const std::wstring& name);
/// "absent", "stopped", "start-pending", ... as `status` writes it.
std::string StateName(const ServiceState& state);

/// The operations below throw `CommandError` when the manager refuses.
void StartInstalled(const std::wstring& name);
/// Sends a control. Returns false when the manager gave up waiting for the handler (error 1053):
/// the handler goes on. A process that ended over its control counts as one that answered.
bool SendControl(const std::wstring& name, DWORD control);
/// Waits until the service is in the state; returns whether it came to be.
bool WaitForState(const std::wstring& name, DWORD state, DWORD milliseconds);
/// Ends the service's process and waits until it is gone.
void KillService(const std::wstring& name);

/// Registers a stub in place of WLAN or WWAN AutoConfig, unless it is there.
void InstallStub(const std::wstring& name, const std::wstring& executable);
/// Stops it, by force where it does not answer.
void StopStub(const std::wstring& name);
/// Deletes a service and keeps it open until this process ends: so long it stays, marked for deletion.
void MarkForDeletion(const std::wstring& name);
void RemoveStub(const std::wstring& name);

/// Runs a program to its end; returns what it printed.
std::string RunProgram(const std::wstring& commandLine, DWORD& exitCode);

}  // namespace Notebook
