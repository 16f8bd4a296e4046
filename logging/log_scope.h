#pragma once

#include <memory>
#include <utility>

#include "logging/log_data.h"
#include "logging/logger.h"
#include "logging/scope_timer.h"

/// The log lines of one run of one operation, with the operation's qualified name standing once:
///
///     bool CheckSomething() {
///         LogScope log("ServiceUtils::CheckSomething");          // TraceIn (and starts timing)
///         log.Information(L"Looking at %s", name);
///         return log.Return(L"Return = %d", found);              // TraceOut at scope end
///     }
///
/// The entry line is written by the constructor, the exit line by the destructor, which then ends
/// the timer, if timing is on. Make it the first local of the function, so that what `Guard` writes
/// comes before the exit line.
class LogScope {
  public:
    /// TraceIn with an empty text.
    explicit LogScope(const char* functionName) : LogScope(functionName, nullptr) {}

    /// TraceIn with the operation's arguments.
    template <class... Args>
    LogScope(const char* functionName, const wchar_t* format, const Args&... args)
        : m_functionName(functionName) {
        Write(Orva::Shared::Level::kTraceIn, format, args...);
        StartTimer();
    }

    LogScope(const LogScope&) = delete;
    LogScope& operator=(const LogScope&) = delete;
    ~LogScope();

    template <class... Args>
    void Verbose(const wchar_t* format, const Args&... args) const {
        Write(Orva::Shared::Level::kVerbose, format, args...);
    }
    template <class... Args>
    void Information(const wchar_t* format, const Args&... args) const {
        Write(Orva::Shared::Level::kInformation, format, args...);
    }
    template <class... Args>
    void Warning(const wchar_t* format, const Args&... args) const {
        Write(Orva::Shared::Level::kWarning, format, args...);
    }
    template <class... Args>
    void Error(const wchar_t* format, const Args&... args) const {
        Write(Orva::Shared::Level::kError, format, args...);
    }

    /// `Error` for a step that failed, with what is answered then, which is handed through.
    template <class T, class... Args>
    [[nodiscard]] T Failure(T answer, const wchar_t* format, const Args&... args) const {
        Error(format, args...);
        return answer;
    }

    /// Words the exit line; the last call holds, also against `OmitExitLine`. Formatted only if it is taken.
    template <class... Args>
    void ExitLine(const wchar_t* format, const Args&... args) {
        if (Orva::Shared::GetLogger().Takes(Orva::Shared::Level::kTraceOut)) {
            FormatExitLine(format, args...);
        }
    }

    /// `ExitLine` with the operation's result, which is handed through.
    template <class T>
    [[nodiscard]] T Return(const wchar_t* format, T result) {
        ExitLine(format, result);
        return result;
    }

    /// Runs `step` and gives its answer. Whatever it throws ends here, as the line "Exception in X()" under
    /// the operation's own name X, and the answer is `fallback`.
    template <class T, class Step>
    [[nodiscard]] T Guard(T fallback, Step&& step) const {
        try {
            return std::forward<Step>(step)();
        } catch (...) {
            LogException();
        }
        return fallback;
    }
    /// The same for a step without an answer.
    template <class Step>
    void Guard(Step&& step) const {
        try {
            std::forward<Step>(step)();
        } catch (...) {
            LogException();
        }
    }

    /// For the few ways out that write no exit line.
    void OmitExitLine() noexcept { m_writesExitLine = false; }

  private:
    template <class... Args>
    void Write(int level, const wchar_t* format, const Args&... args) const {
        Orva::Shared::GetLogger().Write(level, m_functionName, format, args...);
    }
    void LogException() const;
    void StartTimer();
    void FormatExitLine(const wchar_t* format, ...);

    const char* m_functionName;
    bool m_writesExitLine = true;
    bool m_hasExitText = false;
    wchar_t m_exitText[Orva::Shared::kMessageCharacters];  ///< written only where it is used
    std::unique_ptr<Orva::Shared::LogScopeTimer> m_timer;
};
