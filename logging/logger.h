#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <type_traits>

#include "logging/listener.h"
#include "logging/scope_timer.h"

namespace Orva::Shared {

/// The process's log. It filters each entry by level, stamps it and hands it to every listener
/// whose own range takes it. Any thread may write at any time; no lock is taken here.
class CorvaLogger {
  public:
    static constexpr int kMostListeners = 10;

    /// Takes ownership of `count` listeners (empty places are passed over; ten at most are kept).
    CorvaLogger(CorvaLogListener* const* listeners, int count);
    CorvaLogger(const CorvaLogger&) = delete;
    CorvaLogger& operator=(const CorvaLogger&) = delete;
    /// Ends its listeners. Nobody may be writing any more.
    ~CorvaLogger();

    /// Whether an entry of this level goes anywhere.
    [[nodiscard]] bool Takes(int level) const noexcept {
        return m_listenerCount >= 1 && level >= m_minLevel && level <= m_maxLevel;
    }

    /// Writes one entry. `format` is printf-style with the C runtime's wide meaning: `%s` is wide
    /// text, `%S` narrow; null or empty gives an empty message. A message is cut at 511
    /// characters. Never reports failure and keeps the thread's last-error value. An entry that
    /// no listener takes costs three comparisons: its arguments are neither formatted nor copied.
    template <class... Args>
    void Write(int level, const char* functionName, const wchar_t* format, const Args&... args) {
        static_assert((kIsFormatArgument<Args> && ...), "printf takes numbers and pointers only");
        if (Takes(level)) {
            WriteFormatted(level, functionName, format, args...);
        }
    }

    /// Deletes the listeners, one after the other. A file listener drains its queue first, with what comes
    /// while its writer works. Entries that come later go nowhere. Other threads may write at any time:
    /// while one of them is on its way through the listeners, those that it may have looked up stay, to
    /// the end of the process.
    void EndListeners() noexcept;

    /// Whether operations are to measure how long they take (see `LogScopeTimer`).
    [[nodiscard]] bool TimingEnabled() const noexcept { return m_timingEnabled; }
    [[nodiscard]] TimingStatistics& Statistics() noexcept { return m_statistics; }

    /// The file listener that decided whether timing is on; null when there is none.
    [[nodiscard]] const CorvaLogListener* PrimaryFileListener() const noexcept {
        return m_primaryFileListener;
    }

  private:
    template <class T>
    static constexpr bool kIsFormatArgument =
        std::is_arithmetic_v<std::decay_t<T>> || std::is_pointer_v<std::decay_t<T>> ||
        std::is_enum_v<std::decay_t<T>>;

    void WriteFormatted(int level, const char* functionName, const wchar_t* format, ...);
    void Dispatch(const CorvaLogListener::LogData& entry);

    std::array<std::atomic<CorvaLogListener*>, kMostListeners> m_listeners{};
    int m_listenerCount = 0;
    int m_minLevel = Level::kNever;
    /// Never below "Error", whatever the listeners allow: each of them filters again.
    int m_maxLevel = Level::kError;
    bool m_timingEnabled = false;
    const CorvaLogListener* m_primaryFileListener = nullptr;
    TimingStatistics m_statistics;
};

/// Makes a logger with the listeners that policy selects.
[[nodiscard]] std::unique_ptr<CorvaLogger> CreateLogger();

/// Creates the process-wide logger and sees to the end of its listeners at process exit. For `LoggerHolder`.
[[nodiscard]] std::unique_ptr<CorvaLogger>& MakeLoggerHolder();

/// The place that owns the process-wide logger. Making it creates the logger.
[[nodiscard]] inline std::unique_ptr<CorvaLogger>& LoggerHolder() {
    static std::unique_ptr<CorvaLogger>& holder = MakeLoggerHolder();
    return holder;
}

/// The process-wide logger, made by the first call; its listeners end at process exit. Made anew
/// when its holder was emptied. Any thread. Inline, so that a line which is not taken costs next to
/// nothing.
[[nodiscard]] inline CorvaLogger& GetLogger() {
    std::unique_ptr<CorvaLogger>& holder = LoggerHolder();
    if (holder == nullptr) {
        holder = CreateLogger();
    }
    return *holder;
}

}  // namespace Orva::Shared
