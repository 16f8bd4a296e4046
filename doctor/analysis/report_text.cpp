#include <fmt/format.h>

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

}  // namespace

std::string Harmless(std::string_view text) {
    std::string harmless;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        // The second control characters, U+0080 to U+009F, are two bytes.
        const bool isSecondControl = byte == 0xC2U && i + 1 < text.size() &&
                                     static_cast<unsigned char>(text[i + 1]) >= 0x80U &&
                                     static_cast<unsigned char>(text[i + 1]) < 0xA0U;
        if (isSecondControl) {
            ++i;
        }
        harmless.push_back(byte < 0x20U || byte == 0x7FU || isSecondControl ? ' ' : text[i]);
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
