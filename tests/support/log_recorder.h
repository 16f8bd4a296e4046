#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logging/logger.h"

namespace Rig {

/// One line of the log as a test sees it.
struct LogLine {
    int level;
    std::string function;
    std::wstring message;

    friend bool operator==(const LogLine&, const LogLine&) = default;
};

/// Prints as `Error ServiceUtils::CheckSomething "text"`.
void PrintTo(const LogLine& line, std::ostream* out);

/// Lines by their level, to compare with: `ElementsAre(TraceIn("A::B"), Error("A::B", L"text"))`.
/// Names of their own, so that `using namespace Rig::Lines;` brings just these.
namespace Lines {
struct OfLevel {
    int level;
    [[nodiscard]] LogLine operator()(std::string function, std::wstring message = {}) const {
        return {level, std::move(function), std::move(message)};
    }
};
constexpr OfLevel TraceIn{Orva::Shared::Level::kTraceIn};
constexpr OfLevel TraceOut{Orva::Shared::Level::kTraceOut};
constexpr OfLevel Verbose{Orva::Shared::Level::kVerbose};
constexpr OfLevel Information{Orva::Shared::Level::kInformation};
constexpr OfLevel Warning{Orva::Shared::Level::kWarning};
constexpr OfLevel Error{Orva::Shared::Level::kError};
constexpr OfLevel Diag{Orva::Shared::Level::kDiag};
}  // namespace Lines

/// Matches a line whose parts are known only in part:
/// `Line(Level::kError, "A::B", StartsWith(L"failed"))`, `Line(_, "A::B", _)`.
template <class LevelMatcher, class FunctionMatcher, class MessageMatcher>
[[nodiscard]] testing::Matcher<LogLine> Line(LevelMatcher level, FunctionMatcher function,
                                             MessageMatcher message) {
    return testing::AllOf(testing::Field("level", &LogLine::level, level),
                          testing::Field("function", &LogLine::function, function),
                          testing::Field("message", &LogLine::message, message));
}

/// Takes the place of the process's log for a scope and keeps what is written to it:
///
///     LogRecorder log;
///     CodeUnderTest();
///     EXPECT_THAT(log.From(Level::kInformation),
///                 ElementsAre(Lines::Information("Utils::X", L"text"),
///                             Lines::Error("Utils::X", L"CreateEvent() failed")));
///
/// Any thread may write, also after the end of the scope: the recorder's logger lives to the end
/// of the process. The log that the process had comes back at the end of the scope. Make the
/// recorder before a `Ledger`: it is the first to ask for the log, which then comes into being.
class LogRecorder {
  public:
    enum class Timing {
        kOff,  ///< "TraceIn" to "Error"; no operation is timed
        kOn,   ///< up to "Diag", and operations are timed, as with a log file that takes "Diag"
    };

    explicit LogRecorder(Timing timing = Timing::kOff);
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;
    ~LogRecorder();

    /// Everything so far, in the order of writing.
    [[nodiscard]] std::vector<LogLine> Lines() const;
    /// Without what lies below `minLevel`: `From(Level::kInformation)` leaves the traces out.
    [[nodiscard]] std::vector<LogLine> From(int minLevel) const;
    /// Only the lines of one level.
    [[nodiscard]] std::vector<LogLine> At(int level) const;
    /// Only the lines of one operation.
    [[nodiscard]] std::vector<LogLine> Of(std::string_view function) const;

    [[nodiscard]] bool Contains(const LogLine& line) const { return Count(line) != 0; }
    [[nodiscard]] int Count(const LogLine& line) const;

    /// Waits in real time until a line has been written. False when it was not in time.
    [[nodiscard]] bool WaitFor(const LogLine& line,
                               std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

    /// Forgets the lines so far.
    void Clear();

  private:
    class Listener;

    template <class Predicate>
    [[nodiscard]] std::vector<LogLine> LinesIf(Predicate predicate) const;

    Listener* m_listener;  ///< lives to the end of the process
    /// What stands in the log's place: the process's own while the recorder is in force.
    std::unique_ptr<Orva::Shared::CorvaLogger> m_logger;
};

}  // namespace Rig
