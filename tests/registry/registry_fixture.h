#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/ledger.h"
#include "tests/support/words.h"

namespace RegistryTests {

using namespace Rig::Words;

constexpr REGSAM kReadAndWrite = 0x2001F;
constexpr REGSAM kView = KEY_WOW64_64KEY;

/// Watches what is deleted through `RegDeleteKeyExW`, for a scope.
class DeletionWatch {
  public:
    DeletionWatch() = default;

    /// Names of the keys in the order of their deletion, deleted or not.
    [[nodiscard]] const std::vector<std::wstring>& Names() const { return m_names; }
    /// The views that were asked for.
    [[nodiscard]] const std::vector<REGSAM>& Views() const { return m_views; }
    /// Lets the deletion of the keys of one name fail.
    void Fail(const wchar_t* name, LSTATUS error) {
        m_failingName = name;
        m_error = error;
    }

  private:
    std::vector<std::wstring> m_names;
    std::vector<REGSAM> m_views;
    std::wstring m_failingName;
    LSTATUS m_error = ERROR_SUCCESS;
    Rig::ScopedProc<&::RegDeleteKeyExW> m_fake{
        [this](HKEY key, LPCWSTR subkey, REGSAM view, DWORD reserved) -> LSTATUS {
            m_names.emplace_back(subkey);
            m_views.push_back(view);
            return subkey == m_failingName ? m_error : m_fake.Original(key, subkey, view, reserved);
        }};
};

/// A test with a part of the registry to itself, where each key is closed in the end. It watches deletions
/// whether it looks at them or not: the code under test looks the function up once a process and keeps it,
/// and what it keeps is then one that tests can replace.
class RegistryFixture : public testing::Test {
  protected:
    Rig::ScopedRegistryTree tree{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Linkvane Registry Test"};
    Rig::Ledger ledger;
    DeletionWatch deletions;
};

}  // namespace RegistryTests
