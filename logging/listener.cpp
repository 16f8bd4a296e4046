#include "logging/listener.h"

#include "logging/policy.h"

namespace Orva::Shared {

CorvaLogListener::CorvaLogListener(PolicyLevels policyLevels) {
    if (policyLevels == PolicyLevels::kRead) {
        PolicyKeys keys;
        OpenPolicyKeys(keys);
        const LevelRange range = ReadLogLevels(keys);
        m_minLogLevel = range.minLevel;
        m_maxLogLevel = range.maxLevel;
    }
}

}  // namespace Orva::Shared
