#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "logging/inline_text.h"
#include "logging/level.h"

namespace Orva::Shared {

/// Type codes of the listeners, which are also the bits of the output selection.
namespace ListenerType {
constexpr int kEvent = 1;
constexpr int kDebug = 2;
constexpr int kQueuedFile = 4;
constexpr int kFile = 8;
constexpr int kConsole = 16;
}  // namespace ListenerType

/// Characters of a message's buffer, its end included; longer messages are cut.
constexpr unsigned kMessageCharacters = 512;
/// Names up to this length, their end included, need no memory of their own.
constexpr std::size_t kInlineNameCharacters = 96;

/// Base of the log's outputs. A listener takes the entries whose level lies in its own range,
/// which policy sets at construction. `Log` is called by any thread, several at once.
class CorvaLogListener {
  public:
    /// One log entry. Its line and level name are made on first use and kept, so that several
    /// listeners share the work. An entry belongs to one thread at a time. Texts are terminated,
    /// so that their data serve where a pointer to text is wanted.
    class LogData {
      public:
        /// `functionName` may be null (read as empty), `message` too.
        LogData(const char* functionName, const wchar_t* message, int level, const SYSTEMTIME& time,
                DWORD threadId);
        LogData(const LogData&) = default;
        LogData& operator=(const LogData&) = default;
        virtual ~LogData() = default;

        /// Becomes another entry. Memory for the line is kept.
        void Assign(std::string_view functionName, std::wstring_view message, int level,
                    const SYSTEMTIME& time, DWORD threadId);

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

    CorvaLogListener(const CorvaLogListener&) = delete;
    CorvaLogListener& operator=(const CorvaLogListener&) = delete;
    /// May throw: the logger ends all of its listeners, whatever becomes of one.
    virtual ~CorvaLogListener() noexcept(false) = default;

    /// Outputs one entry. Failures of the output are not reported.
    virtual void Log(const LogData& entry) = 0;

    /// One of `ListenerType`.
    [[nodiscard]] virtual int GetType() const = 0;

    [[nodiscard]] int MinLogLevel() const noexcept { return m_minLogLevel; }
    [[nodiscard]] int MaxLogLevel() const noexcept { return m_maxLogLevel; }

  protected:
    enum class PolicyLevels : bool { kRead, kIgnore };

    /// Takes the level range from policy (`kRead`), or keeps the default, "TraceIn" to "Error".
    explicit CorvaLogListener(PolicyLevels policyLevels = PolicyLevels::kRead);

    int m_minLogLevel = Level::kTraceIn;
    int m_maxLogLevel = Level::kError;

  private:
    void ReadLogLevels();

    /// Set for listeners whose range does not come from policy. Always clear in the service.
    bool m_ignorePolicyLevels;
};

}  // namespace Orva::Shared
