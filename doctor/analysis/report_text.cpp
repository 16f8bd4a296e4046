#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "doctor/analysis/report.h"

namespace Doctor {
namespace {

constexpr std::size_t kMostStoryLines = 200;

using Out = std::back_insert_iterator<std::string>;

void Prove(Out out, const Machine& machine, const Finding& finding) {
    for (const Proof& proof : finding.proof) {
        const std::string& file =
            proof.place.file < machine.files.size() ? machine.files[proof.place.file].name : machine.name;
        fmt::format_to(out, "    {}:{}  {}  {}| {}\n", file, proof.place.line, TimeText(proof.time),
                       Harmless(proof.operation), Harmless(proof.text));
    }
}

void Find(Out out, const Machine& machine, const Finding& finding) {
    const CauseInfo& info = InfoOf(finding.cause);
    fmt::format_to(out, "{}.\n    cause: {} ({})\n", Harmless(finding.sentence), info.id,
                   SeverityName(info.severity));
    Prove(out, machine, finding);
    if (!info.remedy.empty()) {
        fmt::format_to(out, "    do: {}\n", info.remedy);
    }
}

void Tell(Out out, const Machine& machine) {
    std::vector<const StoryEvent*> told;
    for (const StoryEvent& event : machine.history.story) {
        if (event.until >= *machine.from && event.time <= *machine.until) {
            told.push_back(&event);
        }
    }
    const std::size_t left = told.size() > kMostStoryLines ? told.size() - kMostStoryLines : 0;
    if (left > 0) {
        fmt::format_to(out, "  ({} earlier events; --since and --until choose)\n", left);
    }
    for (std::size_t i = left; i < told.size(); ++i) {
        const StoryEvent& event = *told[i];
        std::string times;
        if (event.times > 1) {
            times = fmt::format(", {} times in {} s", event.times, (event.until - event.time) / 1000);
        }
        fmt::format_to(out, "  {}  {:8}  {}{}  [line {}]\n", TimeText(event.time), StoryKindName(event.kind),
                       Harmless(event.text), times, event.line.line);
    }
}

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/// The bytes of a character that begins with this one, or 0 where none does.
std::size_t LengthFrom(unsigned first) {
    return first < 0x80U   ? 1
           : first < 0xC2U ? 0
           : first < 0xE0U ? 2
           : first < 0xF0U ? 3
           : first < 0xF5U ? 4
                           : 0;
}

/// The bytes of the first character, or 0 where it is not UTF-8.
std::size_t CharacterLength(std::string_view text) {
    const auto byte = [text](std::size_t at) {
        return static_cast<unsigned char>(at < text.size() ? text[at] : 0);
    };
    const unsigned first = byte(0);
    const std::size_t length = LengthFrom(first);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80U) {
            return 0;
        }
    }
    // Longer than need be, halves of pairs, and beyond the last character.
    const unsigned second = byte(1);
    const bool isNone = (first == 0xE0U && second < 0xA0U) || (first == 0xEDU && second >= 0xA0U) ||
                        (first == 0xF0U && second < 0x90U) || (first == 0xF4U && second >= 0x90U);
    return isNone ? 0 : length;
}

}  // namespace

std::string Harmless(std::string_view text) {
    std::string harmless;
    while (!text.empty()) {
        const std::size_t length = CharacterLength(text);
        const auto first = static_cast<unsigned char>(text[0]);
        // The second control characters, U+0080 to U+009F, are two bytes.
        const bool isControl = first < 0x20U || first == 0x7FU ||
                               (length == 2 && first == 0xC2U && static_cast<unsigned char>(text[1]) < 0xA0U);
        harmless += isControl ? " " : length == 0 ? kReplacement : text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(1, length));
    }
    return harmless;
}

std::string TextReport(const std::vector<Machine>& machines) {
    std::string text;
    Out out(text);
    for (const Machine& machine : machines) {
        if (machines.size() > 1) {
            fmt::format_to(out, "== {}\n", Harmless(machine.name));
        }
        for (std::size_t i = 0; i < machine.findings.size(); ++i) {
            if (i == 1) {
                fmt::format_to(out, "\nBesides:\n\n");
            }
            Find(out, machine, machine.findings[i]);
        }
        if (machine.history.from) {
            fmt::format_to(out, "\nThe story ({} to {}):\n", TimeText(*machine.from),
                           TimeText(*machine.until));
            Tell(out, machine);
        }
        fmt::format_to(out, "\n");
    }
    return text;
}

}  // namespace Doctor
