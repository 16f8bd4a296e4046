#include "doctor/analysis/lane.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Doctor {
namespace {

constexpr Time kBeforeEverything = std::numeric_limits<Time>::min();

}  // namespace

std::string_view WhoName(Who who) {
    switch (who) {
        case Who::kUser:
            return "user";
        case Who::kService:
            return "service";
        case Who::kWindows:
            return "windows";
        default:
            return "unknown";
    }
}

std::string_view StateName(State state) {
    switch (state) {
        case State::kOn:
            return "on";
        case State::kOff:
            return "off";
        case State::kIn:
            return "in";
        case State::kOut:
            return "out";
        case State::kNoAddress:
            return "no-address";
        case State::kRunning:
            return "running";
        case State::kStarting:
            return "starting";
        case State::kStopped:
            return "stopped";
        case State::kAwake:
            return "awake";
        case State::kSlept:
            return "slept";
        default:
            return "unknown";
    }
}

Lane::Lane(std::string id, std::string title)
    : m_id(std::move(id)), m_title(std::move(title)), m_confirmed(kBeforeEverything) {
    m_intervals.push_back({.from = kBeforeEverything,
                           .until = kBeforeEverything,
                           .state = State::kUnknown,
                           .who = Who::kUnknown,
                           .why = "nothing about it yet",
                           .line = std::nullopt});
}

void Lane::Set(Time time, State state, Who who, std::string why, std::optional<Place> line) {
    if (state == Now()) {
        m_confirmed = std::max(m_confirmed, time);
        m_doubt.reset();
        return;
    }
    if (m_doubt) {
        Begin(m_doubt->since, State::kUnknown, Who::kUnknown, std::move(m_doubt->why), line);
        m_doubt.reset();
    }
    Begin(time, state, who, std::move(why), line);
}

void Lane::Find(Time time, State state, Who who, std::string why, std::optional<Place> line) {
    if (state == Now()) {
        m_confirmed = std::max(m_confirmed, time);
        m_doubt.reset();
        return;
    }
    if (Now() != State::kUnknown) {
        Doubted doubt = m_doubt.value_or(
            Doubted{.since = m_confirmed, .why = "changed at a time that the log does not tell"});
        m_doubt.reset();
        Begin(doubt.since, State::kUnknown, Who::kUnknown, std::move(doubt.why), line);
    }
    Begin(time, state, who, std::move(why), line);
}

void Lane::Forget(Time time, std::string why, std::optional<Place> line) {
    m_doubt.reset();
    if (Now() == State::kUnknown) {
        return;
    }
    Begin(time, State::kUnknown, Who::kUnknown, std::move(why), line);
}

void Lane::Doubt(Time time, std::string why) {
    if (!m_doubt && Now() != State::kUnknown) {
        m_doubt = {.since = std::max({time, m_intervals.back().from, m_confirmed}), .why = std::move(why)};
    }
}

void Lane::Attribute(Who who, std::string why) {
    m_intervals.back().who = who;
    m_intervals.back().why = std::move(why);
}

void Lane::Begin(Time time, State state, Who who, std::string why, std::optional<Place> line) {
    // What was seen later than the change is said to have been is not taken back.
    const Time from = std::max(time, m_intervals.back().from);
    m_confirmed = std::max(m_confirmed, from);
    if (m_intervals.back().from == from) {
        m_intervals.pop_back();
    } else {
        m_intervals.back().until = from;
    }
    if (!m_intervals.empty() && m_intervals.back().state == state) {
        return;
    }
    m_intervals.push_back(
        {.from = from, .until = from, .state = state, .who = who, .why = std::move(why), .line = line});
}

std::vector<Interval> Lane::Between(Time from, Time until) const {
    std::vector<Interval> cut;
    for (std::size_t i = 0; i < m_intervals.size(); ++i) {
        Interval interval = m_intervals[i];
        interval.until = i + 1 < m_intervals.size() ? interval.until : std::max(until, interval.from);
        interval.from = std::max(interval.from, from);
        interval.until = std::min(interval.until, until);
        if (interval.from < interval.until || (cut.empty() && i + 1 == m_intervals.size())) {
            interval.until = std::max(interval.from, interval.until);
            cut.push_back(std::move(interval));
        }
    }
    return cut;
}

}  // namespace Doctor
