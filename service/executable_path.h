#pragma once

#include <windows.h>

#include <array>
#include <cstddef>

/// Characters of the executable's path, its end included.
constexpr std::size_t kExecutablePathCharacters = MAX_PATH;

/// Gets the full path of the running executable. Returns the Win32 error, ERROR_SUCCESS on
/// success. A path that does not fit is a failure: half a path leads nowhere.
DWORD GetExecutablePath(std::array<wchar_t, kExecutablePathCharacters>& path);
