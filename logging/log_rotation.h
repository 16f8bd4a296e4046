#pragma once

#include <string>

namespace Orva::Shared {

/// Cuts a path to the system's greatest length.
[[nodiscard]] std::wstring CutPath(std::wstring path);

/// Gives each numbered file of a log (`<base>_0001.log` and so on, beside it) the next number, and deletes
/// the oldest of nine. Nothing is reported: what cannot be moved keeps its name. Returns the path of number
/// 1, the newest.
std::wstring ShiftNumberedFiles(const std::wstring& logPath);

}  // namespace Orva::Shared
