#include "logging/listener.h"

#include "logging/policy.h"

namespace Orva::Shared {

CorvaLogListener::CorvaLogListener(PolicyLevels policyLevels)
    : m_ignorePolicyLevels(policyLevels == PolicyLevels::kIgnore) {
    if (!m_ignorePolicyLevels) {
        ReadLogLevels();
    }
}

void CorvaLogListener::ReadLogLevels() {
    PolicyKeys keys;
    OpenPolicyKeys(keys);
    const LevelRange range = Orva::Shared::ReadLogLevels(keys);
    m_minLogLevel = range.minLevel;
    m_maxLogLevel = range.maxLevel;
}

}  // namespace Orva::Shared
