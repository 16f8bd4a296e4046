#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "doctor/analysis/causes.h"
#include "doctor/analysis/history.h"

namespace Doctor {

/// One answer to "why", with what proves it.
struct Finding {
    Cause cause = Cause::kCannotBeTold;
    std::string sentence;
    std::optional<Time> time;
    std::vector<Proof> proof;
};

struct LogFile {
    std::filesystem::path path;
    std::string name;  ///< the path as UTF-8
    std::uint64_t bytes = 0;
    std::uint64_t lines = 0;
    /// Lines that are neither lines of a log nor parts of one.
    std::uint64_t unread = 0;
    /// Lines that may be part of a name that holds line ends; they are left out.
    std::uint64_t doubtful = 0;
    /// UTF-8, UTF-16, binary, empty or unreadable.
    std::string encoding;
    std::optional<Time> from;
    std::optional<Time> until;
};

/// What is asked for. The times as the user wrote them.
struct Question {
    std::string time;
    std::string since;
    std::string until;
};

/// The log of one machine, read and judged. Files of one folder are one machine's.
struct Machine {
    std::string name;
    std::vector<LogFile> files;
    History history;
    /// The moment that was asked for, if any was.
    std::optional<Time> asked;
    /// The moment that the findings are about, and what was so then.
    std::optional<Time> at;
    Situation situation;
    /// The first is the verdict. Never empty.
    std::vector<Finding> findings;
    /// What is told: the question's since and until, or all.
    std::optional<Time> from;
    std::optional<Time> until;
};

/// The question cannot be read: a time is none.
struct BadQuestion {
    std::string text;
};

/// Reads the files (of a folder: its logs), sorts them into machines and judges each. Throws
/// `BadQuestion`; files that cannot be read are among the files, with nothing in them.
std::vector<Machine> Analyse(const std::vector<std::filesystem::path>& paths, const Question& question);

/// Judges a moment. `endedSilently`: the service that ran then ended without a word before the next
/// line, at that time.
std::vector<Finding> Judge(const Situation& now, const History& history, std::optional<Time> at,
                           std::optional<std::pair<Time, Time>> endedSilently);

}  // namespace Doctor
