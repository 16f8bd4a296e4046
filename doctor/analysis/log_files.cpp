#include "doctor/analysis/log_files.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <system_error>

#include "doctor/analysis/input_file.h"
#include "doctor/analysis/line_reader.h"

namespace Doctor {
namespace {

struct Candidate {
    std::filesystem::path path;
    std::optional<Time> first;
    std::optional<Time> last;
    /// The service's number of the file: 0 for the newest. Nothing for other names.
    std::optional<int> number;
};

/// `NAME.log` is number 0, `NAME_0007.log` number 7.
std::optional<int> RotationNumber(const std::filesystem::path& path) {
    constexpr std::size_t kDigits = 4;
    if (path.extension() != ".log") {
        return std::nullopt;
    }
    const std::string stem = PathText(path.stem());
    const std::size_t bar = stem.rfind('_');
    if (bar == std::string::npos) {
        return 0;
    }
    const std::string digits = stem.substr(bar + 1);
    if (digits.size() != kDigits || digits.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return std::stoi(digits);
}

/// The last bytes of a file, or all.
std::string Tail(const std::filesystem::path& path, std::size_t bytes) {
    const InputFile file = OpenForReading(path);
    if (!file) {
        return {};
    }
    // Where there are fewer the place stays at the beginning.
    static_cast<void>(std::fseek(file.get(), -static_cast<long>(bytes), SEEK_END));
    std::string tail(bytes, '\0');
    tail.resize(std::fread(tail.data(), 1, bytes, file.get()));
    return tail;
}

/// The first line's time, and the last's as far as it stands near the end.
void LookAtEnds(Candidate& candidate) {
    constexpr int kMostLines = 2000;
    LineReader reader(candidate.path);
    std::string_view text;
    for (int i = 0; i < kMostLines && reader.Next(text); ++i) {
        if (const std::optional<LogLine> line = ParseLine(text)) {
            candidate.first = line->time;
            break;
        }
    }
    constexpr std::size_t kTailBytes = std::size_t{64} * 1024;
    std::string tail = Tail(candidate.path, kTailBytes);
    // Without its zeros ASCII in UTF-16 reads as ASCII.
    std::erase(tail, '\0');
    for (std::size_t end = tail.size(); end != 0 && end != std::string::npos && !candidate.last;) {
        const std::size_t lineEnd = tail.rfind('\n', end - 1);
        const std::size_t first = lineEnd == std::string::npos ? 0 : lineEnd + 1;
        std::string_view line = std::string_view(tail).substr(first, end - first);
        if (const std::optional<LogLine> parsed = ParseLine(line)) {
            candidate.last = parsed->time;
        }
        end = lineEnd == std::string::npos ? 0 : lineEnd;
    }
    if (!candidate.last) {
        candidate.last = candidate.first;
    }
}

std::vector<std::filesystem::path> FilesOf(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) {
        return {path};
    }
    std::vector<std::filesystem::path> files;
    for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().extension() == ".log" && entry->is_regular_file(error)) {
            files.push_back(entry->path());
        }
    }
    return files;
}

bool HaveOrderOfNumbers(const std::vector<Candidate>& candidates) {
    std::set<int> numbers;
    for (const Candidate& candidate : candidates) {
        if (!candidate.number || !numbers.insert(*candidate.number).second) {
            return false;
        }
    }
    return true;
}

LogSet MakeSet(std::vector<Candidate> candidates) {
    const bool byNumber = HaveOrderOfNumbers(candidates);
    std::stable_sort(candidates.begin(), candidates.end(),
                     [byNumber](const Candidate& one, const Candidate& two) {
                         if (byNumber) {
                             return *one.number > *two.number;
                         }
                         return one.first.value_or(0) < two.first.value_or(0);
                     });
    LogSet set;
    for (const Candidate& candidate : candidates) {
        set.paths.push_back(candidate.path);
        if (candidate.last) {
            set.latest = std::max(set.latest.value_or(*candidate.last), *candidate.last);
        }
    }
    return set;
}

}  // namespace

std::string PathText(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

std::vector<LogSet> SortFiles(const std::vector<std::filesystem::path>& paths) {
    std::map<std::filesystem::path, std::vector<Candidate>> folders;
    std::set<std::filesystem::path> seen;
    for (const std::filesystem::path& given : paths) {
        for (const std::filesystem::path& path : FilesOf(given)) {
            if (!seen.insert(path.lexically_normal()).second) {
                continue;
            }
            Candidate candidate{
                .path = path, .first = std::nullopt, .last = std::nullopt, .number = RotationNumber(path)};
            LookAtEnds(candidate);
            folders[path.parent_path().lexically_normal()].push_back(std::move(candidate));
        }
    }
    std::vector<LogSet> sets;
    for (auto& [folder, candidates] : folders) {
        const std::string first = PathText(candidates.front().path);
        const bool single = candidates.size() == 1;
        LogSet set = MakeSet(std::move(candidates));
        set.name = single ? first : PathText(folder).empty() ? "." : PathText(folder);
        sets.push_back(std::move(set));
    }
    return sets;
}

}  // namespace Doctor
