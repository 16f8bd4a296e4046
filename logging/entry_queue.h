#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

#include "logging/listener.h"

namespace Orva::Shared {

/// Copies of log entries, first in, first out. They are packed one behind the other into blocks of
/// memory: to append one costs no more than copying its texts, and a million of them need little
/// more room than their texts. Not safe for use by two threads at once.
class EntryQueue {
  public:
    EntryQueue() = default;
    EntryQueue(const EntryQueue&) = delete;
    EntryQueue& operator=(const EntryQueue&) = delete;
    ~EntryQueue() = default;

    [[nodiscard]] bool IsEmpty() const noexcept { return m_blocks.empty(); }

    /// Takes a copy. Throws std::bad_alloc, and the queue is as it was.
    void Append(const CorvaLogListener::LogData& entry);

    /// Makes `entry` a copy of the first one and removes that. The queue must not be empty.
    void TakeFirst(CorvaLogListener::LogData& entry);

    /// Takes all entries of `other`, behind those that are here, in exchange for spare memory.
    void TakeAll(EntryQueue& other) noexcept;

    void Clear() noexcept { m_blocks.clear(); }

  private:
    struct Block {
        explicit Block(std::size_t size);

        std::unique_ptr<std::byte[]> bytes;
        std::size_t size;
        std::size_t end = 0;    ///< behind the last entry
        std::size_t begin = 0;  ///< of the first entry that was not taken
    };

    [[nodiscard]] Block& BlockFor(std::size_t bytes);
    void DropFirstBlock();

    /// No block is without an entry.
    std::list<Block> m_blocks;
    /// Empty blocks of the usual size, so that a queue which fills and empties all the time needs
    /// no new memory.
    std::list<Block> m_spare;
};

}  // namespace Orva::Shared
