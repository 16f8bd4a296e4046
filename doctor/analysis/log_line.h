#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Doctor {

/// Milliseconds since 1970-01-01 00:00 of the log's own local time. The log names no time zone.
using Time = std::int64_t;

/// The numbers are those of the service's log, in which larger is graver.
enum class Level : std::uint8_t {
    kTraceIn,
    kTraceOut,
    kVerbose,
    kInformation,
    kWarning,
    kError,
    kDiag,
};
constexpr int kLevelCount = 7;

std::string_view LevelName(Level level);

/// One line of the log. The texts point into what was parsed.
struct LogLine {
    Time time = 0;
    std::uint32_t thread = 0;
    Level level = Level::kInformation;
    std::string_view operation;
    std::string_view text;
};

/// The parts of a line, or nothing when it does not begin as a line of the log does.
std::optional<LogLine> ParseLine(std::string_view line);

/// `2026/11/20 20:37:06.860`
std::string TimeText(Time time);
/// `20:37:06.860`
std::string ClockText(Time time);
/// The thread as the log shows it.
std::string ThreadText(std::uint32_t thread);

/// What a user wrote: a date and a clock, or a clock alone, which then lies on the last day up to
/// `latest`. Seconds and milliseconds may be missing; `-` is taken for `/` and `T` for the blank.
std::optional<Time> TimeFromUser(std::string_view text, Time latest);

}  // namespace Doctor
