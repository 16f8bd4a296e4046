#include "logging/logger.h"

namespace Orva::Shared {

CorvaLogListener::CorvaLogListener(PolicyLevels policyLevels)
    : m_ignorePolicyLevels(policyLevels == PolicyLevels::kIgnore) {
    static_cast<void>(m_ignorePolicyLevels);
}

std::unique_ptr<CorvaLogger> CreateLogger() {
    return std::make_unique<CorvaLogger>(nullptr, 0);
}

}  // namespace Orva::Shared
