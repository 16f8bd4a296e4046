#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/analysis/log_line.h"

namespace Doctor {

/// A line of a file; files and lines as the model counts them (files from 0, lines from 1).
struct Place {
    std::uint32_t file = 0;
    std::uint64_t line = 0;
};

/// Who brought something about.
enum class Who : std::uint8_t {
    kUnknown,
    kUser,
    kService,
    kWindows,
};
std::string_view WhoName(Who who);

enum class State : std::uint8_t {
    kUnknown,
    kOn,
    kOff,
    kIn,
    kOut,
    kNoAddress,
    kRunning,
    kStarting,
    kStopped,
    kAwake,
    /// Asleep at some time, and awake at others.
    kSlept,
};
std::string_view StateName(State state);

struct Interval {
    Time from = 0;
    Time until = 0;
    State state = State::kUnknown;
    Who who = Who::kUnknown;
    std::string why;
    std::optional<Place> line;
};

/// What is known of one thing over time, as intervals without gaps. Looks at it come in the order of
/// the log; between two looks that differ, and without an event that tells when the change was, it is
/// unknown.
class Lane {
  public:
    Lane(std::string id, std::string title);

    /// The thing is now in this state and became so at `time` (or by then was so already).
    void Set(Time time, State state, Who who, std::string why, std::optional<Place> line);
    /// A look: the same state as before is a confirmation; another one means that it changed at some
    /// time since the last.
    void Find(Time time, State state, Who who, std::string why, std::optional<Place> line);
    /// Nothing is known from `time` on.
    void Forget(Time time, std::string why, std::optional<Place> line);
    /// From `time` on changes may have gone unseen: a look, or a change at once after it, that differs
    /// makes unknown what lies between, for the reason `why`.
    void Doubt(Time time, std::string why);
    /// What is seen from now on is seen when it happens.
    void EndDoubt() { m_doubt.reset(); }
    /// Corrects who brought the present state about.
    void Attribute(Who who, std::string why);

    [[nodiscard]] State Now() const { return m_intervals.back().state; }
    [[nodiscard]] const Interval& Last() const { return m_intervals.back(); }
    [[nodiscard]] const std::string& Id() const { return m_id; }
    [[nodiscard]] const std::string& Title() const { return m_title; }
    void Rename(std::string title) { m_title = std::move(title); }

    /// The intervals, cut to a time.
    [[nodiscard]] std::vector<Interval> Between(Time from, Time until) const;

  private:
    void Begin(Time time, State state, Who who, std::string why, std::optional<Place> line);

    std::string m_id;
    std::string m_title;
    std::vector<Interval> m_intervals;
    /// When the present state was last seen.
    Time m_confirmed;
    struct Doubted {
        Time since = 0;
        std::string why;
    };
    std::optional<Doubted> m_doubt;
};

}  // namespace Doctor
