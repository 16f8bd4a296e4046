#include "tests/support/log_recorder.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <ostream>

#include "logging/log_data.h"
#include "tests/support/scoped_import.h"

namespace Rig {

namespace Level = Orva::Shared::Level;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::LoggerHolder;

namespace {

std::string LevelText(int level) {
    static const std::map<int, std::string> names{
        {Level::kTraceIn, "TraceIn"}, {Level::kTraceOut, "TraceOut"},
        {Level::kVerbose, "Verbose"}, {Level::kInformation, "Information"},
        {Level::kWarning, "Warning"}, {Level::kError, "Error"},
        {Level::kDiag, "Diag"}};
    const auto found = names.find(level);
    return found != names.end() ? found->second : "level " + std::to_string(level);
}

/// Keeps a logger to the end of the process, because a thread may still be writing to it.
void Retire(std::unique_ptr<CorvaLogger> logger) {
    static Detail::RigLock& lock = *new Detail::RigLock();
    static auto& retired = *new std::vector<std::unique_ptr<CorvaLogger>>();
    const Detail::RigLockHolder hold(lock);
    retired.push_back(std::move(logger));
}

}  // namespace

void PrintTo(const LogLine& line, std::ostream* out) {
    *out << LevelText(line.level) << " " << line.function << " " << testing::PrintToString(line.message);
}

namespace Lines {

LogLine TraceIn(std::string function, std::wstring message) {
    return {Level::kTraceIn, std::move(function), std::move(message)};
}
LogLine TraceOut(std::string function, std::wstring message) {
    return {Level::kTraceOut, std::move(function), std::move(message)};
}
LogLine Verbose(std::string function, std::wstring message) {
    return {Level::kVerbose, std::move(function), std::move(message)};
}
LogLine Information(std::string function, std::wstring message) {
    return {Level::kInformation, std::move(function), std::move(message)};
}
LogLine Warning(std::string function, std::wstring message) {
    return {Level::kWarning, std::move(function), std::move(message)};
}
LogLine Error(std::string function, std::wstring message) {
    return {Level::kError, std::move(function), std::move(message)};
}
LogLine Diag(std::string function, std::wstring message) {
    return {Level::kDiag, std::move(function), std::move(message)};
}

}  // namespace Lines

/// The recorded lines; shared by the recorder and its listener, which outlives it.
class LogRecorder::Store {
  public:
    void Add(LogLine line) {
        const Detail::RigLockHolder hold(m_lock);
        m_lines.push_back(std::move(line));
        m_lock.WakeAll();
    }

    void Clear() {
        const Detail::RigLockHolder hold(m_lock);
        m_lines.clear();
    }

    [[nodiscard]] std::vector<LogLine> Lines() const {
        const Detail::RigLockHolder hold(m_lock);
        return m_lines;
    }

    [[nodiscard]] bool WaitFor(const LogLine& line, std::chrono::milliseconds patience) {
        const auto end = std::chrono::steady_clock::now() + patience;
        const Detail::RigLockHolder hold(m_lock);
        while (std::find(m_lines.begin(), m_lines.end(), line) == m_lines.end()) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                return false;
            }
            m_lock.Wait(static_cast<DWORD>(left.count()));
        }
        return true;
    }

  private:
    mutable Detail::RigLock m_lock;
    std::vector<LogLine> m_lines;
};

/// Takes every level of the range. With timing on it passes for the log file, since a file that
/// takes "Diag" is what makes operations measure themselves.
class LogRecorder::Listener final : public CorvaLogListener {
  public:
    Listener(std::shared_ptr<Store> store, Timing timing)
        : CorvaLogListener(PolicyLevels::kIgnore), m_store(std::move(store)), m_timing(timing) {
        m_minLogLevel = Level::kTraceIn;
        m_maxLogLevel = timing == Timing::kOn ? Level::kDiag : Level::kError;
    }

    void Log(const LogData& entry) override {
        m_store->Add({entry.GetLevel(), std::string(entry.FunctionName()), std::wstring(entry.Message())});
    }

    [[nodiscard]] int GetType() const override {
        return m_timing == Timing::kOn ? Orva::Shared::ListenerType::kQueuedFile
                                       : Orva::Shared::ListenerType::kDebug;
    }

  private:
    std::shared_ptr<Store> m_store;
    Timing m_timing;
};

LogRecorder::LogRecorder(Timing timing) : m_store(std::make_shared<Store>()) {
    CorvaLogListener* const listener = std::make_unique<Listener>(m_store, timing).release();
    m_logger = std::make_unique<CorvaLogger>(&listener, 1);
    // Swapped, so that the place is never empty for a thread that is writing.
    LoggerHolder().swap(m_logger);
}

LogRecorder::~LogRecorder() {
    LoggerHolder().swap(m_logger);
    Retire(std::move(m_logger));
}

template <class Predicate>
std::vector<LogLine> LogRecorder::LinesIf(Predicate predicate) const {
    const std::vector<LogLine> all = m_store->Lines();
    std::vector<LogLine> some;
    std::copy_if(all.begin(), all.end(), std::back_inserter(some), predicate);
    return some;
}

std::vector<LogLine> LogRecorder::Lines() const {
    return m_store->Lines();
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

bool LogRecorder::Contains(const LogLine& line) const {
    return Count(line) != 0;
}

int LogRecorder::Count(const LogLine& line) const {
    const std::vector<LogLine> all = m_store->Lines();
    return static_cast<int>(std::count(all.begin(), all.end(), line));
}

bool LogRecorder::WaitFor(const LogLine& line, std::chrono::milliseconds patience) const {
    return m_store->WaitFor(line, patience);
}

void LogRecorder::Clear() {
    m_store->Clear();
}

}  // namespace Rig
