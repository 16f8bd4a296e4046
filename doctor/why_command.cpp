#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "doctor/analysis/analysis.h"
#include "doctor/analysis/report.h"
#include "doctor/command_line.h"

namespace Doctor {
namespace {

constexpr int kNothingRead = 2;

struct WhyOptions {
    Question question;
    std::vector<std::string> words;
    bool json = false;
};

std::filesystem::path PathFrom(const std::string& text) {
    return {std::u8string(text.begin(), text.end())};
}

/// The first word may be a time.
std::vector<std::filesystem::path> TakeWords(WhyOptions& options) {
    std::vector<std::filesystem::path> paths;
    for (const std::string& word : options.words) {
        std::error_code error;
        const bool isFile = std::filesystem::exists(PathFrom(word), error);
        if (options.question.time.empty() && !isFile && TimeFromUser(word, 0)) {
            options.question.time = word;
        } else {
            paths.push_back(PathFrom(word));
        }
    }
    return paths;
}

void Print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

bool IsAnythingRead(const std::vector<Machine>& machines) {
    for (const Machine& machine : machines) {
        for (const LogFile& file : machine.files) {
            if (file.encoding != "unreadable") {
                return true;
            }
        }
    }
    return false;
}

int Why(WhyOptions& options) {
    const std::vector<std::filesystem::path> paths = TakeWords(options);
    try {
        const std::vector<Machine> machines = Analyse(paths, options.question);
        if (!IsAnythingRead(machines)) {
            std::fputs("None of the files can be read. Are they there, and may you read them?\n", stderr);
            return kNothingRead;
        }
        Print(options.json ? JsonReport(machines) : TextReport(machines));
        return 0;
    } catch (const BadQuestion& bad) {
        std::fprintf(stderr, "%s is no time: write 2026/11/20 20:37 or 20:37\n", Harmless(bad.text).c_str());
        return kNothingRead;
    }
}

}  // namespace

void AddWhyCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<WhyOptions>();
    CLI::App* const why = app.add_subcommand("why", "Says from the log why Wi-Fi is as it is");
    why->add_option("words", options->words, "A time, then files or folders of the log");
    why->add_option("--since", options->question.since, "Tell the story from this time on");
    why->add_option("--until", options->question.until, "Tell the story, and judge, up to this time");
    why->add_flag("--json", options->json, "As JSON");
    why->callback([options, &exitCode] { exitCode = Why(*options); });
}

}  // namespace Doctor
