#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>

#include "doctor/analysis/report.h"

namespace Doctor {
namespace {

using Out = std::back_insert_iterator<std::string>;

constexpr int kWidth = 1240;
constexpr int kLeft = 190;
constexpr int kRight = 120;
constexpr int kLabels = 150;
constexpr int kLane = 32;
constexpr int kBand = 20;
constexpr int kAxis = 30;
constexpr int kLegend = 40;
/// Names of what happened keep clear of each other.
constexpr double kLabelGap = 15;
constexpr std::size_t kLabelCharacters = 34;
/// A machine can have any number of adapters.
constexpr std::size_t kMostAdapters = 8;
constexpr double kLetterWidth = 6.5;

/// Light and dark as the reader's system has it; the colours are the page's.
constexpr std::string_view kStyle = R"svg(<style>
svg { --page: #ffffff; --text: #1b2330; --muted: #566072; --faint: #9aa4b3; --edge: #d5dbe4; --band: #f6f7f9;
  --solid: #ffffff; --runs: #4c7a1f; --cable: #8a5a00; --wifi: #1f5fbf; --remembered-wlan: #5a66b8;
  --wwan: #0b7a6b; --remembered-wwan: #37796e; --airplane: #b1470f; --sleep: #67717f;
  --user: #7a1f9c; --service: #10415f; --windows: #00636b; }
@media (prefers-color-scheme: dark) {
  svg { --page: #11151c; --text: #e6eaf1; --muted: #a3adbd; --faint: #667184; --edge: #364152; --band: #222a36;
    --solid: #0e1319; --runs: #93c25f; --cable: #d9a544; --wifi: #6fa8ff; --remembered-wlan: #a3adf2;
    --wwan: #4cc3b1; --remembered-wwan: #8ccdc2; --airplane: #f0925d; --sleep: #9aa5b5;
    --user: #dfa6f5; --service: #a9d4f0; --windows: #7fdbe0; }
}
text { font: 12px "DejaVu Sans", Verdana, sans-serif; fill: var(--text); }
.small { font-size: 10px; }
.muted { fill: var(--muted); }
.end { text-anchor: end; }
.middle { text-anchor: middle; }
.on { fill: var(--solid); }
.solid { fill: var(--hue); stroke: var(--hue); }
.light, .stripes { fill: var(--band); stroke: var(--hue); }
.hatch { fill: var(--band); stroke: var(--faint); }
.line { stroke: var(--edge); }
.event { stroke: var(--text); stroke-width: 0.7; stroke-dasharray: 2 3; }
.who { stroke: var(--page); stroke-width: 0.8; }
</style>
<defs>
<pattern id="hatch" width="6" height="6" patternUnits="userSpaceOnUse" patternTransform="rotate(45)">
<path d="M0 0V6" stroke="#8893a3" stroke-width="1.4"/></pattern>
<pattern id="stripes" width="9" height="9" patternUnits="userSpaceOnUse" patternTransform="rotate(45)">
<path d="M0 0V9" stroke="#8893a3" stroke-width="5" stroke-opacity="0.6"/></pattern>
</defs>
)svg";

std::string Xml(std::string_view text) {
    std::string xml;
    for (const char c : Harmless(text)) {
        switch (c) {
            case '&':
                xml += "&amp;";
                break;
            case '<':
                xml += "&lt;";
                break;
            case '"':
                xml += "&quot;";
                break;
            default:
                xml += c;
        }
    }
    return xml;
}

/// The beginning of a text, cut between characters.
std::string Shortened(std::string_view text, std::size_t characters) {
    if (text.size() <= characters) {
        return std::string(text);
    }
    std::size_t end = characters;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return std::string(text.substr(0, end)) + "\u2026";
}

std::string_view Filling(State state) {
    switch (state) {
        case State::kOn:
        case State::kIn:
        case State::kRunning:
            return "solid";
        case State::kNoAddress:
        case State::kStarting:
            return "stripes";
        case State::kUnknown:
        case State::kSlept:
            return "hatch";
        default:
            return "light";
    }
}

std::string_view StateWord(State state) {
    switch (state) {
        case State::kUnknown:
            return "not known";
        case State::kNoAddress:
            return "no address";
        case State::kSlept:
            return "asleep at some time";
        default:
            return StateName(state);
    }
}

void DrawBand(Out out, std::string_view filling, double x, double y, double width, std::string_view title) {
    const auto band = [&](std::string_view paint) {
        fmt::format_to(out, R"(<rect x="{:.1f}" y="{}" width="{:.1f}" height="{}" {}>)", x, y, width, kBand,
                       paint);
        fmt::format_to(out, "<title>{}</title></rect>\n", Xml(title));
    };
    band(fmt::format(R"(class="{}" stroke-width="0.7")", filling));
    if (filling == "hatch" || filling == "stripes") {
        band(fmt::format("fill=\"url(#{})\"", filling));
    }
}

/// Who acted: a circle, a square, a diamond with a letter.
void DrawWho(Out out, Who who, double x, double y) {
    constexpr double kHalf = 6.5;
    const std::string paint = fmt::format("class=\"who\" fill=\"var(--{})\"", WhoName(who));
    switch (who) {
        case Who::kUser:
            fmt::format_to(out, R"(<circle cx="{:.1f}" cy="{:.1f}" r="{}" {}/>)", x, y, kHalf, paint);
            break;
        case Who::kService:
            fmt::format_to(out, R"(<rect x="{:.1f}" y="{:.1f}" width="{}" height="{}" {}/>)", x - kHalf,
                           y - kHalf, 2 * kHalf, 2 * kHalf, paint);
            break;
        case Who::kWindows:
            fmt::format_to(out, "<path d=\"M{:.1f} {:.1f}l8 8l-8 8l-8-8z\" {}/>", x, y - 8, paint);
            break;
        default:
            return;
    }
    const char letter = who == Who::kUser ? 'U' : who == Who::kService ? 'S' : 'W';
    fmt::format_to(out, "<text x=\"{:.1f}\" y=\"{:.1f}\" class=\"small middle on\">{}</text>\n", x, y + 3.5,
                   letter);
}

/// One machine's lanes.
class Picture {
  public:
    Picture(Out out, const Machine& machine, int top)
        : m_out(out),
          m_machine(machine),
          m_top(top + kLabels),
          m_from(*machine.from),
          m_span(std::max<Time>(1, *machine.until - *machine.from)) {}

    /// Draws all; where the next machine begins.
    int Draw() {
        fmt::format_to(m_out, "<text x=\"12\" y=\"{}\">{}</text>\n", m_top - kLabels + 20,
                       Xml(TimeText(m_from).substr(0, kDay)));
        const std::vector<const Lane*> lanes = Lanes();
        const int bottom = m_top + kLane * static_cast<int>(lanes.size());
        DrawStory(bottom);
        for (std::size_t i = 0; i < lanes.size(); ++i) {
            DrawLane(*lanes[i], m_top + kLane * static_cast<int>(i));
        }
        DrawAxis(bottom);
        return bottom + kAxis;
    }

    static int Height(const Machine& machine) {
        return kLabels + kAxis +
               kLane * static_cast<int>(kFixedLanes + std::min(kMostAdapters, machine.history.cables.size()));
    }

  private:
    static constexpr std::size_t kFixedLanes = 8;
    static constexpr std::size_t kDay = 10;

    [[nodiscard]] std::vector<const Lane*> Lanes() const {
        const History& history = m_machine.history;
        std::vector<const Lane*> lanes = {&history.runs, &history.cable};
        for (const auto& [connection, lane] : history.cables) {
            if (lanes.size() < 2 + kMostAdapters) {
                lanes.push_back(&lane);
            }
        }
        lanes.insert(lanes.end(), {&history.wifi, &history.rememberedWlan, &history.wwan,
                                   &history.rememberedWwan, &history.airplane, &history.sleep});
        return lanes;
    }

    [[nodiscard]] double X(Time time) const {
        constexpr double kDrawn = kWidth - kLeft - kRight;
        return kLeft + kDrawn * static_cast<double>(time - m_from) / static_cast<double>(m_span);
    }

    void DrawLane(const Lane& lane, int y) {
        const std::string id = lane.Id().substr(0, lane.Id().find(':'));
        const std::string title = lane.Id() == "wwan"              ? "Mobile broadband"
                                  : lane.Id() == "remembered-wwan" ? "Mobile remembered"
                                                                   : lane.Title();
        fmt::format_to(m_out,
                       "<g style=\"--hue: var(--{})\">\n<text x=\"{}\" y=\"{}\" class=\"end\">{}</text>\n",
                       id, kLeft - 8, y + 14, Xml(Shortened(title, 26)));
        // What is narrower than a pixel is drawn with what follows.
        double drawn = kLeft - 1;
        for (const Interval& interval : lane.Between(m_from, m_from + m_span)) {
            const double x = X(interval.from);
            const double width = X(interval.until) - x;
            if (x + width < drawn + 1) {
                continue;
            }
            drawn = x + width;
            DrawInterval(lane, interval, x, y, width);
        }
        fmt::format_to(m_out, "</g>\n");
    }

    void DrawInterval(const Lane& lane, const Interval& interval, double x, int y, double width) {
        constexpr double kSign = 18;
        const std::string_view word = StateWord(interval.state);
        DrawBand(m_out, Filling(interval.state), x, y, width,
                 fmt::format("{}: {} from {} to {}: {}", lane.Title(), word, TimeText(interval.from),
                             TimeText(interval.until), interval.why));
        const bool hasSign = interval.who != Who::kUnknown && width > kSign;
        if (hasSign) {
            DrawWho(m_out, interval.who, x + kSign / 2, y + kBand / 2.0);
        }
        const double room = width - (hasSign ? kSign : 4) - 4;
        if (room > kLetterWidth * static_cast<double>(word.size())) {
            fmt::format_to(m_out, "<text x=\"{:.1f}\" y=\"{}\" class=\"small{}\">{}</text>\n",
                           x + (hasSign ? kSign : 4), y + 14, Filling(interval.state) == "solid" ? " on" : "",
                           word);
        }
    }

    /// What people and the power did: the rest shows in the lanes.
    static bool IsLabelled(const StoryEvent& event) {
        switch (event.kind) {
            case StoryKind::kStart:
            case StoryKind::kStop:
            case StoryKind::kEnd:
            case StoryKind::kCable:
            case StoryKind::kAirplane:
            case StoryKind::kWake:
                return true;
            case StoryKind::kRadio:
                return event.who == Who::kUser;
            default:
                return false;
        }
    }

    [[nodiscard]] std::string Label(const StoryEvent& event) const {
        // With one adapter its name says nothing more.
        const bool isNamed = event.kind != StoryKind::kCable || m_machine.history.cables.size() > 1;
        return Shortened(isNamed ? event.text : event.text.substr(0, event.text.find(':')), kLabelCharacters);
    }

    void DrawStory(int bottom) {
        double free = 0;
        for (const StoryEvent& event : m_machine.history.story) {
            const double x = X(event.time);
            if (!IsLabelled(event) || event.time < m_from || event.time > m_from + m_span || x < free) {
                continue;
            }
            free = x + kLabelGap;
            fmt::format_to(m_out, R"(<path class="event" d="M{:.1f} {}V{}"/>)", x, m_top - 6, bottom);
            fmt::format_to(m_out,
                           "<text x=\"{:.1f}\" y=\"{}\" transform=\"rotate(-35 {:.1f} {})\">{}</text>\n", x,
                           m_top - 10, x, m_top - 10, Xml(Label(event)));
        }
    }

    void DrawAxis(int y) {
        constexpr Time kSteps[] = {1000,   2000,    5000,    10000,   20000,    60000,    120000,  300000,
                                   600000, 1800000, 3600000, 7200000, 14400000, 43200000, 86400000};
        constexpr Time kMostTicks = 10;
        constexpr Time kOneMinute = 60000;
        Time step = kSteps[0];
        for (const Time longer : kSteps) {
            step = m_span / step > kMostTicks ? longer : step;
        }
        step *= std::max<Time>(1, m_span / step / kMostTicks);
        constexpr std::size_t kClock = 11;
        for (Time time = (m_from / step + 1) * step; time <= m_from + m_span; time += step) {
            const std::string text = TimeText(time);
            fmt::format_to(m_out, "<text x=\"{:.1f}\" y=\"{}\" class=\"small middle muted\">{}</text>\n",
                           X(time), y + 14,
                           step < kOneMinute ? text.substr(kClock, 8)
                           : step < 86400000 ? text.substr(kClock, 5)
                                             : text.substr(0, kDay));
        }
    }

    Out m_out;
    const Machine& m_machine;
    int m_top;
    Time m_from;
    Time m_span;
};

void DrawLegend(Out out, int y) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 4> kFillings = {{
        {"solid", "on, in, running"},
        {"light", "off, out, stopped, awake"},
        {"stripes", "on the way: no address yet, starting"},
        {"hatch", "not known"},
    }};
    constexpr std::array<std::pair<Who, std::string_view>, 3> kWho = {{
        {Who::kUser, "the user"},
        {Who::kService, "the service"},
        {Who::kWindows, "Windows"},
    }};
    double x = kLeft;
    const auto word = [&](std::string_view text, double sign) {
        fmt::format_to(out, "<text x=\"{:.1f}\" y=\"{}\" class=\"small\">{}</text>\n", x + sign, y + 14,
                       text);
        x += sign + kLetterWidth * static_cast<double>(text.size()) + 14;
    };
    fmt::format_to(out, "<g style=\"--hue: var(--wifi)\">\n");
    for (const auto& [filling, text] : kFillings) {
        DrawBand(out, filling, x, y, 28, text);
        word(text, 34);
    }
    fmt::format_to(out, "</g>\n");
    for (const auto& [who, text] : kWho) {
        DrawWho(out, who, x + 8, y + kBand / 2.0);
        word(text, 20);
    }
}

}  // namespace

std::string PictureReport(const std::vector<Machine>& machines) {
    int height = kLegend;
    for (const Machine& machine : machines) {
        height += machine.history.from ? Picture::Height(machine) : 0;
    }
    std::string text;
    const Out out(text);
    fmt::format_to(
        out,
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1}\" width=\"{0}\" height=\"{1}\">\n"
        "<title>What the log of LinkvaneService tells</title>\n{2}"
        "<rect width=\"{0}\" height=\"{1}\" fill=\"var(--page)\"/>\n",
        kWidth, height, kStyle);
    int top = 0;
    for (const Machine& machine : machines) {
        if (machine.history.from) {
            top = Picture(out, machine, top).Draw();
        }
    }
    DrawLegend(out, top + 8);
    fmt::format_to(out, "</svg>\n");
    return text;
}

}  // namespace Doctor
