#include "logging/console_listener.h"

#include "logging/format.h"

namespace Orva::Shared {

void CorvaLogListenerConsole::Log(const LogData& entry) {
    PrintText(L"%S : %s\r\n", entry.FunctionName().data(), entry.Message().data());
}

}  // namespace Orva::Shared
