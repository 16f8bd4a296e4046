#pragma once

#include <windows.h>

#include <array>

namespace Orva::Shared {

/// The number of the newest numbered file.
constexpr unsigned kNewestNumber = 1;

/// A path of the system's greatest length, its end included; longer ones are cut.
using LogPath = std::array<wchar_t, MAX_PATH>;

/// The names of a log's numbered files, which stand in its directory: `<base>_0001.log` and so on.
class RotatedFileNames {
  public:
    explicit RotatedFileNames(const wchar_t* logPath);

    /// With its last backslash.
    [[nodiscard]] const LogPath& Directory() const noexcept { return m_directory; }
    /// Finds the numbered files, and whatever else is named like them.
    [[nodiscard]] LogPath Pattern() const;
    /// The rotated file of that number; 1 is the newest.
    [[nodiscard]] LogPath Numbered(unsigned number) const;
    /// A file that was found in the directory.
    [[nodiscard]] LogPath InDirectory(const wchar_t* fileName) const;

  private:
    LogPath m_directory{};
    LogPath m_base{};
};

/// Gives every numbered file the next number, so that the newest number is free, and deletes the
/// oldest of nine. Nothing is reported: what cannot be moved keeps its name.
void ShiftNumberedFiles(const RotatedFileNames& names);

}  // namespace Orva::Shared
