#include <algorithm>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "doctor/analysis/line_reader.h"
#include "doctor/analysis/report.h"

namespace Doctor {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kModelNumber = 1;
/// A page with more lines opens slowly.
constexpr std::size_t kMostLines = 20000;

Json TimeOrNull(std::optional<Time> time) {
    return time ? Json(*time) : Json(nullptr);
}

Json LineJson(Place place) {
    return Json::array({place.file, place.line});
}

Json FileJson(const LogFile& file) {
    return {{"path", Harmless(file.name)},   {"bytes", file.bytes},
            {"lines", file.lines},           {"unread", file.unread},
            {"doubtful", file.doubtful},     {"encoding", file.encoding},
            {"from", TimeOrNull(file.from)}, {"until", TimeOrNull(file.until)}};
}

Json ProofJson(const Proof& proof) {
    return {{"file", proof.place.file},
            {"line", proof.place.line},
            {"t", proof.time},
            {"level", LevelName(proof.level)},
            {"operation", Harmless(proof.operation)},
            {"text", Harmless(proof.text)}};
}

Json FindingJson(const Finding& finding, std::size_t number) {
    const CauseInfo& info = InfoOf(finding.cause);
    Json proof = Json::array();
    for (const Proof& line : finding.proof) {
        proof.push_back(ProofJson(line));
    }
    return {{"number", number},
            {"cause", info.id},
            {"severity", SeverityName(info.severity)},
            {"subject", info.subject},
            {"sentence", Harmless(finding.sentence)},
            {"remedy", info.remedy},
            {"t", TimeOrNull(finding.time)},
            {"proof", std::move(proof)}};
}

/// What the page lets its reader click at.
class LinesWanted {
  public:
    void Add(Place place) { m_places.insert(Key(place)); }
    [[nodiscard]] bool Contains(Place place) const { return m_places.contains(Key(place)); }

  private:
    static std::pair<std::uint32_t, std::uint64_t> Key(Place place) { return {place.file, place.line}; }
    std::set<std::pair<std::uint32_t, std::uint64_t>> m_places;
};

Json LaneJson(const Lane& lane, const Machine& machine, LinesWanted& wanted) {
    Json intervals = Json::array();
    if (machine.history.from) {
        for (const Interval& interval : lane.Between(*machine.from, *machine.until)) {
            if (interval.line) {
                wanted.Add(*interval.line);
            }
            intervals.push_back({{"from", interval.from},
                                 {"until", interval.until},
                                 {"state", StateName(interval.state)},
                                 {"who", WhoName(interval.who)},
                                 {"why", Harmless(interval.why)},
                                 {"line", interval.line ? LineJson(*interval.line) : Json(nullptr)}});
        }
    }
    return {
        {"id", Harmless(lane.Id())}, {"title", Harmless(lane.Title())}, {"intervals", std::move(intervals)}};
}

Json LanesJson(const Machine& machine, LinesWanted& wanted) {
    const History& history = machine.history;
    Json lanes = Json::array();
    const auto add = [&](const Lane& lane) { lanes.push_back(LaneJson(lane, machine, wanted)); };
    add(history.runs);
    add(history.cable);
    for (const auto& [connection, lane] : history.cables) {
        add(lane);
    }
    for (const Lane* const lane : {&history.wifi, &history.rememberedWlan, &history.wwan,
                                   &history.rememberedWwan, &history.airplane, &history.sleep}) {
        add(*lane);
    }
    return lanes;
}

bool IsTold(const StoryEvent& event, const Machine& machine) {
    return event.until >= *machine.from && event.time <= *machine.until;
}

Json StoryJson(const Machine& machine, LinesWanted& wanted) {
    Json story = Json::array();
    for (const StoryEvent& event : machine.history.story) {
        if (IsTold(event, machine)) {
            wanted.Add(event.line);
            story.push_back({{"t", event.time},
                             {"until", event.until},
                             {"kind", StoryKindName(event.kind)},
                             {"subject", Harmless(event.subject)},
                             {"who", WhoName(event.who)},
                             {"severity", SeverityName(event.severity)},
                             {"text", Harmless(event.text)},
                             {"times", event.times},
                             {"line", LineJson(event.line)}});
        }
    }
    return story;
}

Json MarksJson(const Machine& machine) {
    Json marks = Json::array();
    for (const StoryEvent& event : machine.history.story) {
        const bool isDecision = event.kind == StoryKind::kDecision;
        if ((isDecision || event.kind == StoryKind::kError) && IsTold(event, machine)) {
            marks.push_back({{"t", event.time},
                             {"until", event.until},
                             {"kind", event.severity == Severity::kFault     ? "error"
                                      : event.severity == Severity::kWarning ? "warning"
                                                                             : "decision"},
                             {"lane", Harmless(event.subject.empty() ? "runs" : event.subject)},
                             {"text", Harmless(event.text)},
                             {"times", event.times},
                             {"line", LineJson(event.line)}});
        }
    }
    return marks;
}

/// The log's lines, as many as a page can carry: all, or those that something points at and, as long as
/// there is room, those that are no traces.
class LinesJson {
  public:
    LinesJson(const Machine& machine, const LinesWanted& wanted) : m_machine(machine), m_wanted(wanted) {}

    void AddTo(Json& machine) {
        Count();
        for (std::size_t i = 0; i < m_machine.files.size(); ++i) {
            ForEachLine(i, [this](const LogLine& line, Place place) { Take(line, place); });
        }
        machine["operations"] = std::move(m_operations);
        machine["threads"] = std::move(m_threads);
        machine["lines"] = std::move(m_lines);
        machine["lines_left_out"] = m_leftOut;
    }

  private:
    template <class Action>
    void ForEachLine(std::size_t file, Action action) {
        LineReader reader(m_machine.files[file].path);
        std::string_view text;
        while (reader.IsOpen() && reader.Next(text)) {
            const std::optional<LogLine> line = ParseLine(text);
            if (line && line->time >= *m_machine.from && line->time <= *m_machine.until) {
                action(*line, Place{.file = static_cast<std::uint32_t>(file), .line = reader.Number()});
            }
        }
    }

    void Count() {
        std::size_t all = 0;
        std::size_t withoutTraces = 0;
        for (std::size_t i = 0; i < m_machine.files.size(); ++i) {
            ForEachLine(i, [&](const LogLine& line, Place /*place*/) {
                ++all;
                withoutTraces += line.level >= Level::kInformation ? 1 : 0;
            });
        }
        m_least = all <= kMostLines             ? Level::kTraceIn
                  : withoutTraces <= kMostLines ? Level::kInformation
                                                : Level::kWarning;
    }

    void Take(const LogLine& line, Place place) {
        if (m_lines.size() >= 2 * kMostLines || (line.level < m_least && !m_wanted.Contains(place))) {
            ++m_leftOut;
            return;
        }
        m_lines.push_back(Json::array(
            {place.file, place.line, line.time, IndexOf(m_threadNumbers, m_threads, ThreadText(line.thread)),
             static_cast<int>(line.level),
             IndexOf(m_operationNumbers, m_operations, Harmless(line.operation)), Harmless(line.text)}));
    }

    static std::size_t IndexOf(std::map<std::string, std::size_t>& numbers, Json& names,
                               const std::string& name) {
        const auto [found, isNew] = numbers.try_emplace(name, numbers.size());
        if (isNew) {
            names.push_back(name);
        }
        return found->second;
    }

    const Machine& m_machine;
    const LinesWanted& m_wanted;
    Level m_least = Level::kTraceIn;
    std::map<std::string, std::size_t> m_threadNumbers;
    std::map<std::string, std::size_t> m_operationNumbers;
    Json m_threads = Json::array();
    Json m_operations = Json::array();
    Json m_lines = Json::array();
    std::uint64_t m_leftOut = 0;
};

Json MachineJson(const Machine& machine) {
    Json files = Json::array();
    for (const LogFile& file : machine.files) {
        files.push_back(FileJson(file));
    }
    Json levels = Json::array();
    for (int level = 0; level < kLevelCount; ++level) {
        if (machine.history.levels[static_cast<std::size_t>(level)]) {
            levels.push_back(LevelName(static_cast<Level>(level)));
        }
    }
    LinesWanted wanted;
    Json findings = Json::array();
    for (const Finding& finding : machine.findings) {
        findings.push_back(FindingJson(finding, findings.size() + 1));
        for (const Proof& proof : finding.proof) {
            wanted.Add(proof.place);
        }
    }
    const bool told = machine.history.from.has_value();
    Json json = {{"name", Harmless(machine.name)},
                 {"files", std::move(files)},
                 {"from", told ? TimeOrNull(machine.from) : Json(nullptr)},
                 {"until", told ? TimeOrNull(machine.until) : Json(nullptr)},
                 {"asked", TimeOrNull(machine.asked)},
                 {"at", TimeOrNull(machine.at)},
                 {"levels", std::move(levels)},
                 {"findings", std::move(findings)},
                 {"lanes", LanesJson(machine, wanted)},
                 {"story", told ? StoryJson(machine, wanted) : Json::array()},
                 {"story_left_out", machine.history.storyLeftOut},
                 {"marks", told ? MarksJson(machine) : Json::array()}};
    LinesJson(machine, wanted).AddTo(json);
    return json;
}

}  // namespace

std::string JsonReport(const std::vector<Machine>& machines) {
    Json all = Json::array();
    for (const Machine& machine : machines) {
        all.push_back(MachineJson(machine));
    }
    const Json report = {{"model", kModelNumber}, {"doctor", LINKVANE_VERSION}, {"machines", std::move(all)}};
    return report.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Doctor
