#include "bios/bios_wmi_client.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "platform/handles.h"
#include "tests/support/com_support.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/simulated_notebook.h"

namespace BiosTests {
namespace {

using Rig::Call;
using Rig::ScopedImport;
using testing::ElementsAre;

constexpr wchar_t kName[] = L"Some Setting";

// Codes of the provider, as WMI's documents list them.
constexpr auto kInvalidObject = static_cast<HRESULT>(0x8004100F);
constexpr auto kInvalidClass = static_cast<HRESULT>(0x80041010);
constexpr auto kNotInitialized = static_cast<HRESULT>(0x80041014);
constexpr auto kTypeMismatch = static_cast<HRESULT>(0x80041005);
constexpr auto kNotConnected = static_cast<HRESULT>(0x80041071);
constexpr auto kInvalidNamespace = static_cast<HRESULT>(0x8004100E);

/// A provider that knows no setting yet, and this thread in an apartment.
class Bios {
  public:
    explicit Bios(DWORD apartmentModel = COINIT_APARTMENTTHREADED) : m_apartment(apartmentModel) {
        notebook.RemoveSettings();
    }

    Rig::SimulatedNotebook* operator->() { return &notebook; }
    [[nodiscard]] LONG References() const { return notebook.Held().comReferences; }
    void Set(std::wstring_view name, std::wstring_view text) const { notebook.SetSetting(name, text); }
    void SetValue(void (*fill)(VARIANT*)) const { notebook.SetSetting(kName, Filled(fill)); }
    void SetType(int type) const {
        VARIANT value{};
        value.vt = static_cast<VARTYPE>(type);
        notebook.SetSetting(kName, value);
    }

    Rig::TestClock clock;
    Rig::SimulatedNotebook notebook{clock};

  private:
    static VARIANT Filled(void (*fill)(VARIANT*)) {
        VARIANT value{};
        fill(&value);
        return value;
    }

    Rig::ComApartment m_apartment;
};

/// Without a connection a query is not even tried.
bool IsConnected(BIOSWmiClient& client) {
    return client.ExecuteQuery(L"SELECT") != kNotInitialized;
}

/// The code of the COM error that `call` throws; S_OK when it throws none.
template <class Call>
HRESULT ErrorThrownBy(const Call& call) {
    try {
        call();
    } catch (const _com_error& error) {
        return error.Error();
    }
    return S_OK;
}

TEST(BIOSWmiClient, ConnectsToTheProvidersNamespace) {
    Bios bios;
    const ScopedImport<&::CoSetProxyBlanket> blanket{
        [&](IUnknown* proxy, DWORD authentication, DWORD authorization, OLECHAR* principal,
            DWORD authenticationLevel, DWORD impersonationLevel, void* identity, DWORD capabilities) {
            EXPECT_EQ(authentication, DWORD{RPC_C_AUTHN_WINNT});
            EXPECT_EQ(authorization, DWORD{RPC_C_AUTHZ_NONE});
            EXPECT_EQ(principal, nullptr);
            EXPECT_EQ(authenticationLevel, DWORD{RPC_C_AUTHN_LEVEL_DEFAULT});
            EXPECT_EQ(impersonationLevel, DWORD{RPC_C_IMP_LEVEL_IMPERSONATE});
            EXPECT_EQ(identity, nullptr);
            EXPECT_EQ(capabilities, DWORD{EOAC_NONE});
            return blanket.Original(proxy, authentication, authorization, principal, authenticationLevel,
                                    impersonationLevel, identity, capabilities);
        }};
    {
        BIOSWmiClient client;

        EXPECT_EQ(bios.References(), 1) << "the services; the locator is given back";
    }
    EXPECT_THAT(bios->Calls(),
                ElementsAre("WbemLocator::Create",
                            "IWbemLocator::ConnectServer 0x80 \\\\.\\root\\Orva\\FirmwareSettings",
                            "IClientSecurity::SetBlanket"));
    EXPECT_EQ(blanket.Calls(), 1);
    EXPECT_EQ(bios.References(), 0);
}

TEST(BIOSWmiClient, AsksForTheLocatorInProcess) {
    Bios bios;
    DWORD context = 0;
    bool hasOuter = true;
    const ScopedImport<&::CoCreateInstance> creations{
        [&](REFCLSID classId, IUnknown* outer, DWORD classContext, REFIID id, void** object) {
            EXPECT_EQ(classId, CLSID_WbemLocator);
            EXPECT_EQ(id, IID_IWbemLocator);
            hasOuter = outer != nullptr;
            context = classContext;
            return creations.Original(classId, outer, classContext, id, object);
        }};

    const BIOSWmiClient client;

    EXPECT_EQ(context, DWORD{CLSCTX_INPROC_SERVER});
    EXPECT_FALSE(hasOuter);
}

TEST(BIOSWmiClient, EntersASingleThreadedApartmentAndLeavesItLast) {
    Bios bios;
    bios.Set(kName, L"on");
    std::vector<DWORD> entered;
    int securitySet = 0;
    std::vector<long> referencesAtEnd;
    const ScopedImport<&::CoInitializeEx> enters{[&](void* reserved, DWORD model) {
        entered.push_back(model);
        return enters.Original(reserved, model);
    }};
    const ScopedImport<&::CoInitializeSecurity> security{
        [&](PSECURITY_DESCRIPTOR descriptor, LONG count, SOLE_AUTHENTICATION_SERVICE* services,
            void* reserved, DWORD authenticationLevel, DWORD impersonationLevel, void* list,
            DWORD capabilities, void* reserved3) -> HRESULT {
            ++securitySet;
            EXPECT_TRUE(descriptor == nullptr && services == nullptr && reserved == nullptr &&
                        list == nullptr && reserved3 == nullptr);
            EXPECT_EQ(count, -1);
            EXPECT_EQ(authenticationLevel, DWORD{RPC_C_AUTHN_LEVEL_DEFAULT});
            EXPECT_EQ(impersonationLevel, DWORD{RPC_C_IMP_LEVEL_IMPERSONATE});
            EXPECT_EQ(capabilities, DWORD{EOAC_NONE});
            return RPC_E_TOO_LATE;
        }};
    const ScopedImport<&::CoUninitialize> leaves{[&] {
        referencesAtEnd.push_back(bios.References());
        leaves.Original();
    }};
    std::wstring value;
    {
        BIOSWmiClient client;
        EXPECT_EQ(client.GetValue(kName, value), S_OK);
        EXPECT_EQ(bios.References(), 3) << "services, result and setting";
    }

    EXPECT_THAT(entered, ElementsAre(DWORD{COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE}));
    EXPECT_EQ(securitySet, 1);
    EXPECT_THAT(referencesAtEnd, ElementsAre(0)) << "everything was given back before";
}

TEST(BIOSWmiClient, EntersAnApartmentOfItsOwnOnAThreadWithoutOne) {
    Bios bios;
    bios.Set(kName, L"on");
    int left = 0;
    const ScopedImport<&::CoUninitialize> leaves{[&] {
        ++left;
        leaves.Original();
    }};
    std::wstring value;
    Rig::RunOnThread(
        [&] {
            BIOSWmiClient client;
            EXPECT_EQ(client.GetValue(kName, value), S_OK);
        },
        Rig::Apartment::kNone);

    EXPECT_EQ(left, 1);
    EXPECT_EQ(value, L"on");
}

TEST(BIOSWmiClient, GoesOnInTheMultithreadedApartmentAndDoesNotLeaveIt) {
    Bios bios(COINIT_MULTITHREADED);
    bios.Set(kName, L"on");
    int securitySet = 0;
    int left = 0;
    const ScopedImport<&::CoInitializeSecurity> security{[&](auto...) -> HRESULT {
        ++securitySet;
        return S_OK;
    }};
    const ScopedImport<&::CoUninitialize> leaves{[&] {
        ++left;
        leaves.Original();
    }};
    std::wstring value;
    {
        BIOSWmiClient client;
        EXPECT_EQ(client.GetValue(kName, value), S_OK);
    }

    EXPECT_EQ(value, L"on");
    EXPECT_EQ(securitySet, 0);
    EXPECT_EQ(left, 0);
}

TEST(BIOSWmiClient, WithoutALocatorThereIsNoConnection) {
    Bios bios;
    const Rig::ScopedResult<&::CoCreateInstance> missing{REGDB_E_CLASSNOTREG};
    BIOSWmiClient client;

    EXPECT_EQ(client.Connect(), REGDB_E_CLASSNOTREG);

    EXPECT_FALSE(IsConnected(client));
    EXPECT_EQ(bios->Count(Call::WbemConnectServer), 0);
}

TEST(BIOSWmiClient, MissingNamespaceLeavesNoConnection) {
    Bios bios;
    bios->Devices().providerPresent = 0;
    BIOSWmiClient client;

    EXPECT_EQ(client.Connect(), kInvalidNamespace);

    EXPECT_FALSE(IsConnected(client));
    EXPECT_EQ(bios->Count(Call::WbemSetBlanket), 0);
    EXPECT_EQ(bios.References(), 0);
}

TEST(BIOSWmiClient, RefusedBlanketLeavesNoConnection) {
    Bios bios;
    bios->FailEach(Call::WbemSetBlanket, E_NOINTERFACE);
    BIOSWmiClient client;

    EXPECT_EQ(client.Connect(), E_NOINTERFACE);

    EXPECT_FALSE(IsConnected(client));
    EXPECT_EQ(bios.References(), 0);
}

TEST(BIOSWmiClient, SuccessWithoutServicesLeavesNoConnection) {
    Bios bios;
    bios->GiveNothing(Call::WbemConnectServer);
    BIOSWmiClient client;

    EXPECT_FALSE(IsConnected(client));
    EXPECT_EQ(bios->Count(Call::WbemSetBlanket), 0);
}

TEST(BIOSWmiClient, NoMemoryForTheNamespaceLeavesNoConnection) {
    Bios bios;
    const Rig::ScopedResult<&::SysAllocString> noMemory{nullptr};
    BIOSWmiClient client;

    EXPECT_EQ(client.Connect(), E_OUTOFMEMORY);

    EXPECT_FALSE(IsConnected(client));
    EXPECT_EQ(bios.References(), 0);
}

TEST(BIOSWmiClient, ConnectingAgainReplacesTheConnection) {
    Bios bios;
    BIOSWmiClient client;
    EXPECT_EQ(client.Connect(), S_OK);
    EXPECT_EQ(bios.References(), 1);

    bios->Devices().providerPresent = 0;
    EXPECT_EQ(client.Connect(), kInvalidNamespace);

    EXPECT_FALSE(IsConnected(client));
    EXPECT_EQ(bios.References(), 0);
}

TEST(BIOSWmiClient, WithoutAConnectionNothingCanBeRead) {
    Bios bios;
    bios->Fail(Call::WbemConnectServer, 1, E_ACCESSDENIED);
    BIOSWmiClient client;
    std::wstring value = L"old";

    EXPECT_EQ(ErrorThrownBy([&] { static_cast<void>(client.GetValue(kName, value)); }), kNotConnected);
    EXPECT_EQ(client.ExecuteQuery(L"SELECT"), kNotInitialized);
    EXPECT_EQ(client.GetPropertyValue(value), kInvalidObject);

    EXPECT_EQ(value, L"");
    EXPECT_EQ(bios->Count(Call::WbemExecQuery), 0);
}

TEST(BIOSWmiClient, ReadsASetting) {
    Bios bios;
    bios.Set(kName, L"Enabled");
    BIOSWmiClient client;
    std::wstring value;

    EXPECT_EQ(client.GetValue(kName, value), S_OK);

    EXPECT_EQ(value, L"Enabled");
    // The stand-in refuses every language but WQL.
    const std::vector<std::string> calls = bios->Calls();
    EXPECT_THAT(std::vector(calls.end() - 3, calls.end()),
                ElementsAre("IWbemServices::ExecQuery 0x30 SELECT * FROM Orva_BIOSSetting where "
                            "Name='Some Setting'",
                            "IEnumWbemClassObject::Next 1 within 20000 ms: Some Setting",
                            "IWbemClassObject::Get Value"));
}

TEST(BIOSWmiClient, NameWithAQuoteGoesIntoTheQueryUnchanged) {
    Bios bios;
    BIOSWmiClient client;
    std::wstring value;

    EXPECT_EQ(client.GetValue(L"Bob's ''LAN'", value), static_cast<HRESULT>(WBEM_E_INVALID_QUERY));

    EXPECT_THAT(bios->Calls(Call::WbemExecQuery),
                ElementsAre(testing::EndsWith("SELECT * FROM Orva_BIOSSetting where Name='Bob's ''LAN''")));
}

TEST(BIOSWmiClient, ReadingAgainReplacesResultAndObject) {
    Bios bios;
    bios.Set(kName, L"one");
    BIOSWmiClient client;
    std::wstring value;
    EXPECT_EQ(client.GetValue(kName, value), S_OK);
    bios.Set(kName, L"two");

    EXPECT_EQ(client.GetValue(kName, value), S_OK);

    EXPECT_EQ(value, L"two");
    EXPECT_EQ(bios.References(), 3) << "services, result and setting";
}

TEST(BIOSWmiClient, FailedQueryIsReturnedAndForgetsTheObject) {
    Bios bios;
    bios.Set(kName, L"one");
    BIOSWmiClient client;
    std::wstring value;
    EXPECT_EQ(client.GetValue(kName, value), S_OK);
    bios->Fail(Call::WbemExecQuery, 1, static_cast<HRESULT>(WBEM_E_INVALID_QUERY));

    EXPECT_EQ(client.GetValue(kName, value), static_cast<HRESULT>(WBEM_E_INVALID_QUERY));

    EXPECT_EQ(bios.References(), 1) << "the services";
    EXPECT_EQ(client.GetPropertyValue(value), kInvalidObject);
}

TEST(BIOSWmiClient, QueryWithoutAResultIsAnInvalidClass) {
    Bios bios;
    bios->GiveNothing(Call::WbemExecQuery);
    BIOSWmiClient client;
    std::wstring value;

    EXPECT_EQ(client.GetValue(kName, value), kInvalidClass);
}

TEST(BIOSWmiClient, NoMemoryForTheQueryFailsIt) {
    Bios bios;
    bios.Set(kName, L"one");
    BIOSWmiClient client;
    std::wstring value;
    for (const int call : {1, 2}) {
        const Rig::ScopedResult<&::SysAllocString> noMemory{nullptr, Rig::AtCall{call}};
        EXPECT_EQ(client.GetValue(kName, value), E_OUTOFMEMORY);
    }
    EXPECT_EQ(bios->Count(Call::WbemExecQuery), 0);
}

TEST(BIOSWmiClient, ResultsOfTheFetchTravelOutUnchanged) {
    for (const HRESULT result : {static_cast<HRESULT>(WBEM_S_TIMEDOUT), static_cast<HRESULT>(WBEM_S_FALSE),
                                 static_cast<HRESULT>(WBEM_E_FAILED)}) {
        Bios bios;
        bios.Set(kName, L"one");
        bios->Fail(Call::WbemNext, 1, result);
        BIOSWmiClient client;
        std::wstring value;

        EXPECT_EQ(client.GetValue(kName, value), result);

        EXPECT_EQ(bios->Count(Call::WbemGet), 0);
    }
}

TEST(BIOSWmiClient, FetchWithoutAnObjectIsAnInvalidObject) {
    Bios bios;
    bios.Set(kName, L"one");
    bios->GiveNothing(Call::WbemNext);
    BIOSWmiClient client;
    std::wstring value = L"old";

    EXPECT_EQ(client.GetValue(kName, value), kInvalidObject);

    EXPECT_EQ(value, L"");
}

TEST(BIOSWmiClient, FailedReadIsReturnedWithAnEmptyText) {
    Bios bios;
    bios.Set(kName, L"one");
    bios->Fail(Call::WbemGet, 1, static_cast<HRESULT>(WBEM_E_NOT_FOUND));
    BIOSWmiClient client;
    std::wstring value = L"old";

    EXPECT_EQ(client.GetValue(kName, value), static_cast<HRESULT>(WBEM_E_NOT_FOUND));

    EXPECT_EQ(value, L"");
}

/// A value of some type, and how it reads.
struct ValueCase {
    const char* name;
    void (*fill)(VARIANT*);
    HRESULT result;
    std::wstring text;
};

/// A number as the machine's user writes it: with his decimal sign, or as his date.
std::wstring InTheUsersWay(HRESULT(WINAPI* convert)(double, LCID, ULONG, BSTR*), double number) {
    Platform::UniqueBstr text;
    EXPECT_EQ(convert(number, LOCALE_USER_DEFAULT, 0, text.Put()), S_OK);
    return text.Get();
}

class BIOSWmiClientReads : public testing::TestWithParam<ValueCase> {};

TEST_P(BIOSWmiClientReads, AsText) {
    Bios bios;
    bios.SetValue(GetParam().fill);
    BIOSWmiClient client;
    std::wstring value = L"old";

    EXPECT_EQ(client.GetValue(kName, value), GetParam().result);

    EXPECT_EQ(value, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Values, BIOSWmiClientReads,
    testing::Values(ValueCase{"Null", [](VARIANT* v) { v->vt = VT_NULL; }, S_OK, L""},
                    ValueCase{"Empty", [](VARIANT* v) { v->vt = VT_EMPTY; }, S_OK, L""},
                    ValueCase{"Text",
                              [](VARIANT* v) {
                                  v->vt = VT_BSTR;
                                  v->bstrVal = SysAllocString(L"*Enable");
                              },
                              S_OK, L"*Enable"},
                    ValueCase{"TextWithoutBuffer",
                              [](VARIANT* v) {
                                  v->vt = VT_BSTR;
                                  v->bstrVal = nullptr;
                              },
                              S_OK, L""},
                    ValueCase{"TextWithATerminatorInside",
                              [](VARIANT* v) {
                                  v->vt = VT_BSTR;
                                  v->bstrVal = SysAllocStringLen(L"a\0b", 3);
                              },
                              S_OK, std::wstring(L"a\0b", 3)},
                    ValueCase{"Number",
                              [](VARIANT* v) {
                                  v->vt = VT_I4;
                                  v->lVal = -5;
                              },
                              S_OK, L"-5"},
                    ValueCase{"Byte",
                              [](VARIANT* v) {
                                  v->vt = VT_UI1;
                                  v->bVal = 255;
                              },
                              S_OK, L"255"},
                    ValueCase{"LargeNumber",
                              [](VARIANT* v) {
                                  v->vt = VT_UI8;
                                  v->ullVal = 18446744073709551615U;
                              },
                              S_OK, L"18446744073709551615"},
                    ValueCase{"True",
                              [](VARIANT* v) {
                                  v->vt = VT_BOOL;
                                  v->boolVal = VARIANT_TRUE;
                              },
                              S_OK, L"-1"},
                    ValueCase{"False",
                              [](VARIANT* v) {
                                  v->vt = VT_BOOL;
                                  v->boolVal = VARIANT_FALSE;
                              },
                              S_OK, L"0"},
                    ValueCase{"ShortNumber",
                              [](VARIANT* v) {
                                  v->vt = VT_I2;
                                  v->iVal = -32768;
                              },
                              S_OK, L"-32768"},
                    ValueCase{"ShortNumberWithoutASign",
                              [](VARIANT* v) {
                                  v->vt = VT_UI2;
                                  v->uiVal = 65535;
                              },
                              S_OK, L"65535"},
                    ValueCase{"LargeNumberWithASign",
                              [](VARIANT* v) {
                                  v->vt = VT_I8;
                                  v->llVal = -9000000000000000000;
                              },
                              S_OK, L"-9000000000000000000"},
                    ValueCase{"Fraction",
                              [](VARIANT* v) {
                                  v->vt = VT_R8;
                                  v->dblVal = 1.5;
                              },
                              S_OK, InTheUsersWay(&VarBstrFromR8, 1.5)},
                    ValueCase{"Date",
                              [](VARIANT* v) {
                                  v->vt = VT_DATE;
                                  v->date = 43832.5;
                              },
                              S_OK, InTheUsersWay(&VarBstrFromDate, 43832.5)},
                    ValueCase{"NumberByReference",
                              [](VARIANT* v) {
                                  static LONG number = 17;
                                  v->vt = VT_BYREF | VT_I4;
                                  v->plVal = &number;
                              },
                              S_OK, L"17"},
                    ValueCase{"TextByReference",
                              [](VARIANT* v) {
                                  static const Platform::UniqueBstr kText(SysAllocString(L"Enable"));
                                  static BSTR text = kText.Get();
                                  v->vt = VT_BYREF | VT_BSTR;
                                  v->pbstrVal = &text;
                              },
                              S_OK, L"Enable"},
                    ValueCase{"ErrorCode",
                              [](VARIANT* v) {
                                  v->vt = VT_ERROR;
                                  v->scode = E_FAIL;
                              },
                              kTypeMismatch, L""},
                    ValueCase{"ListOfTexts",
                              [](VARIANT* v) {
                                  v->vt = VT_ARRAY | VT_BSTR;
                                  v->parray = SafeArrayCreateVector(VT_BSTR, 0, 2);
                              },
                              kTypeMismatch, L""},
                    ValueCase{"Object",
                              [](VARIANT* v) {
                                  v->vt = VT_UNKNOWN;
                                  v->punkVal = nullptr;
                              },
                              kTypeMismatch, L""},
                    ValueCase{"UnknownType", [](VARIANT* v) { v->vt = 0x0FF0; }, DISP_E_BADVARTYPE, L""}),
    [](const testing::TestParamInfo<ValueCase>& tested) { return tested.param.name; });

TEST(BIOSWmiClient, ValuesOfEveryTypeNumberDoNoHarm) {
    for (int type = 0; type <= VT_VERSIONED_STREAM; ++type) {
        Bios bios;
        bios.SetType(type);
        BIOSWmiClient client;
        std::wstring value = L"old";

        const HRESULT result = client.GetValue(kName, value);

        EXPECT_NE(value, L"old") << type;
        EXPECT_TRUE(result == S_OK || (FAILED(result) && result != DISP_E_TYPEMISMATCH && value.empty()))
            << type;
    }
}

TEST(BIOSWmiClient, ComErrorOutOfTheConversionIsReturned) {
    Bios bios;
    bios.SetType(VT_I4);
    BIOSWmiClient client;
    std::wstring value;
    HRESULT thrown = E_OUTOFMEMORY;
    const ScopedImport<&::VariantChangeType> throws{[&](auto...) -> HRESULT { throw _com_error(thrown); }};

    EXPECT_EQ(client.GetValue(kName, value), E_OUTOFMEMORY);
    thrown = DISP_E_TYPEMISMATCH;
    EXPECT_EQ(client.GetValue(kName, value), kTypeMismatch);
}

TEST(BIOSWmiClient, ValuesAreClearedAfterReading) {
    Bios bios;
    bios.SetType(VT_I4);
    BIOSWmiClient client;
    std::wstring value;
    int initialized = 0;
    int cleared = 0;
    const ScopedImport<&::VariantInit> inits{[&](VARIANT* variant) {
        ++initialized;
        inits.Original(variant);
    }};
    const ScopedImport<&::VariantClear> clears{[&](VARIANT* variant) {
        ++cleared;
        return clears.Original(variant);
    }};

    EXPECT_EQ(client.GetValue(kName, value), S_OK);

    EXPECT_EQ(initialized, 1);
    EXPECT_EQ(cleared, 1);
}

}  // namespace
}  // namespace BiosTests
