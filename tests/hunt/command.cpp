#include "tests/hunt/command.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "notebook/state/layout.h"

namespace RandomEvents {

namespace {

constexpr char kTogether[] = "together";
constexpr char kFinely[] = "finely";

/// What a command may look like; `a|b` stands for either, a number for any number.
struct Phrase {
    Verb verb;
    std::uint32_t weight;
    const char* words;
};

constexpr Phrase kPhrases[] = {
    {Verb::kPlug, 20, "plug cable 1|1|2 dhcp 0|0|0|700|3000|7500|9000|20000"},
    {Verb::kPlugWithoutAddress, 2, "plug cable 1|2 noaddress"},
    {Verb::kUnplug, 20, "unplug cable 1|1|2"},
    {Verb::kSoftAdapter, 4, "vpn|virtual off|on"},
    {Verb::kFillAdapters, 1, "adapter fill 12|30"},
    {Verb::kHideAdapters, 1, "call GetAdaptersInfo fail always with 50"},
    {Verb::kShowAdapters, 4, "call GetAdaptersInfo ok"},
    {Verb::kConnectionEvent, 3, "event connection cable1|cable2|wifi1|vpn 0|3|64"},
    {Verb::kUnknownConnectionEvent, 1, "event connection {12345678-5E1F-4B2C-9AD3-C0DE00000001} 0|64"},
    {Verb::kWifi, 14, "wifi off|on|on"},
    {Verb::kWifiLink, 4, "wifi connect|disconnect"},
    {Verb::kWifiHardware, 2, "wifi hardware off|on"},
    {Verb::kWifiAvailable, 4, "wifi available"},
    {Verb::kWifiNotify, 2, "wifi notify 8|16 7|9|19"},
    {Verb::kWifiNotifyOdd, 1, "wifi notify 16 7 nodata|null"},
    {Verb::kPhyRefuses, 3, "phy 0|1|2 refuse 0|0|1|2|79|80|81|82|200|for-ever"},
    {Verb::kWwan, 12, "wwan off|on|on"},
    {Verb::kModemConfirms, 3, "modem 1|2 follows on confirm 0|50|300|2000|6900|7000|9000|never"},
    // One that confirmed without following would be asked again for ever while a cable is in: each
    // confirmation finds it on.
    {Verb::kModemIsDeaf, 2, "modem 1|2 follows off confirm never"},
    {Verb::kModemRadio, 3, "modem 1|2 radio same|same|fresh|opposite|failing|null"},
    {Verb::kModemReverts, 1, "modem 1|2 reverts 0|1|3 after 0|60|500|8000"},
    {Verb::kModemRefuses, 2, "modem 1|2 refuse 0|0|1|4|5|7|60|for-ever"},
    {Verb::kModemRequest, 1, "modem 1|2 request wrong"},
    {Verb::kAirplane, 6, "airplane off|off|on"},
    {Verb::kAirplaneValue, 8, "airplane value dword 0|0|1|2"},
    {Verb::kAirplaneMissing, 1, "airplane value missing"},
    {Verb::kFeature, 4, "feature wlan|wwan off|on|on"},
    {Verb::kOddSetting, 2, "bios \"LAN / WLAN Auto Switching\" absent|null|empty"},
    {Verb::kSecondSetting, 1, "bios \"LAN/WLAN Switching\" text Enable|*Disable"},
    {Verb::kNoSecondSetting, 1, "bios \"LAN/WLAN Switching\" absent"},
    {Verb::kSettingTimesOut, 1, "bios \"LAN / WLAN Auto Switching\" timeouts 0|1|3|6|7"},
    {Verb::kProvider, 2, "bios provider off|on|on"},
    {Verb::kNeighbour, 4, "service WlanSvc|WwanSvc run|run|run|stop|absent"},
    {Verb::kLateNeighbour, 2, "service WlanSvc|WwanSvc late 3000|9000|20000"},
    {Verb::kStored, 6, "stored wlan|wwan True|False|true|1|missing"},
    {Verb::kStoredNumber, 1, "stored wlan|wwan type dword 1"},
    {Verb::kSuspend, 4, "suspend"},
    {Verb::kResume, 8, "resume"},
    {Verb::kStart, 8, "start"},
    {Verb::kStop, 2, "stop"},
    {Verb::kPreshutdown, 1, "preshutdown"},
};

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

bool IsNumber(const std::string& word) {
    return !word.empty() &&
           std::ranges::all_of(word, [](unsigned char letter) { return std::isdigit(letter); });
}

/// `choose` gives the word in the place of several, or an empty one where it has none.
template <class Choose>
bool Fill(const Phrase& phrase, Choose choose, Command& command) {
    command = {phrase.verb, {}, {}};
    for (const std::string& word : Split(phrase.words, ' ')) {
        const std::vector<std::string> choices = Split(word, '|');
        const std::string chosen = choose(choices);
        if (chosen.empty()) {
            return false;
        }
        if (choices.size() > 1) {
            command.choices.push_back(chosen);
        }
        command.text += (command.text.empty() ? "" : " ") + chosen;
    }
    return true;
}

const Phrase& DrawPhrase(Random& random) {
    static const std::uint32_t total = [] {
        std::uint32_t sum = 0;
        for (const Phrase& phrase : kPhrases) {
            sum += phrase.weight;
        }
        return sum;
    }();
    std::uint32_t left = random.Below(total);
    const Phrase* phrase = kPhrases;
    for (; left >= phrase->weight; ++phrase) {
        left -= phrase->weight;
    }
    return *phrase;
}

Command CommandAt(std::uint32_t at, const char* text) {
    Command command = ReadCommand(text);
    command.at = at;
    return command;
}

/// Those commands, with others where they overlap.
Step DrawStep(Random& random, Way way, std::vector<Command> commands) {
    constexpr std::array<std::uint32_t, 8> kDelays = {0, 0, 0, 50, 100, 600, 1000, 7100};
    Step step{std::move(commands), random.Next(), random.OneIn(2)};
    const std::uint32_t count = way == Way::kSettled ? 0 : 2 + random.Below(3);
    for (std::uint32_t i = 0; i < count; ++i) {
        step.commands.push_back(DrawCommand(random));
        step.commands.back().at = kDelays.at(random.Below(kDelays.size()));
    }
    std::ranges::stable_sort(step.commands, {}, &Command::at);
    return step;
}

/// A start that a stop comes into, before its worker has begun or while it is at work, and the next start.
void DrawShortLife(Random& random, Way way, Day& day) {
    constexpr std::uint32_t kTick = 50;
    const std::uint32_t at = random.OneIn(4) ? 0 : kTick * random.Below(random.OneIn(4) ? 400 : 80);
    const char* const stop = random.OneIn(4) ? "preshutdown" : "stop";
    day.steps.push_back({{ReadCommand("stop")}});
    day.steps.push_back(DrawStep(random, way, {CommandAt(0, "start"), CommandAt(at, stop)}));
    day.steps.push_back(DrawStep(random, way, {CommandAt(0, "start")}));
}

std::string ShapeText(const Shape& shape) {
    return "machine wlan " + std::to_string(shape.wlanAdapters) + " phys " + std::to_string(shape.phys) +
           " cables " + std::to_string(Shape::kCables) + " modems " + std::to_string(shape.modems) + "\n";
}

Shape ReadShape(const std::string& line) {
    Shape shape;
    std::uint32_t cables = 0;
    std::istringstream words(line);
    std::string word;
    words >> word >> word >> shape.wlanAdapters >> word >> shape.phys >> word >> cables >> word >>
        shape.modems;
    if (!words || cables != Shape::kCables) {
        throw std::runtime_error("no notebook: " + line);
    }
    return shape;
}

}  // namespace

std::uint64_t Random::Next() {
    // SplitMix64.
    m_state += 0x9E3779B97F4A7C15;
    std::uint64_t mixed = m_state;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
}

std::uint32_t Command::Number(std::size_t choice) const {
    const std::string& word = choices[choice];
    return IsNumber(word) ? static_cast<std::uint32_t>(std::strtoul(word.c_str(), nullptr, 10))
                          : Notebook::kForEver;
}

bool Command::FitsOn(const Shape& shape) const {
    if (verb == Verb::kPhyRefuses) {
        return Number(0) < shape.phys;
    }
    if (verb >= Verb::kModemConfirms && verb <= Verb::kModemRequest) {
        return Number(0) <= shape.modems;
    }
    return verb != Verb::kWwan || shape.modems != 0;
}

Command DrawCommand(Random& random) {
    Command command;
    Fill(
        DrawPhrase(random),
        [&](const std::vector<std::string>& choices) {
            return choices[random.Below(static_cast<std::uint32_t>(choices.size()))];
        },
        command);
    return command;
}

Command ReadCommand(std::string_view text) {
    const std::vector<std::string> words = Split(std::string(text), ' ');
    Command command;
    for (const Phrase& phrase : kPhrases) {
        std::size_t next = 0;
        const bool fits = Fill(
            phrase,
            [&](const std::vector<std::string>& choices) -> std::string {
                if (next == words.size()) {
                    return {};
                }
                const std::string& word = words[next++];
                const bool either = choices.size() > 1 && IsNumber(choices.front()) && IsNumber(word);
                return either || std::ranges::count(choices, word) != 0 ? word : std::string();
            },
            command);
        if (fits && next == words.size()) {
            return command;
        }
    }
    throw std::runtime_error("no command: " + std::string(text));
}

std::string Step::Text() const {
    if (commands.size() == 1 && commands.front().at == 0 && seed == 1 && !isFine) {
        return commands.front().text + "\n";
    }
    std::string text = std::string(kTogether) + " " + std::to_string(seed) +
                       (isFine ? " " + std::string(kFinely) : "") + "\n";
    for (const Command& command : commands) {
        text += "    +" + std::to_string(command.at) + " " + command.text + "\n";
    }
    return text;
}

std::string Day::Text() const {
    std::string text = ShapeText(shape);
    for (const Step& step : steps) {
        text += step.Text();
    }
    return text;
}

std::string Day::ScenarioText() const {
    std::string text = "# Found by random events.\n" + ShapeText(shape);
    for (const Step& step : steps) {
        for (const Command& command : step.commands) {
            text += command.text +
                    (command.at != 0 ? "  # " + std::to_string(command.at) + " ms later" : "") + "\n";
        }
        text += "settle\n";
    }
    return text + "log\n";
}

Day DrawDay(Random& random, Way way, std::uint32_t steps) {
    Day day;
    day.shape = {1 + random.Below(4) / 3, 1 + random.Below(3), std::min(random.Below(4), 2U)};
    day.steps.push_back(DrawStep(random, way, {CommandAt(0, "start")}));
    while (day.steps.size() < steps) {
        if (random.OneIn(way == Way::kSettled ? 40 : 16)) {
            DrawShortLife(random, way, day);
        } else {
            day.steps.push_back(way == Way::kSettled ? Step{{DrawCommand(random)}}
                                                     : DrawStep(random, way, {}));
        }
    }
    return day;
}

Day ReadDay(const std::string& text) {
    Day day;
    for (const std::string& line : Split(text, '\n')) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word == "machine") {
            day.shape = ReadShape(line);
        } else if (word == kTogether) {
            Step& step = day.steps.emplace_back();
            words >> step.seed >> word;
            step.isFine = word == kFinely;
        } else if (word.starts_with("+")) {
            if (day.steps.empty()) {
                throw std::runtime_error("nothing to add to: " + line);
            }
            std::string rest;
            std::getline(words >> std::ws, rest);
            day.steps.back().commands.push_back(ReadCommand(rest));
            day.steps.back().commands.back().at =
                static_cast<std::uint32_t>(std::strtoul(word.c_str(), nullptr, 10));
        } else if (!word.empty() && word.front() != '#') {
            day.steps.push_back({{ReadCommand(line)}});
        }
    }
    return day;
}

}  // namespace RandomEvents
