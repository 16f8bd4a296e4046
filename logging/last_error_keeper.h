#pragma once

#include <windows.h>

namespace Orva::Shared {

/// Keeps the calling thread's last-error value over a scope.
class LastErrorKeeper {
  public:
    LastErrorKeeper() noexcept : m_error(GetLastError()) {}
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;
    ~LastErrorKeeper() { SetLastError(m_error); }

  private:
    DWORD m_error;
};

}  // namespace Orva::Shared
