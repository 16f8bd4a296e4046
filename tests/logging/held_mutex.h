#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>

#include "platform/handles.h"
#include "tests/support/scoped_import.h"

namespace LoggingTests {

/// The name of the mutex that guards a log file.
[[nodiscard]] inline std::wstring MutexNameOf(const std::wstring& logPath) {
    std::wstring name = logPath.substr(logPath.find(L':') + 1);
    std::replace(name.begin(), name.end(), L'\\', L'.');
    return L"Global\\" + name;
}

/// Holds a log file's mutex as another program would, so that writers wait, for a scope.
class HeldMutex {
  public:
    explicit HeldMutex(const std::wstring& logPath)
        : m_mutex(Rig::Real<&::CreateMutexW>(nullptr, FALSE, MutexNameOf(logPath).c_str())) {
        EXPECT_EQ(Rig::Real<&::WaitForSingleObject>(m_mutex, INFINITE), WAIT_OBJECT_0);
    }
    HeldMutex(const HeldMutex&) = delete;
    HeldMutex& operator=(const HeldMutex&) = delete;
    ~HeldMutex() {
        Rig::Real<&::ReleaseMutex>(m_mutex);
        Rig::Real<&::CloseHandle>(m_mutex);
    }

  private:
    HANDLE m_mutex;
};

/// Whether another thread could take a log file's mutex now.
[[nodiscard]] inline bool MutexIsFree(const std::wstring& logPath) {
    bool free = false;
    std::thread([&] {
        const Platform::UniqueHandle mutex(CreateMutexW(nullptr, FALSE, MutexNameOf(logPath).c_str()));
        free = WaitForSingleObject(mutex.Get(), 0) == WAIT_OBJECT_0;
        if (free) {
            ReleaseMutex(mutex.Get());
        }
    }).join();
    return free;
}

}  // namespace LoggingTests
