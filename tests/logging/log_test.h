#pragma once

#include <windows.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <thread>

#include "platform/handles.h"
#include "tests/logging/log_directory.h"
#include "tests/logging/log_entries.h"
#include "tests/support/registry_tree.h"
#include "tests/support/scoped_import.h"

namespace LoggingTests {

/// The policies of the product and of this test executable, for a scope: at first there are none.
class Policies {
  public:
    void Create() const { m_tree.Create(); }
    void OfProduct(const std::wstring& name, const Rig::RegistryValue& value) const {
        m_tree.Write({}, name, value);
    }
    void OfExecutable(const std::wstring& name, const Rig::RegistryValue& value) const {
        m_tree.Write(kExecutable, name, value);
    }
    /// The executable's key, empty or not.
    void CreateExecutable() const { m_tree.Create(kExecutable); }

  private:
    static constexpr const wchar_t* kExecutable = L"logging_tests";

    Rig::ScopedRegistryTree m_tree{HKEY_LOCAL_MACHINE, L"Software\\Policies\\Orva\\Orva Brimlet Support"};
};

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

/// A log of the test's own, without policies.
class LogTest : public testing::Test {
  protected:
    /// The log of that executable.
    explicit LogTest(const std::wstring& executable = L"logging_tests") : m_appData(executable) {}

    /// Whether another thread could take the log's mutex now.
    [[nodiscard]] bool MutexIsFree() const {
        bool free = false;
        std::thread([&] {
            const Platform::UniqueHandle mutex(
                CreateMutexW(nullptr, FALSE, MutexNameOf(m_appData.Log()).c_str()));
            free = WaitForSingleObject(mutex.Get(), 0) == WAIT_OBJECT_0;
            if (free) {
                ReleaseMutex(mutex.Get());
            }
        }).join();
        return free;
    }

    /// Waits for whoever has the log's file.
    void WaitForWriter() const { const HeldMutex held(m_appData.Log()); }

    /// Waits until the log has so many lines.
    [[nodiscard]] bool HasLines(std::size_t count) const {
        return Eventually([&] {
            const std::string bytes = ReadBytes(m_appData.Log());
            return static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '\n')) >= count;
        });
    }

    [[nodiscard]] std::vector<std::string> Messages() const { return ReadMessages(m_appData.Log()); }

    Policies m_policies;
    AppData m_appData;
};

}  // namespace LoggingTests
