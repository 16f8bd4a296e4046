#include "logging/timing_statistics.h"

#include <algorithm>

namespace Orva::Shared {

void TimingStatistics::Add(const char* functionName, double elapsedMilliseconds) {
    const std::string name(functionName != nullptr ? functionName : "");
    const CriticalSectionLock lock(m_lock);
    Record& record = m_records[name];
    record.totalMilliseconds += elapsedMilliseconds;
    ++record.count;
    m_longestName = std::max(m_longestName, static_cast<std::uint32_t>(name.size()));
}

TimingStatistics::Record TimingStatistics::Find(const std::string& functionName) const {
    const CriticalSectionLock lock(m_lock);
    const auto found = m_records.find(functionName);
    return found == m_records.end() ? Record{} : found->second;
}

std::uint32_t TimingStatistics::LongestName() const {
    const CriticalSectionLock lock(m_lock);
    return m_longestName;
}

}  // namespace Orva::Shared
