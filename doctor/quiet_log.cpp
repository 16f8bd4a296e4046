#include "logging/logger.h"

namespace Orva::Shared {

/// In place of the service's own (logging/listener_factory.cpp, which is then left out by the linker):
/// a log without outputs. This program looks at the service's log and must not write to it, nor make
/// its folder.
std::unique_ptr<CorvaLogger> CreateLogger() {
    return std::make_unique<CorvaLogger>(nullptr, 0);
}

}  // namespace Orva::Shared
