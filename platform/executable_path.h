#pragma once

#include <windows.h>

#include <span>

#include "platform/handles.h"

namespace Platform {

/// Gets the full path of the running executable, cut to the room there is (not none), with its end. The Win32
/// error; ERROR_INSUFFICIENT_BUFFER for a path that was cut, which leads nowhere.
inline DWORD GetExecutablePath(std::span<wchar_t> path) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    path.back() = L'\0';
    // A path that was cut fills the buffer; a whole one leaves room for its end.
    return length < path.size() ? ErrorUnless(length != 0) : ERROR_INSUFFICIENT_BUFFER;
}

}  // namespace Platform
