#pragma once

#include <windows.h>
#include <objbase.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/scoped_import.h"

namespace ServiceTests {

/// Takes the place of COM's process security, for a scope. It refuses
/// unless told otherwise, so that the process can be secured again by the next test.
class FakeCom {
  public:
    FakeCom() { m_current = this; }
    FakeCom(const FakeCom&) = delete;
    FakeCom& operator=(const FakeCom&) = delete;

    HRESULT enterResult = S_OK;
    HRESULT secureResult = E_FAIL;
    HRESULT holdResult = S_OK;

    /// "CoInitializeEx 2", "CoInitializeSecurity", "CoIncrementMTAUsage", "CoUninitialize" in the order of
    /// the calls.
    std::vector<std::string> calls;
    /// Looks at the descriptor that security is set by.
    std::function<void(const SECURITY_DESCRIPTOR&)> atSecurity = [](const auto&) {};

  private:
    Rig::ScopedImport<&::CoInitializeEx> m_enter{[this](LPVOID reserved, DWORD model) {
        EXPECT_EQ(reserved, nullptr);
        calls.push_back("CoInitializeEx " + std::to_string(model));
        return enterResult;
    }};
    Rig::ScopedImport<&::CoInitializeSecurity> m_secure{
        [this](PSECURITY_DESCRIPTOR descriptor, LONG services, SOLE_AUTHENTICATION_SERVICE* service,
               void* first, DWORD authentication, DWORD impersonation, void* list, DWORD capabilities,
               void* second) {
            EXPECT_EQ(services, -1);
            EXPECT_EQ(service, nullptr);
            EXPECT_EQ(first, nullptr);
            EXPECT_EQ(authentication, DWORD{RPC_C_AUTHN_LEVEL_CONNECT});
            EXPECT_EQ(impersonation, DWORD{RPC_C_IMP_LEVEL_IMPERSONATE});
            EXPECT_EQ(list, nullptr);
            EXPECT_EQ(capabilities, DWORD{EOAC_NONE});
            EXPECT_EQ(second, nullptr);
            calls.emplace_back("CoInitializeSecurity");
            atSecurity(*static_cast<const SECURITY_DESCRIPTOR*>(descriptor));
            return secureResult;
        }};
    Rig::ScopedImport<&::CoUninitialize> m_leave{[this] { calls.emplace_back("CoUninitialize"); }};

    /// Looked up at run time: not every compiler's headers have it.
    static HRESULT WINAPI Hold(void** cookie) {
        EXPECT_NE(cookie, nullptr);
        m_current->calls.emplace_back("CoIncrementMTAUsage");
        return m_current->holdResult;
    }
    inline static FakeCom* m_current = nullptr;
    Rig::ScopedProcAddress m_hold{"CoIncrementMTAUsage",
                                  reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Hold))};
};

}  // namespace ServiceTests
