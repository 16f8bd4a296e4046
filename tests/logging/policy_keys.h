#pragma once

#include <string>

#include "tests/support/registry_tree.h"

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

}  // namespace LoggingTests
