#include "doctor/analysis/log_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>

namespace Doctor {
namespace {

constexpr std::array<std::string_view, kLevelCount> kLevelNames = {
    "TraceIn", "TraceOut", "Verbose", "Information", "Warning", "Error", "Diag",
};

// Where a line's fields begin: the header has a fixed width.
constexpr std::size_t kTimeEnd = 23;
constexpr std::size_t kThread = 24;
constexpr std::size_t kThreadEnd = 32;
constexpr std::size_t kLevel = 33;
constexpr std::size_t kLevelEnd = 44;
constexpr std::size_t kOperation = 45;
/// No operation has a longer name; what has is no line of this log.
constexpr std::size_t kLongestOperation = 120;

constexpr Time kSecond = 1000;
constexpr Time kMinute = 60 * kSecond;
constexpr Time kHour = 60 * kMinute;
constexpr Time kDay = 24 * kHour;

/// Reads digits from the front of a text.
class Digits {
  public:
    explicit Digits(std::string_view text) : m_text(text) {}

    int Take(std::size_t count) {
        int value = 0;
        for (std::size_t i = 0; i < count; ++i) {
            if (m_text.empty() || m_text.front() < '0' || m_text.front() > '9') {
                m_good = false;
                return 0;
            }
            value = value * 10 + (m_text.front() - '0');
            m_text.remove_prefix(1);
        }
        return value;
    }

    void Skip(std::string_view choices) {
        if (m_text.empty() || choices.find(m_text.front()) == std::string_view::npos) {
            m_good = false;
            return;
        }
        m_text.remove_prefix(1);
    }

    [[nodiscard]] bool Good() const { return m_good; }
    [[nodiscard]] bool AtEnd() const { return m_text.empty(); }
    [[nodiscard]] std::string_view Rest() const { return m_text; }

  private:
    std::string_view m_text;
    bool m_good = true;
};

std::optional<Time> DayFrom(int year, int month, int day) {
    const std::chrono::year_month_day date(std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day)));
    if (!date.ok()) {
        return std::nullopt;
    }
    return Time{std::chrono::sys_days(date).time_since_epoch().count()} * kDay;
}

std::optional<Time> ClockFrom(int hour, int minute, int second, int millisecond) {
    if (hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    return hour * kHour + minute * kMinute + second * kSecond + millisecond;
}

std::optional<Time> Sum(std::optional<Time> day, std::optional<Time> clock) {
    return day && clock ? std::optional<Time>(*day + *clock) : std::nullopt;
}

std::optional<Time> ParseTime(std::string_view text) {
    Digits digits(text);
    const int year = digits.Take(4);
    digits.Skip("/");
    const int month = digits.Take(2);
    digits.Skip("/");
    const int day = digits.Take(2);
    digits.Skip(" ");
    const int hour = digits.Take(2);
    digits.Skip(":");
    const int minute = digits.Take(2);
    digits.Skip(":");
    const int second = digits.Take(2);
    digits.Skip(".");
    const int millisecond = digits.Take(3);
    if (!digits.Good() || !digits.AtEnd()) {
        return std::nullopt;
    }
    return Sum(DayFrom(year, month, day), ClockFrom(hour, minute, second, millisecond));
}

std::optional<std::uint32_t> ParseThread(std::string_view text) {
    std::uint32_t thread = 0;
    for (const char c : text) {
        const bool isDigit = c >= '0' && c <= '9';
        if (!isDigit && (c < 'A' || c > 'F')) {
            return std::nullopt;
        }
        thread = thread * 16 + static_cast<std::uint32_t>(isDigit ? c - '0' : c - 'A' + 10);
    }
    return thread;
}

std::optional<Level> ParseLevel(std::string_view text) {
    const std::string_view name = text.substr(0, text.find_last_not_of(' ') + 1);
    const auto* const found = std::find(kLevelNames.begin(), kLevelNames.end(), name);
    if (found == kLevelNames.end()) {
        return std::nullopt;
    }
    return static_cast<Level>(found - kLevelNames.begin());
}

bool HasHeaderShape(std::string_view line) {
    return line.size() > kOperation && line[kTimeEnd] == '|' && line[kThreadEnd] == '|' &&
           line[kLevelEnd] == '|';
}

}  // namespace

std::string_view LevelName(Level level) {
    return kLevelNames[static_cast<std::size_t>(level)];
}

std::optional<LogLine> ParseLine(std::string_view line) {
    if (!HasHeaderShape(line)) {
        return std::nullopt;
    }
    const std::size_t operationEnd = line.find('|', kOperation);
    // Where there is no such end, it lies behind every text.
    if (operationEnd > kOperation + kLongestOperation) {
        return std::nullopt;
    }
    const std::optional<Time> time = ParseTime(line.substr(0, kTimeEnd));
    const std::optional<std::uint32_t> thread = ParseThread(line.substr(kThread, kThreadEnd - kThread));
    const std::optional<Level> level = ParseLevel(line.substr(kLevel, kLevelEnd - kLevel));
    if (!time || !thread || !level) {
        return std::nullopt;
    }
    return LogLine{.time = *time,
                   .thread = *thread,
                   .level = *level,
                   .operation = line.substr(kOperation, operationEnd - kOperation),
                   .text = line.substr(operationEnd + 1)};
}

std::string ClockText(Time time) {
    const Time clock = ((time % kDay) + kDay) % kDay;
    return fmt::format("{:02}:{:02}:{:02}.{:03}", clock / kHour, clock / kMinute % 60, clock / kSecond % 60,
                       clock % kSecond);
}

std::string TimeText(Time time) {
    const Time clock = ((time % kDay) + kDay) % kDay;
    const std::chrono::year_month_day date{
        std::chrono::sys_days(std::chrono::days(static_cast<int>((time - clock) / kDay)))};
    return fmt::format("{:04}/{:02}/{:02} {}", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                       ClockText(time));
}

std::string ThreadText(std::uint32_t thread) {
    return fmt::format("{:08X}", thread);
}

std::optional<Time> TimeFromUser(std::string_view text, Time latest) {
    std::optional<Time> day;
    Digits digits(text);
    if (text.find_first_of("/-") != std::string_view::npos) {
        const int year = digits.Take(4);
        digits.Skip("/-");
        const int month = digits.Take(2);
        digits.Skip("/-");
        day = DayFrom(year, month, digits.Take(2));
        if (!digits.Good() || !day) {
            return std::nullopt;
        }
        if (digits.AtEnd()) {
            return day;
        }
        digits.Skip(" T");
    }
    const int hour = digits.Take(2);
    digits.Skip(":");
    const int minute = digits.Take(2);
    int second = 0;
    int millisecond = 0;
    if (!digits.AtEnd()) {
        digits.Skip(":");
        second = digits.Take(2);
    }
    if (!digits.AtEnd()) {
        digits.Skip(".");
        millisecond = digits.Take(3);
    }
    const std::optional<Time> clock = ClockFrom(hour, minute, second, millisecond);
    if (!digits.Good() || !digits.AtEnd() || !clock) {
        return std::nullopt;
    }
    if (day) {
        return *day + *clock;
    }
    const Time lastMidnight = latest - ((latest % kDay) + kDay) % kDay;
    const Time thatDay = lastMidnight + *clock;
    return thatDay <= latest ? thatDay : thatDay - kDay;
}

}  // namespace Doctor
