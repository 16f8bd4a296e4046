#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "doctor/analysis/analysis.h"
#include "doctor/analysis/log_files.h"
#include "doctor/analysis/report.h"
#include "doctor/command_line.h"
#include "doctor/page/page.h"

namespace Doctor {
namespace {

constexpr int kNothingRead = 2;
constexpr int kNotWritten = 3;

struct WhyOptions {
    Question question;
    std::vector<std::string> words;
    bool json = false;
    std::string page;
    std::string picture;
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

/// Where the service of this machine, which runs under the local system account, keeps its log; empty
/// where there is no Windows.
std::filesystem::path FolderOfThisMachine() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment.
    const char* const windows = std::getenv("SystemRoot");
    if (windows == nullptr) {
        return {};
    }
    return std::filesystem::path(windows) / "System32" / kServiceLogFolder;
}

int Write(const std::string& name, const std::string& text) {
    std::ofstream file(PathFrom(name), std::ios::binary);
    if (!file.write(text.data(), static_cast<std::streamsize>(text.size())).flush()) {
        std::fprintf(stderr, "%s cannot be written\n", Harmless(name).c_str());
        return kNotWritten;
    }
    return 0;
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
    std::vector<std::filesystem::path> paths = TakeWords(options);
    if (paths.empty()) {
        paths.push_back(FolderOfThisMachine());
        if (paths.front().empty()) {
            std::fputs("Name the files of the log, or the folder that they are in.\n", stderr);
            return kNothingRead;
        }
    }
    try {
        const std::vector<Machine> machines = Analyse(paths, options.question);
        if (!IsAnythingRead(machines)) {
            std::fprintf(stderr,
                         "No log can be read in %s. Is it there, and may you read it? (This machine's own "
                         "log wants an "
                         "elevated prompt.)\n",
                         Harmless(PathText(paths.front())).c_str());
            return kNothingRead;
        }
        if (!options.page.empty()) {
            return Write(options.page, RenderPage(JsonReport(machines)));
        }
        if (!options.picture.empty()) {
            return Write(options.picture, PictureReport(machines));
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
    CLI::Option* const json = why->add_flag("--json", options->json, "As JSON");
    CLI::Option* const page = why->add_option("--html", options->page, "As a page, written to this file");
    CLI::Option* const picture =
        why->add_option("--picture", options->picture, "As a picture (SVG), written to this file");
    page->excludes(json)->excludes(picture);
    picture->excludes(json);
    why->callback([options, &exitCode] { exitCode = Why(*options); });
}

}  // namespace Doctor
