#include <cstddef>
#include <new>

#include "core/main_service.h"
#include "service/command_line.h"

namespace {

void RunService() {
    // A stop waits for no thread. One that is still at work after the service's end must not find
    // its flags overwritten, so their place is never used for anything else.
    alignas(CMainService) static std::byte place[sizeof(CMainService)];
    auto* const service = ::new (place) CMainService;
    RunUntilStopped(*service);
    service->~CMainService();
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
    return RunCommandLine(argumentCount, arguments, &RunService);
}
