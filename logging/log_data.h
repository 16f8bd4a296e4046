#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "logging/inline_text.h"
#include "logging/listener.h"

namespace Orva::Shared {

/// Characters of a message's buffer, its end included; longer messages are cut.
constexpr unsigned kMessageCharacters = 512;
static_assert(kMessageCharacters <= 8096, "no message's buffer may be larger");
/// Names up to this length, their end included, need no memory of their own.
constexpr std::size_t kInlineNameCharacters = 96;

/// One log entry. Its line and level name are made on first use and kept, so that several
/// listeners share the work. An entry belongs to one thread at a time. Texts are terminated,
/// so that their data serve where a pointer to text is wanted.
class CorvaLogListener::LogData {
  public:
    /// `functionName` may be null (read as empty), `message` too.
    LogData(const char* functionName, const wchar_t* message, int level, const SYSTEMTIME& time,
            DWORD threadId);
    LogData(const LogData&) = default;
    LogData& operator=(const LogData&) = default;
    virtual ~LogData() = default;

    /// Becomes another entry. Memory for the line is kept.
    void Assign(std::string_view functionName, std::wstring_view message, int level, const SYSTEMTIME& time,
                DWORD threadId);

    [[nodiscard]] std::string_view FunctionName() const noexcept { return m_functionName.Text(); }
    [[nodiscard]] std::wstring_view Message() const noexcept { return m_message.Text(); }
    [[nodiscard]] int GetLevel() const noexcept { return m_level; }
    /// When the entry was written, in local time.
    [[nodiscard]] const SYSTEMTIME& Time() const noexcept { return m_time; }
    [[nodiscard]] DWORD ThreadId() const noexcept { return m_threadId; }

    /// "TraceIn" to "Diag"; "Undefined" for every other number.
    [[nodiscard]] std::wstring_view GetLevelName() const noexcept;

    /// The whole line without its line end: local time, thread, level, function and message,
    /// divided by "|". Short of memory, what comes before the function.
    [[nodiscard]] const std::wstring& GetLogLine() const noexcept;

  private:
    void BuildLine() const noexcept;

    InlineText<char, kInlineNameCharacters> m_functionName;
    InlineText<wchar_t, kMessageCharacters> m_message;
    int m_level;
    SYSTEMTIME m_time;
    DWORD m_threadId;
    mutable std::wstring_view m_levelName;
    mutable std::wstring m_line;
};

}  // namespace Orva::Shared
