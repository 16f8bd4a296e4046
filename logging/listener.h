#pragma once

#include <windows.h>

#include <string>

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

/// Base of the log's outputs. A listener takes the entries whose level lies in its own range,
/// which policy sets at construction. `Log` is called by any thread, several at once.
class CorvaLogListener {
  public:
    /// One log entry. Its formatted line and level name are made on first use and kept, so that
    /// several listeners share the work. An entry belongs to one thread at a time.
    class LogData {
      public:
        /// `functionName` may be null (read as empty). The entry is stamped by the caller.
        LogData(const char* functionName, const wchar_t* message, int level, const SYSTEMTIME& time,
                DWORD threadId);
        LogData(const LogData&) = default;
        LogData& operator=(const LogData&) = default;
        LogData(LogData&&) = default;
        LogData& operator=(LogData&&) = default;
        virtual ~LogData() = default;

        [[nodiscard]] const std::string& FunctionName() const noexcept { return m_functionName; }
        [[nodiscard]] const std::wstring& Message() const noexcept { return m_message; }
        [[nodiscard]] int GetLevel() const noexcept { return m_level; }

        /// "TraceIn" to "Diag"; "Undefined" for every other number.
        [[nodiscard]] const std::wstring& GetLevelName() const;

        /// The whole line without its line end: local time, thread, level, function and message,
        /// divided by "|".
        [[nodiscard]] const std::wstring& GetLogLine() const;

      private:
        std::string m_functionName;
        std::wstring m_message;
        int m_level;
        SYSTEMTIME m_time;
        DWORD m_threadId;
        mutable std::wstring m_levelName;
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
