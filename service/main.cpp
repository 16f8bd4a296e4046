#include "core/main_service.h"
#include "service/command_line.h"

namespace {

void RunService() {
    CMainService service;
    RunUntilStopped(service);
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
    return RunCommandLine(argumentCount, arguments, &RunService);
}
