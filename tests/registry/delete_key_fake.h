#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "tests/support/scoped_import.h"

namespace RegistryTests {

using DeleteKeyExFake = Rig::ScopedProc<"RegDeleteKeyExW", LSTATUS(HKEY, LPCWSTR, REGSAM, DWORD)>;

/// Windows' own function.
inline LSTATUS RealDeleteKeyEx(HKEY key, LPCWSTR subkey, REGSAM view, DWORD reserved) {
    const auto real = reinterpret_cast<decltype(&RegDeleteKeyExW)>(reinterpret_cast<void*>(
        Rig::Real<&::GetProcAddress>(GetModuleHandleW(L"advapi32.dll"), "RegDeleteKeyExW")));
    return real(key, subkey, view, reserved);
}

/// The code under test looks the function up once a process and keeps it. This makes the kept one
/// a function that tests can replace, also when they share the process.
inline void KeepReplaceable() {
    static const DeleteKeyExFake& forever = *new DeleteKeyExFake(&RealDeleteKeyEx);
    static_cast<void>(forever);
}

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
    LSTATUS Delete(HKEY key, LPCWSTR subkey, REGSAM view, DWORD reserved) {
        m_names.emplace_back(subkey);
        m_views.push_back(view);
        return subkey == m_failingName ? m_error : RealDeleteKeyEx(key, subkey, view, reserved);
    }

    std::vector<std::wstring> m_names;
    std::vector<REGSAM> m_views;
    std::wstring m_failingName;
    LSTATUS m_error = ERROR_SUCCESS;
    DeleteKeyExFake m_fake{[this](HKEY key, LPCWSTR subkey, REGSAM view, DWORD reserved) {
        return Delete(key, subkey, view, reserved);
    }};
};

}  // namespace RegistryTests
