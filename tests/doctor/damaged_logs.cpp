#include "tests/doctor/damaged_logs.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <vector>

#include "doctor/analysis/report.h"

namespace Doctor {
namespace {

/// More would only take longer.
constexpr std::size_t kMostLines = 48;

using Lines = std::vector<std::string>;

class Damage {
  public:
    explicit Damage(std::uint64_t number) : m_random(number) {}

    std::size_t Below(std::size_t bound) {
        return bound == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, bound - 1)(m_random);
    }

    /// Some lines of a log, on from any.
    Lines Some(const Lines& all) {
        const std::size_t first = Below(all.size());
        const std::size_t count = 1 + Below(std::min(kMostLines, all.size() - first));
        return {all.begin() + static_cast<std::ptrdiff_t>(first),
                all.begin() + static_cast<std::ptrdiff_t>(first + count)};
    }

    void DoToLines(Lines& lines) {
        const std::size_t at = Below(lines.size());
        switch (Below(7)) {
            case 0:
                lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(at));
                break;
            case 1:
                lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(Below(lines.size())), lines[at]);
                break;
            case 2:
                std::swap(lines[at], lines[Below(lines.size())]);
                break;
            case 3:
                lines[at].resize(Below(lines[at].size() + 1));
                break;
            case 4:
                lines[at] += "\n" + lines[Below(lines.size())];
                break;
            case 5:
                // Another time, thread or number.
                for (char& c : lines[at]) {
                    if (c >= '0' && c <= '9' && Below(8) == 0) {
                        c = static_cast<char>('0' + Below(10));
                    }
                }
                break;
            default:
                lines[at] += std::string(Below(700), static_cast<char>(Below(256)));
                break;
        }
        if (lines.empty()) {
            lines.emplace_back();
        }
    }

    void DoToBytes(std::string& bytes) {
        if (bytes.empty()) {
            return;
        }
        const std::size_t at = Below(bytes.size());
        switch (Below(5)) {
            case 0:
                bytes[at] = static_cast<char>(Below(256));
                break;
            case 1:
                bytes.erase(at, Below(200));
                break;
            case 2:
                bytes.insert(at, std::string(Below(20), '\0'));
                break;
            case 3:
                bytes.insert(at, bytes.substr(Below(bytes.size()), Below(300)));
                break;
            default:
                bytes.insert(at, "\xEF\xBB\xBF");
                break;
        }
    }

    std::string InOtherEncoding(const std::string& bytes) {
        const bool big = Below(2) == 0;
        std::string units = Below(2) == 0 ? "" : big ? "\xFE\xFF" : "\xFF\xFE";
        for (const char c : bytes) {
            units += big ? std::string{'\0', c} : std::string{c, '\0'};
        }
        return units;
    }

  private:
    std::mt19937_64 m_random;
};

Lines SplitLines(const std::string& text) {
    Lines lines;
    std::size_t begin = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
        lines.push_back(text.substr(begin, end + 1 - begin));
        begin = end + 1;
    }
    return lines;
}

}  // namespace

std::string DamagedLog(const std::string& whole, std::uint64_t number) {
    static const Lines all = SplitLines(whole);
    Damage damage(number);
    Lines lines = damage.Some(all);
    for (std::size_t i = damage.Below(6); i > 0; --i) {
        damage.DoToLines(lines);
    }
    std::string bytes;
    for (const std::string& line : lines) {
        bytes += line;
    }
    for (std::size_t i = damage.Below(6); i > 0; --i) {
        damage.DoToBytes(bytes);
    }
    return damage.Below(8) == 0 ? damage.InOtherEncoding(bytes) : bytes;
}

std::string TryDamagedLog(const std::string& folder, const std::string& whole, std::uint64_t number) {
    const std::filesystem::path path = std::filesystem::path(folder) / "LinkvaneService.log";
    const std::string bytes = DamagedLog(whole, number);
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    Question question;
    if (number % 4 == 0) {
        question.time = fmt::format("{:02}:{:02}", number / 4 % 24, number / 96 % 60);
    }
    if (number % 5 == 0) {
        question.since = fmt::format("2026/11/{:02}", 1 + number / 5 % 30);
    }
    const std::vector<Machine> machines = Analyse({path}, question);
    if (machines.size() != 1 || machines.front().findings.empty()) {
        return "no finding";
    }
    const std::string text = TextReport(machines);
    const auto isSteering = [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\n'; };
    if (std::any_of(text.begin(), text.end(), isSteering)) {
        return "a control character in the report";
    }
    const nlohmann::json report = nlohmann::json::parse(JsonReport(machines), nullptr, false);
    if (report.is_discarded()) {
        return "no JSON";
    }
    for (const nlohmann::json& lane : report["machines"][0]["lanes"]) {
        std::int64_t end = 0;
        for (const nlohmann::json& interval : lane["intervals"]) {
            if (interval["from"] > interval["until"] || (end != 0 && interval["from"] != end)) {
                return "a gap or a step back in the lane " + lane["id"].get<std::string>();
            }
            end = interval["until"];
        }
    }
    return "";
}

std::string WholeLog() {
    std::string whole;
    for (const auto& entry : std::filesystem::directory_iterator(DOCTOR_LOGS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        whole.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return whole;
}

}  // namespace Doctor
