#include "service/command_line.h"

#include <windows.h>

#include <cwchar>

#include "logging/logger.h"
#include "service/com_security.h"
#include "service/console.h"
#include "service/service_installer.h"

using Orva::Shared::GetLogger;
using Orva::Shared::Level::kError;
using Orva::Shared::Level::kInformation;

namespace {

constexpr char kFunctionName[] = "wmain";

/// Does what a switch asks for; its name stands without "-" or "/". An unknown one says nothing.
void RunSwitch(const wchar_t* name) {
    if (_wcsicmp(name, L"install") == 0) {
        InstallService();
        GetLogger().Write(kInformation, kFunctionName, L"  Install Service.");
    } else if (_wcsicmp(name, L"remove") == 0) {
        UninstallService();
        GetLogger().Write(kInformation, kFunctionName, L"Uninstall Service.");
    }
}

}  // namespace

int RunCommandLine(int argumentCount, wchar_t** arguments, void (*runService)()) {
    if (argumentCount > 1 && (arguments[1][0] == L'-' || arguments[1][0] == L'/')) {
        RunSwitch(arguments[1] + 1);
        return 0;
    }
    // Printed at every start as a service too, which is harmless: a service has no console.
    Console::PrintText(L"Parameters:\n");
    Console::PrintText(L" -install  to install the service.\n");
    Console::PrintText(L" -remove   to remove the service.\n");
    // Before any other thread exists. The service runs without it too.
    static_cast<void>(InitializeSecurity());
    runService();
    return 0;
}

void RunUntilStopped(CServiceBase& service) {
    if (!CServiceBase::Run(service)) {
        const DWORD error = GetLastError();
        GetLogger().Write(kError, kFunctionName, L"Service failed to run w/err 0x%08lx", error);
        Console::Print(L"Service failed to run w/err 0x%08lx\n", error);
    }
}
