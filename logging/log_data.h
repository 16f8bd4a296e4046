#pragma once

#include <windows.h>

#include <cstddef>
#include <memory_resource>
#include <string>
#include <string_view>

#include "logging/listener.h"

namespace Orva::Shared {

/// Characters of a message's buffer, its end included; longer messages are cut.
constexpr unsigned kMessageCharacters = 512;
static_assert(kMessageCharacters <= 8096, "no message's buffer may be larger");

/// One log entry. Its line is made on first use and kept, so that several listeners share the work. An entry
/// belongs to one thread at a time. Texts are terminated, so that their data serve where a pointer to text is
/// wanted.
class CorvaLogListener::LogData {
  public:
    using allocator_type = std::pmr::polymorphic_allocator<>;  // NOLINT(readability-identifier-naming)

    /// `functionName` may be null (read as empty), `message` too. `memory` is for the texts, and must
    /// outlive the entry; the heap without it.
    LogData(const char* functionName, const wchar_t* message, int level, const SYSTEMTIME& time,
            DWORD threadId, const allocator_type& memory = {});
    LogData(const LogData&) = default;
    /// A copy with its texts in other memory.
    LogData(const LogData& other, const allocator_type& memory);
    LogData& operator=(const LogData&) = default;
    virtual ~LogData() = default;

    [[nodiscard]] std::string_view FunctionName() const noexcept { return m_functionName; }
    [[nodiscard]] std::wstring_view Message() const noexcept { return m_message; }
    [[nodiscard]] int GetLevel() const noexcept { return m_level; }
    /// When the entry was written, in local time.
    [[nodiscard]] const SYSTEMTIME& Time() const noexcept { return m_time; }
    [[nodiscard]] DWORD ThreadId() const noexcept { return m_threadId; }

    /// "TraceIn" to "Diag"; "Undefined" for every other number.
    [[nodiscard]] std::wstring_view GetLevelName() const noexcept { return NameOfLevel(m_level); }

    /// The whole line without its line end: local time, thread, level, function and message,
    /// divided by "|". Short of memory, what comes before the function.
    [[nodiscard]] std::wstring_view GetLogLine() const noexcept;

  private:
    std::pmr::string m_functionName;
    std::pmr::wstring m_message;
    int m_level;
    SYSTEMTIME m_time;
    DWORD m_threadId;
    mutable std::pmr::wstring m_line;
};

/// Memory for the texts of one entry, on the stack as far as an ordinary one needs it. An entry is made for
/// every line: with texts on the heap, queued calls of four threads miss their bound in `logging_bench`.
struct EntryMemory {
    std::byte room[4096];
    std::pmr::monotonic_buffer_resource resource{room, sizeof(room)};
};

}  // namespace Orva::Shared
