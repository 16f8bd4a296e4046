#include "tests/support/log_recorder.h"

#include <algorithm>
#include <ostream>

#include "logging/log_data.h"
#include "tests/support/scoped_import.h"

namespace Rig {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using Detail::RigLockHolder;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::LoggerHolder;

void PrintTo(const LogLine& line, std::ostream* out) {
    for (const wchar_t* name = Orva::Shared::NameOfLevel(line.level); *name != L'\0'; ++name) {
        *out << static_cast<char>(*name);
    }
    *out << " " << line.function << " " << testing::PrintToString(line.message);
}

/// Takes every level of the range. With timing on it passes for the log file, since a file that
/// takes "Diag" is what makes operations measure themselves.
class LogRecorder::Listener final : public CorvaLogListener {
  public:
    explicit Listener(Timing timing) : CorvaLogListener(PolicyLevels::kIgnore), m_timing(timing) {
        m_maxLogLevel = timing == Timing::kOn ? Level::kDiag : Level::kError;
    }

    void Log(const LogData& entry) override {
        LogLine line{entry.GetLevel(), std::string(entry.FunctionName()), std::wstring(entry.Message())};
        const RigLockHolder hold(lock);
        lines.push_back(std::move(line));
        lock.WakeAll();
    }

    [[nodiscard]] int GetType() const override {
        return m_timing == Timing::kOn ? ListenerType::kQueuedFile : ListenerType::kDebug;
    }

    Detail::RigLock lock;
    std::vector<LogLine> lines;

  private:
    Timing m_timing;
};

LogRecorder::LogRecorder(Timing timing) : m_listener(std::make_unique<Listener>(timing).release()) {
    CorvaLogListener* const listener = m_listener;
    m_logger = std::make_unique<CorvaLogger>(&listener, 1);
    // Swapped, so that the place is never empty for a thread that is writing.
    LoggerHolder().swap(m_logger);
}

LogRecorder::~LogRecorder() {
    LoggerHolder().swap(m_logger);
    // Left to the end of the process, because a thread may still be writing to it.
    static_cast<void>(m_logger.release());
}

std::vector<LogLine> LogRecorder::Lines() const {
    const RigLockHolder hold(m_listener->lock);
    return m_listener->lines;
}

template <class Predicate>
std::vector<LogLine> LogRecorder::LinesIf(Predicate predicate) const {
    std::vector<LogLine> lines = Lines();
    std::erase_if(lines, [&](const LogLine& line) { return !predicate(line); });
    return lines;
}

std::vector<LogLine> LogRecorder::From(int minLevel) const {
    return LinesIf([=](const LogLine& line) { return line.level >= minLevel; });
}

std::vector<LogLine> LogRecorder::At(int level) const {
    return LinesIf([=](const LogLine& line) { return line.level == level; });
}

std::vector<LogLine> LogRecorder::Of(std::string_view function) const {
    return LinesIf([=](const LogLine& line) { return line.function == function; });
}

int LogRecorder::Count(const LogLine& line) const {
    return static_cast<int>(std::ranges::count(Lines(), line));
}

bool LogRecorder::WaitFor(const LogLine& line, std::chrono::milliseconds timeout) const {
    const auto end = std::chrono::steady_clock::now() + timeout;
    const RigLockHolder hold(m_listener->lock);
    while (std::ranges::find(m_listener->lines, line) == m_listener->lines.end()) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        m_listener->lock.Wait(static_cast<DWORD>(left.count()));
    }
    return true;
}

void LogRecorder::Clear() {
    const RigLockHolder hold(m_listener->lock);
    m_listener->lines.clear();
}

}  // namespace Rig
