#include "logging/log_rotation.h"

#include <cstddef>
#include <cstdlib>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "platform/handles.h"

namespace Orva::Shared {
namespace {

constexpr std::size_t kDriveCharacters = 3;
/// With so many numbered files the oldest makes room. Only with exactly so many: of more none is deleted.
constexpr std::size_t kFullCount = 9;
constexpr wchar_t kTemporaryPrefix[] = L"_log_";
/// Temporary names are numbered as the files are, modulo this. Zero lets the system choose. Of two
/// files that are so many numbers apart, the older one is lost.
constexpr unsigned kTemporaryNumbers = 256;

struct NumberedFile {
    std::wstring name;
    FILETIME lastWrite;
};

struct WrittenEarlier {
    bool operator()(const NumberedFile& left, const NumberedFile& right) const noexcept {
        return std::tie(left.lastWrite.dwHighDateTime, left.lastWrite.dwLowDateTime) <
               std::tie(right.lastWrite.dwHighDateTime, right.lastWrite.dwLowDateTime);
    }
};

/// Oldest first. Of files with the same time only the first found is in it, and the others keep
/// their names.
using FilesByAge = std::set<NumberedFile, WrittenEarlier>;

struct Move {
    LogPath from;
    LogPath to;
};

FilesByAge FindNumberedFiles(const RotatedFileNames& names) {
    FilesByAge files;
    WIN32_FIND_DATAW found{};
    const Platform::UniqueFindHandle search(FindFirstFileW(names.Pattern().data(), &found));
    if (!search) {
        return files;
    }
    do {
        files.insert({found.cFileName, found.ftLastWriteTime});
    } while (FindNextFileW(search.Get(), &found) != FALSE);
    return files;
}

void DeleteOldestOfFullSet(FilesByAge& files, const RotatedFileNames& names) {
    if (files.size() == kFullCount) {
        DeleteFileW(names.InDirectory(files.begin()->name.c_str()).data());
        files.erase(files.begin());
    }
}

LogPath TemporaryName(const RotatedFileNames& names, unsigned number) {
    LogPath name{};
    GetTempFileNameW(names.Directory().data(), kTemporaryPrefix, number % kTemporaryNumbers, name.data());
    return name;
}

/// Moves the files out of the way, the oldest first, until one cannot be moved. Returns the moves
/// that give them their new names.
std::vector<Move> MoveToTemporaryNames(const FilesByAge& files, const RotatedFileNames& names) {
    std::vector<Move> moves;
    auto number = static_cast<unsigned>(files.size()) + kNewestNumber;
    for (const NumberedFile& file : files) {
        const LogPath temporary = TemporaryName(names, number);
        // Left over from a rotation that did not come to its end, or just made by the system.
        DeleteFileW(temporary.data());
        if (MoveFileW(names.InDirectory(file.name.c_str()).data(), temporary.data()) == FALSE) {
            break;
        }
        moves.push_back({temporary, names.Numbered(number)});
        --number;
    }
    return moves;
}

}  // namespace

RotatedFileNames::RotatedFileNames(const wchar_t* logPath) {
    LogPath full{};
    GetFullPathNameW(logPath, static_cast<DWORD>(full.size()), full.data(), nullptr);
    std::array<wchar_t, kDriveCharacters> drive{};
    LogPath directory{};
    LogPath name{};
    LogPath extension{};
    _wsplitpath_s(full.data(), drive.data(), drive.size(), directory.data(), directory.size(), name.data(),
                  name.size(), extension.data(), extension.size());
    m_directory = MakeLogPath(L"%s%s", drive.data(), directory.data());
    m_base = MakeLogPath(L"%s%s", m_directory.data(), name.data());
}

void ShiftNumberedFiles(const RotatedFileNames& names) {
    FilesByAge files = FindNumberedFiles(names);
    DeleteOldestOfFullSet(files, names);
    // In two phases, so that no new name is still in use by a file that has not moved yet.
    for (const Move& move : MoveToTemporaryNames(files, names)) {
        MoveFileW(move.from.data(), move.to.data());
    }
}

}  // namespace Orva::Shared
