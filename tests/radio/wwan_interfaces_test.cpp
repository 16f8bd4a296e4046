#include "radio/wwan_interfaces.h"

#include <gmock/gmock.h>

#include <limits>
#include <ostream>
#include <stdexcept>

#include "notebook/hardware/class_objects.h"
#include "notebook/state/text.h"
#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/wwan_test.h"
#include "tests/support/skip_unless_imported.h"

namespace RadioTests {
namespace {

using namespace Rig::Lines;
using NLMUtils::CopyArrayOfInterfaces;
using Orva::Shared::Level::kError;
using Orva::Shared::Level::kInformation;
using Orva::Shared::Level::kWarning;
using ServiceUtils::EnumerateWwanInterfaces;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kEnumerate[] = "ServiceUtils::EnumerateWwanInterfaces";
constexpr char kCopy[] = "NLMUtils::CopyArrayOfInterfaces";

class WwanEnumerationTest : public WwanTest {
  protected:
    WwanEnumerationTest() {
        WwanState::devicePresent = false;
        WwanState::interfaceId.clear();
    }

    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kEnumerate); }

    /// The machine has two modems, and none is published.
    void MakeSecondModem() {
        SetModems(2);
        WwanState::interfaceId.clear();
    }
    [[nodiscard]] Microsoft::WRL::ComPtr<IUnknown> TheModem() const {
        Microsoft::WRL::ComPtr<IMbnRadio> radio;
        *radio.GetAddressOf() = ::Notebook::EventRadio(0, ConfirmRadio::Same);
        return radio;
    }
    /// Copies the identifiers of an array's interfaces, and destroys the array.
    HRESULT Copy(SAFEARRAY* array) {
        const HRESULT result = CopyArrayOfInterfaces(array, &m_count, &m_identifiers);
        SafeArrayDestroy(array);
        return result;
    }
    [[nodiscard]] std::wstring Id(std::size_t modem) const { return ::Notebook::GuidText(Modem(modem).id); }

    ULONG m_count = 0;
    Platform::UniqueProcessHeap<GUID> m_identifiers;
};

/// An array of these references.
SAFEARRAY* ArrayOf(const std::vector<IUnknown*>& elements, LONG lowerBound = 0, VARTYPE type = VT_UNKNOWN) {
    SAFEARRAY* const array = SafeArrayCreateVector(type, lowerBound, static_cast<ULONG>(elements.size()));
    for (std::size_t i = 0; i < elements.size(); ++i) {
        LONG index = lowerBound + static_cast<LONG>(i);
        SafeArrayPutElement(array, &index, elements[i]);
    }
    return array;
}

TEST_F(WwanEnumerationTest, OneModemIsRecorded) {
    EXPECT_TRUE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, Id(0));
    EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(kEnumerate), TraceIn(kCopy), TraceOut(kCopy),
                                                   Information(kEnumerate, L"WWAN Interface = " + Id(0)),
                                                   TraceOut(kEnumerate, L"Return = 1")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(500));
}

TEST_F(WwanEnumerationTest, OfTwoModemsTheLastOneWins) {
    MakeSecondModem();
    EXPECT_TRUE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, Id(1));
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kEnumerate), Information(kEnumerate, L"WWAN Interface = " + Id(0)),
                            Information(kEnumerate, L"WWAN Interface = " + Id(1)),
                            TraceOut(kEnumerate, L"Return = 1")));
}

TEST_F(WwanEnumerationTest, ArrayThatDoesNotBeginAtZeroIsReadFromItsLowerBound) {
    MakeSecondModem();
    m_notebook.Devices().modemList = ::Notebook::ModemList::OddBounds;
    EXPECT_TRUE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, Id(1));
}

TEST_F(WwanEnumerationTest, ArrayIsReadFromWhateverItsLowerBoundIs) {
    const Microsoft::WRL::ComPtr<IUnknown> modem = TheModem();
    for (const LONG lower : {1L, -1L, 1000000L, -2147483647L - 1, 2147483645L}) {
        EXPECT_EQ(Copy(ArrayOf({modem.Get(), modem.Get()}, lower)), S_OK) << lower;
        EXPECT_EQ(m_count, 2U) << lower;
    }
}

TEST_F(WwanEnumerationTest, LowerCaseIdentifierIsRecordedInRegistryForm) {
    ::Notebook::CopyText(Modem().idText, std::wstring_view(L"{abcdefab-1111-1111-1111-111111111111}"));
    EXPECT_TRUE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, L"{ABCDEFAB-1111-1111-1111-111111111111}");
}

TEST_F(WwanEnumerationTest, WithoutAManagerThereIsNothingToAsk) {
    WwanState::interfaceManager.store(nullptr);
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kEnumerate), Error(kEnumerate, L"IMbnInterfaceManager is NULL"),
                                     TraceOut(kEnumerate, L"Return = 0")));
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
}

TEST_F(WwanEnumerationTest, ManagerThatIsNotReadyIsAskedAgain) {
    for (int call = 1; call < 5; ++call) {
        m_notebook.Fail(Call::MbnInterfaceManagerGetInterfaces, call, E_PENDING);
    }
    EXPECT_TRUE(EnumerateWwanInterfaces());
    EXPECT_THAT(m_machine.log.At(kWarning),
                ElementsAre(Warning(kEnumerate, L"GetInterfaces failed in try 0 with !err is 0x8000000A"),
                            Warning(kEnumerate, L"GetInterfaces failed in try 1 with !err is 0x8000000A"),
                            Warning(kEnumerate, L"GetInterfaces failed in try 2 with !err is 0x8000000A"),
                            Warning(kEnumerate, L"GetInterfaces failed in try 3 with !err is 0x8000000A")));
    EXPECT_THAT(m_machine.log.At(kError), IsEmpty());
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(500, 500, 500, 500, 500));
}

TEST_F(WwanEnumerationTest, ManagerThatFailsFiveTimesIsGivenUp) {
    m_notebook.FailEach(Call::MbnInterfaceManagerGetInterfaces, E_FAIL);
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_EQ(m_notebook.Count(Call::MbnInterfaceManagerGetInterfaces), 5);
    EXPECT_THAT(m_machine.log.From(kWarning),
                ElementsAre(Warning(kEnumerate, L"GetInterfaces failed in try 0 with !err is 0x80004005"),
                            Warning(kEnumerate, L"GetInterfaces failed in try 1 with !err is 0x80004005"),
                            Warning(kEnumerate, L"GetInterfaces failed in try 2 with !err is 0x80004005"),
                            Warning(kEnumerate, L"GetInterfaces failed in try 3 with !err is 0x80004005"),
                            Warning(kEnumerate, L"GetInterfaces failed in try 4 with !err is 0x80004005"),
                            Error(kEnumerate, L"GetInterfaces failed with error: HRESULT : 0x80004005")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(500, 500, 500, 500, 500));
    EXPECT_EQ(Lines().back(), TraceOut(kEnumerate, L"Return = 0"));
}

TEST_F(WwanEnumerationTest, EmptyArrayMeansNoModem) {
    m_notebook.Devices().modemList = ::Notebook::ModemList::Empty;
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_TRUE(WwanState::interfaceId.empty());
    EXPECT_THAT(m_machine.log.From(kInformation), IsEmpty());
    for (const LONG lower : {7L, -7L}) {
        EXPECT_EQ(Copy(ArrayOf({}, lower)), S_OK);
        EXPECT_EQ(m_count, 0U);
    }
}

/// What the devices can list that is no list of interfaces.
TEST_F(WwanEnumerationTest, BadArrayIsReportedAndDestroyed) {
    using ::Notebook::ModemList;
    const std::pair<ModemList, std::wstring> kinds[] = {{ModemList::Null, L"0x80004003"},
                                                        {ModemList::NullElement, L"0x80004003"},
                                                        {ModemList::WrongType, L"0x80020005"}};
    for (const auto& [kind, error] : kinds) {
        m_notebook.Devices().modemList = kind;
        EXPECT_FALSE(EnumerateWwanInterfaces());
        EXPECT_EQ(m_machine.log.At(kError).back(),
                  Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error " + error));
        EXPECT_EQ(Lines().back(), TraceOut(kEnumerate, L"Return = 0"));
    }
}

/// Arrays that hold no interface.
struct BadArray {
    const char* name;
    SAFEARRAY* (*make)();
    HRESULT error;
};

void PrintTo(const BadArray& tested, std::ostream* out) {
    *out << tested.name;
}

SAFEARRAY* ArrayOfTwoDimensions() {
    SAFEARRAYBOUND bounds[] = {{1, 0}, {1, 0}};
    return SafeArrayCreate(VT_UNKNOWN, 2, bounds);
}

/// Claims an element, and nobody made room for it.
SAFEARRAY* ArrayWithoutRoom() {
    SAFEARRAY* array = nullptr;
    SafeArrayAllocDescriptorEx(VT_UNKNOWN, 1, &array);
    array->fFeatures |= FADF_UNKNOWN;
    array->rgsabound[0] = {1, 0};
    return array;
}

class WwanBadArrayTest : public WwanEnumerationTest, public testing::WithParamInterface<BadArray> {};

TEST_P(WwanBadArrayTest, ArrayIsRefused) {
    EXPECT_EQ(Copy(GetParam().make()), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Arrays, WwanBadArrayTest,
    testing::Values(
        BadArray{"NoRoom", &ArrayWithoutRoom, E_POINTER},
        BadArray{"Numbers", [] { return SafeArrayCreateVector(VT_I8, 0, 3); }, DISP_E_TYPEMISMATCH},
        BadArray{"Texts", [] { return SafeArrayCreateVector(VT_BSTR, 0, 1); }, DISP_E_TYPEMISMATCH},
        BadArray{"Variants", [] { return SafeArrayCreateVector(VT_VARIANT, 0, 1); }, DISP_E_TYPEMISMATCH},
        BadArray{"TwoDimensions", &ArrayOfTwoDimensions, DISP_E_TYPEMISMATCH}));

TEST_F(WwanEnumerationTest, ElementOfAnotherKindStopsTheCopy) {
    EXPECT_EQ(Copy(ArrayOf({WwanState::interfaceManager.load().get()})), E_NOINTERFACE);
}

TEST_F(WwanEnumerationTest, ElementThatGivesNoInterfaceStopsTheCopy) {
    m_notebook.GiveNothing(Call::MbnInterfaceQueryInterface);
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x80004002")));
}

TEST_F(WwanEnumerationTest, IdentifierThatCannotBeReadStopsTheCopy) {
    MakeSecondModem();
    m_notebook.Fail(Call::MbnInterfaceGetInterfaceId, 1, E_ACCESSDENIED);
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_TRUE(WwanState::interfaceId.empty()) << "the second one is not recorded either";
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x80070005")));
}

struct BadIdentifier {
    const char* name;
    std::wstring text;
};

void PrintTo(const BadIdentifier& tested, std::ostream* out) {
    *out << tested.name;
}

class WwanBadIdentifierTest : public WwanEnumerationTest,
                              public testing::WithParamInterface<BadIdentifier> {};

TEST_P(WwanBadIdentifierTest, TextThatIsNoGuidMeansNoModem) {
    const Rig::ScopedImport<&::SysAllocString> gives{Rig::kWrapping, [](const auto& system, const OLECHAR*) {
                                                         return system.Original(GetParam().text.c_str());
                                                     }};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_TRUE(WwanState::interfaceId.empty());
    ASSERT_EQ(m_machine.log.At(kError).size(), 1U);
    EXPECT_THAT(m_machine.log.At(kError)[0].message,
                testing::StartsWith(L"CopyArrayOfInterfaces Failed with error 0x8"));
}

INSTANTIATE_TEST_SUITE_P(Texts, WwanBadIdentifierTest,
                         testing::Values(BadIdentifier{"Empty", L""}, BadIdentifier{"Name", L"Modem"},
                                         BadIdentifier{"NoBraces", L"11111111-1111-1111-1111-111111111111"},
                                         BadIdentifier{"CutShort", L"{11111111-1111-1111-1111-1111"},
                                         BadIdentifier{"Letters", L"{GGGGGGGG-1111-1111-1111-111111111111}"},
                                         BadIdentifier{"Long", std::wstring(100000, L'{')}));

TEST_F(WwanEnumerationTest, NoTextAtAllMeansNoModem) {
    m_notebook.GiveNothing(Call::MbnInterfaceGetInterfaceId);
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_TRUE(WwanState::interfaceId.empty());
}

TEST_F(WwanEnumerationTest, IdentifierWithoutATextMakesTheResultFalseButNotTheNextOneUnrecorded) {
    MakeSecondModem();
    const Rig::ScopedResult<&::StringFromIID> fails{E_OUTOFMEMORY, Rig::AtCall{1}};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, Id(1));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kEnumerate),
                                     Error(kEnumerate, L"StringFromIID failed with error 0x8007000E"),
                                     Information(kEnumerate, L"WWAN Interface = " + Id(1)),
                                     TraceOut(kEnumerate, L"Return = 0")));
}

TEST_F(WwanEnumerationTest, SuccessWithoutATextIsAFailureToo) {
    MakeSecondModem();
    const Rig::ScopedResult<&::StringFromIID> noText{S_OK, Rig::AtCall{1}};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, Id(1));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kEnumerate),
                                     Error(kEnumerate, L"StringFromIID failed with error 0x00000000"),
                                     Information(kEnumerate, L"WWAN Interface = " + Id(1)),
                                     TraceOut(kEnumerate, L"Return = 0")));
}

TEST_F(WwanEnumerationTest, TextsListAndArrayAreGivenBack) {
    SKIP_UNLESS_IMPORTED(malloc);
    EXPECT_TRUE(EnumerateWwanInterfaces());
    for (const char* kind :
         {Rig::Kind::kBstr, Rig::Kind::kTaskMemory, Rig::Kind::kSafeArray, Rig::Kind::kHeapMemory}) {
        EXPECT_EQ(m_ledger.Given(kind), 1) << kind;
        EXPECT_EQ(m_ledger.Outstanding(kind), 0) << kind;
    }
    EXPECT_EQ(References(), 0);
}

TEST_F(WwanEnumerationTest, WithoutMemoryTheCopyFails) {
    SKIP_UNLESS_IMPORTED(malloc);
    const Rig::ScopedResult<&::HeapAlloc> fails{nullptr};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kCopy, L"CopyArrayOfInterfaces malloc failed!!"),
                            Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x8007000E")));
}

TEST_F(WwanEnumerationTest, BoundsThatCannotBeReadFailTheCopy) {
    {
        const Rig::ScopedResult<&::SafeArrayGetLBound> fails{DISP_E_BADINDEX};
        EXPECT_FALSE(EnumerateWwanInterfaces());
    }
    const Rig::ScopedResult<&::SafeArrayGetUBound> fails{DISP_E_BADINDEX};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x8002000B"),
                            Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x8002000B")));
}

TEST_F(WwanEnumerationTest, WidestBoundsAskForMemoryForEveryElement) {
    SKIP_UNLESS_IMPORTED(malloc);
    const Rig::ScopedImport<&::SafeArrayGetLBound> lowest{[](SAFEARRAY*, UINT, LONG* bound) {
        *bound = std::numeric_limits<LONG>::min();
        return S_OK;
    }};
    const Rig::ScopedImport<&::SafeArrayGetUBound> highest{[](SAFEARRAY*, UINT, LONG* bound) {
        *bound = std::numeric_limits<LONG>::max();
        return S_OK;
    }};
    std::vector<SIZE_T> asked;
    const Rig::ScopedImport<&::HeapAlloc> refuses{[&](HANDLE, DWORD, SIZE_T bytes) -> void* {
        asked.push_back(bytes);
        return nullptr;
    }};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(asked, ElementsAre((SIZE_T{1} << 32) * sizeof(GUID)));
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kCopy, L"CopyArrayOfInterfaces malloc failed!!"),
                            Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x8007000E")));
}

TEST_F(WwanEnumerationTest, UpperBoundBelowTheLowerOneIsAnEmptyArray) {
    const Rig::ScopedImport<&::SafeArrayGetUBound> odd{[](SAFEARRAY*, UINT, LONG* bound) {
        *bound = -2147483647L - 1;
        return S_OK;
    }};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(m_machine.log.At(kError), IsEmpty());
}

TEST_F(WwanEnumerationTest, ElementThatCannotBeReadFailsTheCopy) {
    const Rig::ScopedResult<&::SafeArrayGetElement> fails{DISP_E_BADINDEX};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x8002000B")));
}

TEST_F(WwanEnumerationTest, ExceptionOfTheManagerIsLogged) {
    m_notebook.AtEach(Call::MbnInterfaceManagerGetInterfaces,
                      []() -> DWORD { throw std::runtime_error("out of order"); });
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kEnumerate), Error(kEnumerate, L"Exception in EnumerateWwanInterfaces()"),
                            TraceOut(kEnumerate, L"Return = 0")));
}

TEST_F(WwanEnumerationTest, ExceptionInTheMiddleOfTheCopyGivesEverythingBack) {
    SKIP_UNLESS_IMPORTED(malloc);
    const Rig::ScopedImport<&::IIDFromString> throws{
        [](LPCOLESTR, IID*) -> HRESULT { throw DWORD{ERROR_CRC}; }};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kEnumerate, L"Exception in EnumerateWwanInterfaces()")));
    for (const char* kind : {Rig::Kind::kBstr, Rig::Kind::kSafeArray, Rig::Kind::kHeapMemory}) {
        EXPECT_EQ(m_ledger.Given(kind), 1) << kind;
        EXPECT_EQ(m_ledger.Outstanding(kind), 0) << kind;
    }
    EXPECT_EQ(References(), 0);
}

TEST_F(WwanEnumerationTest, CopyRefusesNullArguments) {
    SAFEARRAY* const array = ArrayOf({});
    ULONG count = 0;
    Platform::UniqueProcessHeap<GUID> identifiers;
    EXPECT_EQ(CopyArrayOfInterfaces(nullptr, &count, &identifiers), E_POINTER);
    EXPECT_EQ(CopyArrayOfInterfaces(array, nullptr, &identifiers), E_POINTER);
    EXPECT_EQ(CopyArrayOfInterfaces(array, &count, nullptr), E_POINTER);
    SafeArrayDestroy(array);
}

TEST_F(WwanEnumerationTest, CopyCountsTheElementsAndGivesTheirIdentifiers) {
    MakeSecondModem();
    SAFEARRAY* array = nullptr;
    ASSERT_EQ(WwanState::interfaceManager.load()->GetInterfaces(&array), S_OK);
    EXPECT_EQ(Copy(array), S_OK);
    ASSERT_EQ(m_count, 2U);
    EXPECT_EQ(m_identifiers.Get()[0], Modem(0).id);
    EXPECT_EQ(m_identifiers.Get()[1], Modem(1).id);
}

TEST_F(WwanEnumerationTest, FailedCopyLeavesNothingInItsOutputs) {
    ULONG count = 5;
    auto identifiers = Platform::AllocateFromProcessHeap<GUID>(sizeof(GUID));
    SAFEARRAY* const array = ArrayOf({nullptr});
    EXPECT_EQ(CopyArrayOfInterfaces(array, &count, &identifiers), E_POINTER);
    EXPECT_EQ(count, 0U);
    EXPECT_FALSE(identifiers);
    SafeArrayDestroy(array);
}

}  // namespace
}  // namespace RadioTests
