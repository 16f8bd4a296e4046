#include "bios/bios_wmi_client.h"

#include <string>
#include <vector>

#include "platform/handles.h"
#include "tests/support/com_support.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/simulated_notebook.h"
#include "tests/support/words.h"

namespace BiosTests {
namespace {

using namespace Rig::Words;
using Rig::Call;
using Rig::SimulatedNotebook;

constexpr wchar_t kName[] = L"Some Setting";

// Codes of the provider, as WMI's documents list them.
constexpr auto kInvalidObject = static_cast<HRESULT>(0x8004100F);
constexpr auto kInvalidClass = static_cast<HRESULT>(0x80041010);
constexpr auto kNotInitialized = static_cast<HRESULT>(0x80041014);
constexpr auto kTypeMismatch = static_cast<HRESULT>(0x80041005);
constexpr auto kDisconnected = static_cast<HRESULT>(0x80041071);
constexpr auto kInvalidNamespace = static_cast<HRESULT>(0x8004100E);
constexpr auto kInvalidQuery = static_cast<HRESULT>(0x80041017);
constexpr auto kNotFound = static_cast<HRESULT>(0x80041002);
constexpr auto kWmiFailed = static_cast<HRESULT>(0x80041001);

/// A value that owns nothing yet.
VARIANT Of(VARTYPE type) {
    VARIANT value{};
    value.vt = type;
    return value;
}

/// A provider that knows one setting, and this thread in a single-threaded apartment.
class BIOSWmiClientTest : public testing::Test {
  protected:
    BIOSWmiClientTest() { m_bios.SetSetting(kName, L"on"); }

    /// Reads the setting by a client of its own.
    HRESULT Read() {
        BIOSWmiClient client;
        return client.GetValue(kName, m_value);
    }
    [[nodiscard]] LONG References() const { return m_bios.Held().comReferences; }
    /// Without a connection a query is not even tried.
    static bool IsConnected(BIOSWmiClient& client) {
        return client.ExecuteQuery(L"SELECT") != kNotInitialized;
    }

    Rig::TestClock m_clock;
    SimulatedNotebook m_bios{m_clock};
    const Rig::ComApartment m_apartment{COINIT_APARTMENTTHREADED};
    std::wstring m_value = L"old";
};

// --- The connection --------------------------------------------------------------------------------

TEST_F(BIOSWmiClientTest, ConnectsToTheProvidersNamespaceByALocatorInProcess) {
    const ScopedWatch<&::CoCreateInstance> creations;
    const ScopedWatch<&::CoSetProxyBlanket> blankets;
    {
        const BIOSWmiClient client;
        EXPECT_EQ(References(), 1) << "the services; the locator is given back";
    }
    EXPECT_THAT(m_bios.Calls(),
                ElementsAre("WbemLocator::Create",
                            "IWbemLocator::ConnectServer 0x80 \\\\.\\root\\Orva\\FirmwareSettings",
                            "IClientSecurity::SetBlanket"));
    EXPECT_THAT(
        creations.Arguments(),
        ElementsAre(FieldsAre(CLSID_WbemLocator, nullptr, DWORD{CLSCTX_INPROC_SERVER}, IID_IWbemLocator, _)));
    EXPECT_THAT(blankets.Arguments(),
                ElementsAre(FieldsAre(_, DWORD{RPC_C_AUTHN_WINNT}, DWORD{RPC_C_AUTHZ_NONE}, nullptr,
                                      DWORD{RPC_C_AUTHN_LEVEL_DEFAULT}, DWORD{RPC_C_IMP_LEVEL_IMPERSONATE},
                                      nullptr, DWORD{EOAC_NONE})));
    EXPECT_EQ(References(), 0);
}

TEST_F(BIOSWmiClientTest, EntersASingleThreadedApartmentAndLeavesItLast) {
    const ScopedWatch<&::CoInitializeEx> enters;
    const Rig::ScopedResult<&::CoInitializeSecurity> late{RPC_E_TOO_LATE};
    const ScopedWatch<&::CoInitializeSecurity> security;
    const ScopedImport<&::CoUninitialize> leaves{[&] {
        EXPECT_EQ(References(), 0) << "everything is given back before";
        leaves.Original();
    }};
    {
        BIOSWmiClient client;
        EXPECT_EQ(client.GetValue(kName, m_value), S_OK);
        EXPECT_EQ(References(), 3) << "services, result and setting";
    }
    // On a thread without an apartment as well.
    Rig::RunOnThread([&] { EXPECT_EQ(Read(), S_OK); }, Rig::Apartment::kNone);

    EXPECT_THAT(
        enters.Arguments(),
        AllOf(SizeIs(2), Each(FieldsAre(_, DWORD{COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE}))));
    EXPECT_THAT(
        security.Arguments(),
        AllOf(SizeIs(2),
              Each(FieldsAre(nullptr, -1, nullptr, nullptr, DWORD{RPC_C_AUTHN_LEVEL_DEFAULT},
                             DWORD{RPC_C_IMP_LEVEL_IMPERSONATE}, nullptr, DWORD{EOAC_NONE}, nullptr))));
    EXPECT_EQ(leaves.Calls(), 2);
}

TEST_F(BIOSWmiClientTest, GoesOnInTheMultithreadedApartmentAndDoesNotLeaveIt) {
    Rig::RunOnThread([&] {
        const ScopedWatch<&::CoInitializeSecurity> security;
        const ScopedWatch<&::CoUninitialize> leaves;
        EXPECT_EQ(Read(), S_OK);
        EXPECT_EQ(security.Calls(), 0);
        EXPECT_EQ(leaves.Calls(), 0);
    });
    EXPECT_EQ(m_value, L"on");
}

TEST_F(BIOSWmiClientTest, ConnectingAgainReplacesTheConnectionOrLeavesNoneWhereAStepFails) {
    struct Step {
        Call call;
        HRESULT answer;  ///< S_OK: it gives nothing
        int connections;
        int blankets;
    };
    for (const auto& [call, answer, connections, blankets] :
         {Step{Call::WbemLocatorCreate, REGDB_E_CLASSNOTREG, 0, 0},
          Step{Call::WbemConnectServer, kInvalidNamespace, 1, 0}, Step{Call::WbemConnectServer, S_OK, 1, 0},
          Step{Call::WbemSetBlanket, E_NOINTERFACE, 1, 1}}) {
        SCOPED_TRACE(testing::PrintToString(call));
        BIOSWmiClient client;
        EXPECT_EQ(client.Connect(), S_OK);
        EXPECT_EQ(References(), 1);
        m_bios.ForgetCalls();
        m_bios.Fail(call, 1, answer);

        EXPECT_EQ(client.Connect(), answer);

        EXPECT_FALSE(IsConnected(client));
        EXPECT_EQ(m_bios.Count(Call::WbemConnectServer), connections);
        EXPECT_EQ(m_bios.Count(Call::WbemSetBlanket), blankets);
        EXPECT_EQ(References(), 0);
    }
}

TEST_F(BIOSWmiClientTest, WithoutAConnectionNothingCanBeRead) {
    m_bios.Fail(Call::WbemConnectServer, 1, E_ACCESSDENIED);
    BIOSWmiClient client;
    try {
        static_cast<void>(client.GetValue(kName, m_value));
        ADD_FAILURE() << "nothing was thrown";
    } catch (const _com_error& error) {
        EXPECT_EQ(error.Error(), kDisconnected);
    }
    EXPECT_EQ(client.ExecuteQuery(L"SELECT"), kNotInitialized);
    EXPECT_EQ(client.GetPropertyValue(m_value), kInvalidObject);

    EXPECT_EQ(m_value, L"");
    EXPECT_EQ(m_bios.Count(Call::WbemExecQuery), 0);
}

// --- The query -------------------------------------------------------------------------------------

TEST_F(BIOSWmiClientTest, ReadsASettingAndReplacesItByTheNext) {
    BIOSWmiClient client;
    m_bios.ForgetCalls();

    EXPECT_EQ(client.GetValue(kName, m_value), S_OK);

    EXPECT_EQ(m_value, L"on");
    // The stand-in refuses every language but WQL.
    EXPECT_THAT(m_bios.Calls(),
                ElementsAre("IWbemServices::ExecQuery 0x30 SELECT * FROM Orva_BIOSSetting where "
                            "Name='Some Setting'",
                            "IEnumWbemClassObject::Next 1 within 20000 ms: Some Setting",
                            "IWbemClassObject::Get Value"));

    m_bios.SetSetting(kName, L"two");
    EXPECT_EQ(client.GetValue(kName, m_value), S_OK);

    EXPECT_EQ(m_value, L"two");
    EXPECT_EQ(References(), 3) << "services, result and setting";
}

TEST_F(BIOSWmiClientTest, FailedQueryForgetsTheObject) {
    BIOSWmiClient client;
    EXPECT_EQ(client.GetValue(kName, m_value), S_OK);
    m_bios.Fail(Call::WbemExecQuery, 1, kInvalidQuery);

    EXPECT_EQ(client.GetValue(kName, m_value), kInvalidQuery);

    EXPECT_EQ(References(), 1) << "the services";
    EXPECT_EQ(client.GetPropertyValue(m_value), kInvalidObject);
}

TEST_F(BIOSWmiClientTest, FailureOfAStepTravelsOutUnchangedAndASuccessWithoutAnObjectHasACode) {
    struct Step {
        Call call;
        HRESULT answer;
        HRESULT result;
        const wchar_t* value;  ///< emptied when the object is read
    };
    for (const auto& [call, answer, result, value] :
         {Step{Call::WbemExecQuery, kInvalidQuery, kInvalidQuery, L"old"},
          Step{Call::WbemExecQuery, S_OK, kInvalidClass, L"old"},
          Step{Call::WbemNext, WBEM_S_TIMEDOUT, WBEM_S_TIMEDOUT, L"old"},
          Step{Call::WbemNext, WBEM_S_FALSE, WBEM_S_FALSE, L"old"},
          Step{Call::WbemNext, kWmiFailed, kWmiFailed, L"old"},
          Step{Call::WbemNext, S_OK, kInvalidObject, L""}, Step{Call::WbemGet, kNotFound, kNotFound, L""}}) {
        SCOPED_TRACE(result);
        m_value = L"old";
        m_bios.ForgetCalls();
        m_bios.Fail(call, 1, answer);

        EXPECT_EQ(Read(), result);

        EXPECT_EQ(m_value, value);
        EXPECT_EQ(m_bios.Count(Call::WbemGet), call == Call::WbemGet ? 1 : 0);
        EXPECT_EQ(References(), 0);
    }
}

TEST_F(BIOSWmiClientTest, NoMemoryForATextFailsTheQueryOrTheConnection) {
    BIOSWmiClient client;
    for (const int call : {1, 2}) {
        const Rig::ScopedResult<&::SysAllocString> noMemory{nullptr, Rig::AtCall{call}};
        EXPECT_EQ(client.GetValue(kName, m_value), E_OUTOFMEMORY);
    }
    EXPECT_EQ(m_bios.Count(Call::WbemExecQuery), 0);

    m_bios.ForgetCalls();
    const Rig::ScopedResult<&::SysAllocString> noMemory{nullptr};
    EXPECT_EQ(client.Connect(), E_OUTOFMEMORY);
    EXPECT_FALSE(IsConnected(client));
    EXPECT_EQ(m_bios.Count(Call::WbemConnectServer), 0);
}

// --- The value -------------------------------------------------------------------------------------

template <class Value>
VARIANT Of(VARTYPE type, Value VARIANT::*member, Value value) {
    VARIANT variant = Of(type);
    variant.*member = value;
    return variant;
}

/// A number as the machine's user writes it: with his decimal sign, or as his date.
std::wstring InTheUsersWay(HRESULT(WINAPI* convert)(double, LCID, ULONG, BSTR*), double number) {
    Platform::UniqueBstr text;
    EXPECT_EQ(convert(number, LOCALE_USER_DEFAULT, 0, text.Put()), S_OK);
    return text.Get();
}

TEST_F(BIOSWmiClientTest, ValueReadsAsText) {
    struct Row {
        const char* name;
        VARIANT value;
        HRESULT result;
        std::wstring text;
    };
    LONG number = 17;
    const Platform::UniqueBstr enable(SysAllocString(L"Enable"));
    BSTR text = enable.Get();
    const BSTR twoTexts = SysAllocStringLen(L"a\0b", 3);
    SAFEARRAY* const list = SafeArrayCreateVector(VT_BSTR, 0, 2);
    const Row rows[] = {
        {"null", Of(VT_NULL), S_OK, L""},
        {"empty", Of(VT_EMPTY), S_OK, L""},
        {"text", Of(VT_BSTR, &VARIANT::bstrVal, SysAllocString(L"*Enable")), S_OK, L"*Enable"},
        {"text without a buffer", Of(VT_BSTR), S_OK, L""},
        {"text with a null inside", Of(VT_BSTR, &VARIANT::bstrVal, twoTexts), S_OK, std::wstring(L"a\0b", 3)},
        {"number", Of(VT_I4, &VARIANT::lVal, LONG{-5}), S_OK, L"-5"},
        {"byte", Of(VT_UI1, &VARIANT::bVal, BYTE{255}), S_OK, L"255"},
        {"short", Of(VT_I2, &VARIANT::iVal, SHORT{-32768}), S_OK, L"-32768"},
        {"unsigned short", Of(VT_UI2, &VARIANT::uiVal, USHORT{65535}), S_OK, L"65535"},
        {"long", Of(VT_I8, &VARIANT::llVal, LONGLONG{-9000000000000000000}), S_OK, L"-9000000000000000000"},
        {"unsigned long", Of(VT_UI8, &VARIANT::ullVal, ULONGLONG{18446744073709551615U}), S_OK,
         L"18446744073709551615"},
        {"true", Of(VT_BOOL, &VARIANT::boolVal, VARIANT_BOOL{VARIANT_TRUE}), S_OK, L"-1"},
        {"false", Of(VT_BOOL, &VARIANT::boolVal, VARIANT_BOOL{VARIANT_FALSE}), S_OK, L"0"},
        {"fraction", Of(VT_R8, &VARIANT::dblVal, 1.5), S_OK, InTheUsersWay(&VarBstrFromR8, 1.5)},
        {"date", Of(VT_DATE, &VARIANT::date, 43832.5), S_OK, InTheUsersWay(&VarBstrFromDate, 43832.5)},
        {"number by reference", Of(VT_BYREF | VT_I4, &VARIANT::plVal, &number), S_OK, L"17"},
        {"text by reference", Of(VT_BYREF | VT_BSTR, &VARIANT::pbstrVal, &text), S_OK, L"Enable"},
        {"error code", Of(VT_ERROR, &VARIANT::scode, SCODE{E_FAIL}), kTypeMismatch, L""},
        {"list of texts", Of(VT_ARRAY | VT_BSTR, &VARIANT::parray, list), kTypeMismatch, L""},
        {"object", Of(VT_UNKNOWN), kTypeMismatch, L""},
        {"unknown type", Of(0x0FF0), DISP_E_BADVARTYPE, L""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        m_value = L"old";
        m_bios.SetSetting(kName, row.value);

        EXPECT_EQ(Read(), row.result);

        EXPECT_EQ(m_value, row.text);
    }
}

TEST_F(BIOSWmiClientTest, ValuesOfEveryTypeNumberDoNoHarm) {
    for (VARTYPE type = 0; type <= VT_VERSIONED_STREAM; ++type) {
        m_value = L"old";
        m_bios.SetSetting(kName, Of(type));

        const HRESULT result = Read();

        EXPECT_NE(m_value, L"old") << type;
        EXPECT_TRUE(result == S_OK || (FAILED(result) && result != DISP_E_TYPEMISMATCH && m_value.empty()))
            << type;
    }
}

TEST_F(BIOSWmiClientTest, ComErrorOutOfTheConversionIsReturned) {
    for (const auto& [thrown, result] :
         {std::pair{E_OUTOFMEMORY, E_OUTOFMEMORY}, std::pair{DISP_E_TYPEMISMATCH, kTypeMismatch}}) {
        m_bios.SetSetting(kName, Of(VT_I4));
        const ScopedImport<&::VariantChangeType> throws{
            [&thrown = thrown](auto...) -> HRESULT { throw _com_error(thrown); }};
        EXPECT_EQ(Read(), result);
    }
}

TEST_F(BIOSWmiClientTest, ValuesAreClearedAfterReading) {
    m_bios.SetSetting(kName, Of(VT_I4));
    const ScopedWatch<&::VariantInit> inits;
    const ScopedWatch<&::VariantClear> clears;

    EXPECT_EQ(Read(), S_OK);

    EXPECT_EQ(inits.Calls(), 1);
    EXPECT_EQ(clears.Calls(), 1);
}

}  // namespace
}  // namespace BiosTests
