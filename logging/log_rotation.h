#pragma once

#include <windows.h>

#include <array>

#include "logging/format.h"

namespace Orva::Shared {

/// The number of the newest numbered file.
constexpr unsigned kNewestNumber = 1;

/// A path of the system's greatest length, its end included; longer ones are cut.
using LogPath = std::array<wchar_t, MAX_PATH>;

/// Puts one together from pieces of text.
template <class... Pieces>
[[nodiscard]] LogPath MakeLogPath(const wchar_t* format, Pieces... pieces) {
    LogPath path{};
    FormatText(path.data(), path.size(), format, pieces...);
    return path;
}

/// The names of a log's numbered files, which stand in its directory: `<base>_0001.log` and so on.
class RotatedFileNames {
  public:
    explicit RotatedFileNames(const wchar_t* logPath);

    /// With its last backslash.
    [[nodiscard]] const LogPath& Directory() const noexcept { return m_directory; }
    /// Finds the numbered files, and whatever else is named like them.
    [[nodiscard]] LogPath Pattern() const { return MakeLogPath(L"%s%s", m_base.data(), L"_*.log"); }
    /// The rotated file of that number; 1 is the newest.
    [[nodiscard]] LogPath Numbered(unsigned number) const {
        return MakeLogPath(L"%s_%04d.log", m_base.data(), number);
    }
    /// A file that was found in the directory.
    [[nodiscard]] LogPath InDirectory(const wchar_t* fileName) const {
        return MakeLogPath(L"%s%s", m_directory.data(), fileName);
    }

  private:
    LogPath m_directory{};
    LogPath m_base{};
};

/// Gives every numbered file the next number, so that the newest number is free, and deletes the
/// oldest of nine. Nothing is reported: what cannot be moved keeps its name.
void ShiftNumberedFiles(const RotatedFileNames& names);

}  // namespace Orva::Shared
