#include "logging/entry_queue.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace Orva::Shared {
namespace {

/// Room for some hundred entries.
constexpr std::size_t kBlockBytes = std::size_t{64} * 1024;
/// What the lines of a few cable events need.
constexpr std::size_t kMostSpareBlocks = 4;

/// What stands in a block before an entry's message and function name.
struct PackedEntry {
    SYSTEMTIME time;
    DWORD threadId;
    int level;
    std::uint32_t messageBytes;
    std::uint32_t nameBytes;

    [[nodiscard]] std::size_t Bytes() const noexcept {
        // Rounded up, so that the next entry is aligned.
        const std::size_t bytes = sizeof(PackedEntry) + messageBytes + nameBytes;
        return (bytes + alignof(PackedEntry) - 1) / alignof(PackedEntry) * alignof(PackedEntry);
    }
};

}  // namespace

EntryQueue::Block::Block(std::size_t blockSize)
    : bytes(std::make_unique_for_overwrite<std::byte[]>(blockSize)), size(blockSize) {}

void EntryQueue::Append(const CorvaLogListener::LogData& entry) {
    const std::wstring_view message = entry.Message();
    const std::string_view name = entry.FunctionName();
    const PackedEntry packed{entry.Time(), entry.ThreadId(), entry.GetLevel(),
                             static_cast<std::uint32_t>(message.size() * sizeof(wchar_t)),
                             static_cast<std::uint32_t>(name.size())};
    Block& block = BlockFor(packed.Bytes());
    std::byte* const place = block.bytes.get() + block.end;
    std::memcpy(place, &packed, sizeof(packed));
    std::memcpy(place + sizeof(packed), message.data(), packed.messageBytes);
    std::memcpy(place + sizeof(packed) + packed.messageBytes, name.data(), packed.nameBytes);
    block.end += packed.Bytes();
}

EntryQueue::Block& EntryQueue::BlockFor(std::size_t bytes) {
    if (m_blocks.empty() || m_blocks.back().size - m_blocks.back().end < bytes) {
        if (!m_spare.empty() && bytes <= kBlockBytes) {
            m_blocks.splice(m_blocks.end(), m_spare, m_spare.begin());
        } else {
            m_blocks.emplace_back(std::max(kBlockBytes, bytes));
        }
    }
    return m_blocks.back();
}

void EntryQueue::TakeFirst(CorvaLogListener::LogData& entry) {
    Block& block = m_blocks.front();
    const std::byte* const place = block.bytes.get() + block.begin;
    PackedEntry packed{};
    std::memcpy(&packed, place, sizeof(packed));
    const auto* const message = reinterpret_cast<const wchar_t*>(place + sizeof(packed));
    const auto* const name = reinterpret_cast<const char*>(place + sizeof(packed) + packed.messageBytes);
    entry.Assign({name, packed.nameBytes}, {message, packed.messageBytes / sizeof(wchar_t)}, packed.level,
                 packed.time, packed.threadId);
    block.begin += packed.Bytes();
    if (block.begin == block.end) {
        DropFirstBlock();
    }
}

void EntryQueue::DropFirstBlock() {
    Block& block = m_blocks.front();
    if (block.size == kBlockBytes && m_spare.size() < kMostSpareBlocks) {
        block.begin = 0;
        block.end = 0;
        m_spare.splice(m_spare.begin(), m_blocks, m_blocks.begin());
    } else {
        m_blocks.pop_front();
    }
}

void EntryQueue::TakeAll(EntryQueue& other) noexcept {
    m_blocks.splice(m_blocks.end(), other.m_blocks);
    other.m_spare.splice(other.m_spare.begin(), m_spare);
    while (other.m_spare.size() > kMostSpareBlocks) {
        other.m_spare.pop_back();
    }
}

}  // namespace Orva::Shared
