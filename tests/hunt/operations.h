#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "logging/log_data.h"

namespace RandomEvents {

/// The service's operations that a thread is in, outermost first, as the lines tell that it writes to the
/// log.
class Operations {
  public:
    /// At each of them.
    void Follow(const Orva::Shared::CorvaLogListener::LogData& line) {
        if (line.GetLevel() == Orva::Shared::Level::kTraceIn) {
            m_names.emplace_back(line.FunctionName());
        } else if (line.GetLevel() == Orva::Shared::Level::kTraceOut) {
            // A line of either kind may be missing, for want of memory.
            const auto ended = std::ranges::find(m_names.rbegin(), m_names.rend(), line.FunctionName());
            m_names.erase(ended == m_names.rend() ? m_names.end() : ended.base() - 1, m_names.end());
        }
    }

    [[nodiscard]] const std::vector<std::string>& Names() const { return m_names; }
    /// Empty outside of all.
    [[nodiscard]] std::string_view Innermost() const {
        return m_names.empty() ? std::string_view() : std::string_view(m_names.back());
    }

  private:
    std::vector<std::string> m_names;
};

}  // namespace RandomEvents
