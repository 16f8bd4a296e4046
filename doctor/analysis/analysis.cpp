#include "doctor/analysis/analysis.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <set>
#include <system_error>
#include <utility>

#include "doctor/analysis/follower.h"
#include "doctor/analysis/line_reader.h"
#include "doctor/analysis/log_files.h"
#include "doctor/analysis/texts.h"

namespace Doctor {
namespace {

/// Threads stand among each other in the log, and a line may come behind one of another thread that is
/// a little younger. A longer way back in time is a clock that was set.
constexpr Time kDisorderMs = 2000;

/// The service cuts its messages at this.
constexpr std::size_t kMessageCharacters = 511;
/// Real lines behind a foreign text are of about its time.
constexpr Time kSameTimeMs = 5000;

/// UTF-16 units, in which the service counts.
std::size_t Characters(std::string_view text) {
    std::size_t units = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        units += (byte & 0xC0U) == 0x80U ? 0 : byte >= 0xF0U ? 2 : 1;
    }
    return units;
}

/// Tells lines from parts of names. A name of a network, an adapter or a setting may hold line ends, and
/// behind them what looks like a line. Nothing of it can be further away than a message is long, its
/// writer cannot have known the time at which it would be logged, and behind it the thread goes on that
/// logged the name.
class ForgeryGuard {
  public:
    /// Whether the line may be part of the foreign text before it.
    bool IsDoubtful(const LogLine& line) {
        if (m_reach == 0) {
            return false;
        }
        if (line.time < m_time - kSameTimeMs || line.time > m_time + kSameTimeMs ||
            (!m_threads.contains(line.thread) && line.level != Level::kTraceIn)) {
            Consume(Characters(line.operation) + Characters(line.text) + kHeaderCharacters);
            return true;
        }
        if (line.thread == m_thread) {
            m_reach = 0;
        }
        return false;
    }

    /// Whether text that is no line may belong to the message before it.
    bool IsContinuation(std::string_view text) {
        if (m_reach == 0) {
            return text.empty() && m_afterLine;
        }
        Consume(Characters(text) + 1);
        return true;
    }

    void Accept(const LogLine& line, bool holdsForeignText) {
        constexpr std::size_t kMostThreads = 100000;
        if (m_threads.size() > kMostThreads) {
            m_threads.clear();
        }
        m_threads.insert(line.thread);
        m_afterLine = true;
        const std::size_t length = Characters(line.text);
        if (holdsForeignText && length < kMessageCharacters) {
            m_reach = kMessageCharacters - length;
            m_time = line.time;
            m_thread = line.thread;
        }
    }

  private:
    static constexpr std::size_t kHeaderCharacters = 46;

    void Consume(std::size_t characters) { m_reach -= std::min(m_reach, characters); }

    std::size_t m_reach = 0;
    Time m_time = 0;
    std::uint32_t m_thread = 0;
    bool m_afterLine = false;
    std::set<std::uint32_t> m_threads;
};

/// Reads one machine's files in order and has them followed.
class MachineReader {
  public:
    MachineReader(Machine& machine, std::optional<Time> asked) : m_machine(machine), m_asked(asked) {}

    void Read(const std::filesystem::path& path) {
        LogFile file;
        file.path = path;
        file.name = PathText(path);
        LineReader reader(path);
        std::error_code error;
        if (!reader.IsOpen() || std::filesystem::is_directory(path, error)) {
            file.encoding = "unreadable";
            m_machine.files.push_back(std::move(file));
            return;
        }
        m_file = &file;
        std::string_view text;
        while (reader.Next(text)) {
            ++file.lines;
            TakeText(text, reader.Number());
        }
        file.bytes = reader.Bytes();
        file.encoding = EncodingText(file, reader.TextEncoding());
        m_machine.files.push_back(std::move(file));
    }

    void End() {
        if (!m_snapshot) {
            m_snapshot = m_follower.Snapshot();
        }
        m_follower.End();
        m_machine.situation = std::move(*m_snapshot);
        m_machine.history = std::move(m_follower.Told());
    }

    /// The silent end of the service between what was asked for and the next line, if there was one.
    [[nodiscard]] std::optional<std::pair<Time, Time>> SilentEnd() const {
        for (const auto& [last, next] : m_follower.SilentEnds()) {
            if (m_asked && last <= *m_asked && *m_asked < next) {
                return std::pair(last, next);
            }
        }
        return std::nullopt;
    }

    [[nodiscard]] const std::optional<Proof>& DoubtfulAfter() const { return m_doubtfulAfter; }
    [[nodiscard]] const std::optional<Proof>& SetBackAt() const { return m_setBackAt; }
    [[nodiscard]] Time SetBackBy() const { return m_setBackBy; }

  private:
    static std::string EncodingText(const LogFile& file, Encoding encoding) {
        if (file.bytes == 0 || file.lines == 0) {
            return "empty";
        }
        if (!file.from && file.unread > 0) {
            return "binary";
        }
        return encoding == Encoding::kUtf8 ? "UTF-8" : "UTF-16";
    }

    void TakeText(std::string_view text, std::uint64_t number) {
        const std::optional<LogLine> line = ParseLine(text);
        if (!line) {
            if (!m_guard.IsContinuation(text)) {
                ++m_file->unread;
            }
            return;
        }
        const Place place{.file = static_cast<std::uint32_t>(m_machine.files.size()), .line = number};
        if (m_guard.IsDoubtful(*line)) {
            ++m_file->doubtful;
            if (!m_doubtfulAfter) {
                m_doubtfulAfter = m_foreign;
            }
            return;
        }
        const Reading reading = Doctor::Read(line->operation, line->text);
        const bool foreign = HoldsForeignText(reading.said);
        if (foreign) {
            m_foreign = MakeProof(*line, place);
        }
        m_guard.Accept(*line, foreign);
        m_file->from = std::min(m_file->from.value_or(line->time), line->time);
        m_file->until = std::max(m_file->until.value_or(line->time), line->time);
        NoticeClock(*line, place);
        if (m_asked && line->time > *m_asked && !m_snapshot) {
            m_snapshot = m_follower.Snapshot();
        }
        m_follower.Take(*line, place);
    }

    void NoticeClock(const LogLine& line, Place place) {
        if (m_time && line.time < *m_time - kDisorderMs) {
            m_setBackAt = MakeProof(line, place);
            m_setBackBy = *m_time - line.time;
        }
        m_time = line.time;
    }

    static Proof MakeProof(const LogLine& line, Place place) {
        return {.place = place,
                .time = line.time,
                .level = line.level,
                .thread = line.thread,
                .operation = std::string(line.operation),
                .text = std::string(line.text)};
    }

    Machine& m_machine;
    std::optional<Time> m_asked;
    Follower m_follower;
    ForgeryGuard m_guard;
    LogFile* m_file = nullptr;
    std::optional<Time> m_time;
    std::optional<Situation> m_snapshot;
    std::optional<Proof> m_foreign;
    std::optional<Proof> m_doubtfulAfter;
    std::optional<Proof> m_setBackAt;
    Time m_setBackBy = 0;
};

/// A time that the user wrote, by the clock of one machine.
std::optional<Time> Asked(const std::string& text, std::optional<Time> latest) {
    if (text.empty()) {
        return std::nullopt;
    }
    const std::optional<Time> time = TimeFromUser(text, latest.value_or(0));
    if (!time) {
        throw BadQuestion{text};
    }
    return time;
}

std::string LinesText(std::uint64_t count) {
    return fmt::format("{} {}", count, count == 1 ? "line" : "lines");
}

void JudgeFiles(Machine& machine, const MachineReader& reader) {
    std::uint64_t unread = 0;
    std::uint64_t doubtful = 0;
    for (const LogFile& file : machine.files) {
        unread += file.unread;
        doubtful += file.doubtful;
    }
    const auto add = [&machine](Cause cause, std::string sentence, const std::optional<Proof>& proof) {
        Finding finding{.cause = cause, .sentence = std::move(sentence), .time = std::nullopt, .proof = {}};
        if (proof) {
            finding.time = proof->time;
            finding.proof.push_back(*proof);
        }
        machine.findings.push_back(std::move(finding));
    };
    if (doubtful > 0) {
        add(Cause::kLinesDoubtful,
            fmt::format("{} that may be part of a name with line ends in it {} left out", LinesText(doubtful),
                        doubtful == 1 ? "was" : "were"),
            reader.DoubtfulAfter());
    }
    if (reader.SetBackAt()) {
        add(Cause::kClockSetBack, fmt::format("The clock was set back by {} s", reader.SetBackBy() / 1000),
            reader.SetBackAt());
    }
    if (unread > 0 && machine.history.linesOfService > 0) {
        add(Cause::kLogDamaged, fmt::format("{} cannot be read as part of the log", LinesText(unread)),
            std::nullopt);
    }
    for (std::size_t i = 1; i < machine.files.size(); ++i) {
        const LogFile& before = machine.files[i - 1];
        const LogFile& file = machine.files[i];
        if (before.until && file.from && *file.from < *before.until - kDisorderMs && !reader.SetBackAt()) {
            add(Cause::kLogFilesOverlap,
                fmt::format("{} and {} cover the same time: they may be of two machines", before.name,
                            file.name),
                std::nullopt);
        }
    }
}

Machine ReadMachine(const LogSet& set, const Question& question) {
    Machine machine;
    machine.name = set.name;
    machine.at = Asked(question.time, set.latest);
    machine.from = Asked(question.since, set.latest);
    machine.until = Asked(question.until, set.latest);
    // What comes after the time of interest does not belong to the verdict.
    const std::optional<Time> asked = machine.at ? machine.at : machine.until;
    machine.asked = machine.at;
    MachineReader reader(machine, asked);
    for (const std::filesystem::path& path : set.paths) {
        reader.Read(path);
    }
    reader.End();
    machine.findings = Judge(machine.situation, machine.history, asked, reader.SilentEnd());
    JudgeFiles(machine, reader);
    machine.at = asked ? asked : machine.history.until;
    machine.from =
        std::max(machine.from.value_or(std::numeric_limits<Time>::min()), machine.history.from.value_or(0));
    machine.until =
        std::min(machine.until.value_or(std::numeric_limits<Time>::max()), machine.history.until.value_or(0));
    return machine;
}

}  // namespace

std::vector<Machine> Analyse(const std::vector<std::filesystem::path>& paths, const Question& question) {
    std::vector<Machine> machines;
    for (const LogSet& set : SortFiles(paths)) {
        machines.push_back(ReadMachine(set, question));
    }
    return machines;
}

}  // namespace Doctor
