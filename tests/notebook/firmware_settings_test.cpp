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
};

TEST_F(FirmwareSettingsTest, SettingIsReadByItsNameOnce) {
    const Text query(L"SELECT * FROM Orva_BIOSSetting where Name='LAN / WLAN Auto Switching'");
    ComPtr<IEnumWbemClassObject> answer;
    ASSERT_EQ(S_OK, Connect(L"\\\\.\\root\\Orva\\FirmwareSettings")
                        ->ExecQuery(Text(L"WQL").Get(), query.Get(),
                                    WBEM_FLAG_RETURN_IMMEDIATELY | WBEM_FLAG_FORWARD_ONLY, nullptr, &answer));
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

TEST_F(FirmwareSettingsTest, MissingProviderAndOtherNamespacesAreRefused) {
    const auto refused = static_cast<HRESULT>(WBEM_E_INVALID_NAMESPACE);
    EXPECT_FALSE(Connect(L"\\\\.\\root\\cimv2", refused));
    SharedState::Get().Raw().devices.providerPresent = 0;
    EXPECT_FALSE(Connect(L"\\\\.\\root\\Orva\\FirmwareSettings", refused));
}

}  // namespace

}  // namespace Notebook::Tests
