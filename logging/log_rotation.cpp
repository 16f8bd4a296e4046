#include "logging/log_rotation.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#include "logging/format.h"
#include "platform/handles.h"

namespace Orva::Shared {
namespace {

constexpr std::size_t kDriveCharacters = 3;
/// With so many numbered files the oldest makes room. Only with exactly so many: of more none is deleted.
constexpr std::size_t kFullCount = 9;
constexpr unsigned kNewestNumber = 1;
constexpr wchar_t kTemporaryPrefix[] = L"_log_";
/// Temporary names are numbered as the files are, modulo this. Zero lets the system choose. Of two
/// files that are so many numbers apart, the older one is lost.
constexpr unsigned kTemporaryNumbers = 256;

using PathBuffer = std::array<wchar_t, MAX_PATH>;

struct LogNames {
    std::wstring directory;  ///< with its last backslash
    std::wstring base;       ///< the log's path without its extension

    explicit LogNames(const std::wstring& logPath) {
        PathBuffer full{};
        GetFullPathNameW(logPath.c_str(), MAX_PATH, full.data(), nullptr);
        std::array<wchar_t, kDriveCharacters> drive{};
        PathBuffer folders{};
        PathBuffer name{};
        _wsplitpath_s(full.data(), drive.data(), drive.size(), folders.data(), folders.size(), name.data(),
                      name.size(), nullptr, 0);
        directory = std::wstring(drive.data()) + folders.data();
        base = directory + name.data();
    }

    [[nodiscard]] std::wstring Numbered(unsigned number) const {
        PathBuffer path{};
        FormatText(path.data(), path.size(), L"%s_%04d.log", base.c_str(), number);
        return path.data();
    }
};

/// Paths by the time of the last write, the oldest first. Of files with the same time only the first found
/// is among them, and the others keep their names.
using FilesByAge = std::map<std::uint64_t, std::wstring>;

/// Finds the numbered files, and whatever else is named like them.
FilesByAge FindNumberedFiles(const LogNames& names) {
    FilesByAge files;
    WIN32_FIND_DATAW found{};
    const Platform::UniqueFindHandle search(FindFirstFileW(CutPath(names.base + L"_*.log").c_str(), &found));
    if (!search) {
        return files;
    }
    do {
        files.emplace(std::bit_cast<std::uint64_t>(found.ftLastWriteTime),
                      CutPath(names.directory + found.cFileName));
    } while (FindNextFileW(search.Get(), &found) != FALSE);
    return files;
}

/// Files to be renamed, from and to.
using Moves = std::vector<std::pair<std::wstring, std::wstring>>;

/// Moves the files out of the way, the oldest first, until one cannot be moved. Returns the moves
/// that give them their new names.
Moves MoveToTemporaryNames(const FilesByAge& files, const LogNames& names) {
    Moves moves;
    auto number = static_cast<unsigned>(files.size()) + kNewestNumber;
    for (const auto& [lastWrite, path] : files) {
        PathBuffer temporary{};
        GetTempFileNameW(names.directory.c_str(), kTemporaryPrefix, number % kTemporaryNumbers,
                         temporary.data());
        // Left over from a rotation that did not come to its end, or just made by the system.
        DeleteFileW(temporary.data());
        if (MoveFileW(path.c_str(), temporary.data()) == FALSE) {
            break;
        }
        moves.emplace_back(temporary.data(), names.Numbered(number));
        --number;
    }
    return moves;
}

}  // namespace

std::wstring CutPath(std::wstring path) {
    path.resize(std::min<std::size_t>(path.size(), MAX_PATH - 1));
    return path;
}

std::wstring ShiftNumberedFiles(const std::wstring& logPath) {
    const LogNames names(logPath);
    FilesByAge files = FindNumberedFiles(names);
    if (files.size() == kFullCount) {
        DeleteFileW(files.begin()->second.c_str());
        files.erase(files.begin());
    }
    // In two phases, so that no new name is still in use by a file that has not moved yet.
    for (const auto& [from, to] : MoveToTemporaryNames(files, names)) {
        MoveFileW(from.c_str(), to.c_str());
    }
    return names.Numbered(kNewestNumber);
}

}  // namespace Orva::Shared
