#include "logging/entry_queue.h"

#include <cstdint>
#include <cstring>
#include <string_view>

namespace Orva::Shared {
namespace {

/// What the lines of a few cable events need.
constexpr std::size_t kMostSpareBytes = std::size_t{256} * 1024;

/// What stands before an entry's message and function name.
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

void EntryQueue::Append(const CorvaLogListener::LogData& entry) {
    const std::wstring_view message = entry.Message();
    const std::string_view name = entry.FunctionName();
    const PackedEntry packed{entry.Time(), entry.ThreadId(), entry.GetLevel(),
                             static_cast<std::uint32_t>(message.size() * sizeof(wchar_t)),
                             static_cast<std::uint32_t>(name.size())};
    const std::size_t end = m_bytes.size();
    m_bytes.resize(end + packed.Bytes());
    std::byte* const place = m_bytes.data() + end;
    std::memcpy(place, &packed, sizeof(packed));
    std::memcpy(place + sizeof(packed), message.data(), packed.messageBytes);
    std::memcpy(place + sizeof(packed) + packed.messageBytes, name.data(), packed.nameBytes);
}

void EntryQueue::TakeFirst(CorvaLogListener::LogData& entry) {
    const std::byte* const place = m_bytes.data() + m_first;
    PackedEntry packed{};
    std::memcpy(&packed, place, sizeof(packed));
    const auto* const message = reinterpret_cast<const wchar_t*>(place + sizeof(packed));
    const auto* const name = reinterpret_cast<const char*>(place + sizeof(packed) + packed.messageBytes);
    entry.Assign({name, packed.nameBytes}, {message, packed.messageBytes / sizeof(wchar_t)}, packed.level,
                 packed.time, packed.threadId);
    m_first += packed.Bytes();
    if (IsEmpty()) {
        Clear();
    }
}

void EntryQueue::Clear() noexcept {
    if (m_bytes.capacity() <= kMostSpareBytes) {
        m_bytes.clear();
    } else {
        m_bytes = std::vector<std::byte>();
    }
    m_first = 0;
}

}  // namespace Orva::Shared
