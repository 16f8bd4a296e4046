#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "doctor/analysis/log_line.h"

namespace Doctor {

/// Where the service, which runs under the local system account, keeps its log: below Windows' system folder.
constexpr char kServiceLogFolder[] = "config/systemprofile/AppData/Roaming/orvkLog";

/// The files of one machine's log, oldest first.
struct LogSet {
    std::string name;
    std::vector<std::filesystem::path> paths;
    /// The latest time in any of them.
    std::optional<Time> latest;
};

/// Sorts files into machines, one a folder, and each machine's files into the order of time. A folder
/// among the paths stands for the logs in it. Where all files of a folder have the names that the
/// service gives them, their numbers decide: clocks may have been set back.
std::vector<LogSet> SortFiles(const std::vector<std::filesystem::path>& paths);

/// A path for people and JSON.
std::string PathText(const std::filesystem::path& path);

}  // namespace Doctor
