#include <windows.h>
#include <wbemcli.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include <string>

#include "notebook/state/text.h"
#include "tests/notebook/hardware.h"

namespace Notebook::Tests {

namespace {

/// A text for a function that takes one.
class Text {
  public:
    explicit Text(const std::wstring& text) : m_text(SysAllocString(text.c_str())) {}
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    ~Text() { SysFreeString(m_text); }
    [[nodiscard]] BSTR Get() const { return m_text; }

  private:
    BSTR m_text;
};

class FirmwareSettingsTest : public NotebookTest {
  protected:
    static ComPtr<IWbemServices> Connect(const std::wstring& name, HRESULT expected = S_OK) {
        const auto locator = Hardware::Get().Create<IWbemLocator>(CLSID_WbemLocator);
        ComPtr<IWbemServices> services;
        EXPECT_EQ(expected,
                  locator->ConnectServer(Text(name).Get(), nullptr, nullptr, nullptr,
                                         WBEM_FLAG_CONNECT_USE_MAX_WAIT, nullptr, nullptr, &services));
        return services;
    }
    static ComPtr<IEnumWbemClassObject> Query(const std::wstring& query, HRESULT expected = S_OK) {
        const ComPtr<IWbemServices> services = Connect(L"\\\\.\\root\\Orva\\FirmwareSettings");
        ComPtr<IEnumWbemClassObject> answer;
        EXPECT_EQ(expected, services->ExecQuery(Text(L"WQL").Get(), Text(query).Get(),
                                                WBEM_FLAG_RETURN_IMMEDIATELY | WBEM_FLAG_FORWARD_ONLY,
                                                nullptr, &answer));
        return answer;
    }
};

TEST_F(FirmwareSettingsTest, SettingIsReadByItsNameOnce) {
    const ComPtr<IEnumWbemClassObject> answer =
        Query(L"SELECT * FROM Orva_BIOSSetting where Name='LAN / WLAN Auto Switching'");
    ComPtr<IWbemClassObject> object;
    ULONG returned = 0;
    ASSERT_EQ(HRESULT{WBEM_S_NO_ERROR}, answer->Next(20000, 1, &object, &returned));
    EXPECT_EQ(1U, returned);
    VARIANT value{};
    EXPECT_EQ(S_OK, object->Get(L"Value", 0, &value, nullptr, nullptr));
    ASSERT_EQ(VT_BSTR, V_VT(&value));
    EXPECT_STREQ(L"Enabled", V_BSTR(&value));
    VariantClear(&value);
    object.Reset();
    EXPECT_EQ(HRESULT{WBEM_S_FALSE}, answer->Next(20000, 1, &object, &returned));
    EXPECT_EQ(0U, returned);
}

TEST_F(FirmwareSettingsTest, SecurityBlanketIsAcceptedAsByAProxy) {
    const ComPtr<IWbemServices> services = Connect(L"\\\\.\\root\\Orva\\FirmwareSettings");
    EXPECT_EQ(S_OK,
              CoSetProxyBlanket(services.Get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE));
}

TEST_F(FirmwareSettingsTest, MissingProviderAndOtherNamespacesAreRefused) {
    const auto refused = static_cast<HRESULT>(WBEM_E_INVALID_NAMESPACE);
    EXPECT_FALSE(Connect(L"\\\\.\\root\\cimv2", refused));
    SharedState::Get().Raw().devices.providerPresent = 0;
    EXPECT_FALSE(Connect(L"\\\\.\\root\\Orva\\FirmwareSettings", refused));
}

TEST_F(FirmwareSettingsTest, QuoteInTheNameMakesTheQueryInvalid) {
    const auto invalid = static_cast<HRESULT>(WBEM_E_INVALID_QUERY);
    EXPECT_FALSE(Query(L"SELECT * FROM Orva_BIOSSetting where Name='Bo'b'", invalid));
    EXPECT_FALSE(Query(L"SELECT * FROM Orva_BIOSPassword", invalid));
}

}  // namespace

}  // namespace Notebook::Tests
