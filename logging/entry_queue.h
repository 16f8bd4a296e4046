#pragma once

#include <cstddef>
#include <vector>

#include "logging/log_data.h"

namespace Orva::Shared {

/// Copies of log entries, first in, first out, packed one behind the other: to append one costs no more
/// than copying its texts, and where the block grows, those that wait. With a deque of entries, queued calls
/// miss their bounds in `logging_bench`. Not safe for use by two threads at once.
class EntryQueue {
  public:
    [[nodiscard]] bool IsEmpty() const noexcept { return m_first == m_bytes.size(); }

    /// Takes a copy. Throws std::bad_alloc, and the queue is as it was.
    void Append(const CorvaLogListener::LogData& entry);

    /// Makes `entry` a copy of the first one and removes that. The queue must not be empty.
    void TakeFirst(CorvaLogListener::LogData& entry);

    /// Forgets what is queued. Room for a moment's entries is kept.
    void Clear() noexcept;

  private:
    std::vector<std::byte> m_bytes;
    std::size_t m_first = 0;  ///< where the first entry begins
};

}  // namespace Orva::Shared
