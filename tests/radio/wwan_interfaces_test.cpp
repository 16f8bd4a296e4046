#include "radio/wwan_interfaces.h"

#include <gmock/gmock.h>

#include <limits>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/fake_modem.h"
#include "tests/radio/machine.h"
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

class WwanEnumerationTest : public testing::Test {
  protected:
    WwanEnumerationTest() {
        WwanState::devicePresent = false;
        WwanState::interfaceId.clear();
    }

    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kEnumerate); }

    Machine m_machine;
    RadioLedger m_ledger;
    FakeModems m_modems{{MBN_RADIO_ON}};
};

TEST_F(WwanEnumerationTest, OneModemIsRecorded) {
    EXPECT_TRUE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, kFirstModem);
    EXPECT_THAT(m_machine.log.Lines(),
                ElementsAre(TraceIn(kEnumerate), TraceIn(kCopy), TraceOut(kCopy),
                            Information(kEnumerate, std::wstring(L"WWAN Interface = ") + kFirstModem),
                            TraceOut(kEnumerate, L"Return = 1")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(500));
}

TEST_F(WwanEnumerationTest, OfTwoModemsTheLastOneWins) {
    m_modems.interfaces.emplace_back(m_modems.Radio(), kSecondModem);
    EXPECT_TRUE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, kSecondModem);
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kEnumerate),
                            Information(kEnumerate, std::wstring(L"WWAN Interface = ") + kFirstModem),
                            Information(kEnumerate, std::wstring(L"WWAN Interface = ") + kSecondModem),
                            TraceOut(kEnumerate, L"Return = 1")));
}

TEST_F(WwanEnumerationTest, ArrayThatDoesNotBeginAtZeroIsReadFromItsLowerBound) {
    m_modems.interfaces.emplace_back(m_modems.Radio(), kSecondModem);
    for (const LONG lower : {1L, -1L, 1000000L, -2147483647L - 1, 2147483645L}) {
        m_modems.manager.lowerBound = lower;
        EXPECT_TRUE(EnumerateWwanInterfaces()) << lower;
        EXPECT_EQ(WwanState::interfaceId, kSecondModem) << lower;
        WwanState::interfaceId.clear();
    }
}

TEST_F(WwanEnumerationTest, LowerCaseIdentifierIsRecordedInRegistryForm) {
    m_modems.interfaces[0].identifier = L"{abcdefab-1111-1111-1111-111111111111}";
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
    m_modems.manager.onGetInterfaces = [](int call) { return call < 5 ? E_PENDING : S_OK; };
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
    m_modems.manager.onGetInterfaces = [](int) { return E_FAIL; };
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_EQ(m_modems.manager.enumerations, 5);
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
    for (const LONG lower : {0L, 7L, -7L}) {
        m_modems.manager.makeArray = [lower] { return FakeManager::ArrayOf({}, lower); };
        EXPECT_FALSE(EnumerateWwanInterfaces());
    }
    EXPECT_TRUE(WwanState::interfaceId.empty());
    EXPECT_THAT(m_machine.log.From(kInformation), IsEmpty());
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

TEST_P(WwanBadArrayTest, ArrayIsRefusedAndDestroyed) {
    m_modems.manager.makeArray = GetParam().make;
    EXPECT_FALSE(EnumerateWwanInterfaces());
    std::wostringstream text;
    text << L"CopyArrayOfInterfaces Failed with error 0x" << std::hex << std::uppercase
         << static_cast<ULONG>(GetParam().error);
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kEnumerate), Error(kEnumerate, text.str()),
                                     TraceOut(kEnumerate, L"Return = 0")));
    EXPECT_EQ(m_ledger.Outstanding(Rig::Kind::kSafeArray), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Arrays, WwanBadArrayTest,
    testing::Values(
        BadArray{"Null", [] { return static_cast<SAFEARRAY*>(nullptr); }, E_POINTER},
        BadArray{"NullElement", [] { return FakeManager::ArrayOf({nullptr}); }, E_POINTER},
        BadArray{"NoRoom", &ArrayWithoutRoom, E_POINTER},
        BadArray{"Numbers", [] { return SafeArrayCreateVector(VT_I8, 0, 3); }, DISP_E_TYPEMISMATCH},
        BadArray{"Texts", [] { return SafeArrayCreateVector(VT_BSTR, 0, 1); }, DISP_E_TYPEMISMATCH},
        BadArray{"Variants", [] { return SafeArrayCreateVector(VT_VARIANT, 0, 1); }, DISP_E_TYPEMISMATCH},
        BadArray{"TwoDimensions", &ArrayOfTwoDimensions, DISP_E_TYPEMISMATCH}));

TEST_F(WwanEnumerationTest, ElementOfAnotherKindStopsTheCopy) {
    FakeRadio stranger{MBN_RADIO_ON, "stranger"};
    IMbnRadio* reference = nullptr;
    stranger.HandOut(&reference);
    m_modems.manager.makeArray = [reference] { return FakeManager::ArrayOf({reference}); };
    EXPECT_FALSE(EnumerateWwanInterfaces());
    reference->Release();
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x80004002")));
}

/// Says that it is an adapter, and does not give itself.
class SilentElement final : public FakeInterface {
  public:
    using FakeInterface::FakeInterface;

    HRESULT WINAPI QueryInterface(REFIID interfaceId, void** object) override {
        if (interfaceId != IID_IMbnInterface) {
            return FakeInterface::QueryInterface(interfaceId, object);
        }
        *object = nullptr;
        return S_OK;
    }
};

TEST_F(WwanEnumerationTest, ElementThatGivesNoInterfaceStopsTheCopy) {
    SilentElement silent{m_modems.Radio(), kSecondModem};
    m_modems.manager.makeArray = [&silent] {
        IMbnInterface* reference = nullptr;
        silent.HandOut(&reference);
        SAFEARRAY* const array = FakeManager::ArrayOf({reference});
        reference->Release();
        return array;
    };
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x80004002")));
}

TEST_F(WwanEnumerationTest, IdentifierThatCannotBeReadStopsTheCopy) {
    m_modems.interfaces[0].identifierResult = E_ACCESSDENIED;
    m_modems.interfaces.emplace_back(m_modems.Radio(), kSecondModem);
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_TRUE(WwanState::interfaceId.empty()) << "the second one is not recorded either";
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x80070005")));
}

struct BadIdentifier {
    const char* name;
    std::optional<std::wstring> text;
};

void PrintTo(const BadIdentifier& tested, std::ostream* out) {
    *out << tested.name;
}

class WwanBadIdentifierTest : public WwanEnumerationTest,
                              public testing::WithParamInterface<BadIdentifier> {};

TEST_P(WwanBadIdentifierTest, TextThatIsNoGuidMeansNoModem) {
    m_modems.interfaces[0].identifier = GetParam().text;
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_TRUE(WwanState::interfaceId.empty());
    ASSERT_EQ(m_machine.log.At(kError).size(), 1U);
    EXPECT_THAT(m_machine.log.At(kError)[0].message,
                testing::StartsWith(L"CopyArrayOfInterfaces Failed with error 0x8"));
}

INSTANTIATE_TEST_SUITE_P(Texts, WwanBadIdentifierTest,
                         testing::Values(BadIdentifier{"None", std::nullopt}, BadIdentifier{"Empty", L""},
                                         BadIdentifier{"Name", L"Modem"},
                                         BadIdentifier{"NoBraces", L"11111111-1111-1111-1111-111111111111"},
                                         BadIdentifier{"CutShort", L"{11111111-1111-1111-1111-1111"},
                                         BadIdentifier{"Letters", L"{GGGGGGGG-1111-1111-1111-111111111111}"},
                                         BadIdentifier{"Long", std::wstring(100000, L'{')}));

TEST_F(WwanEnumerationTest, IdentifierWithoutATextMakesTheResultFalseButNotTheNextOneUnrecorded) {
    m_modems.interfaces.emplace_back(m_modems.Radio(), kSecondModem);
    const Rig::ScopedResult<&::StringFromIID> fails{E_OUTOFMEMORY, Rig::AtCall{1}};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, kSecondModem);
    EXPECT_THAT(
        Lines(),
        ElementsAre(TraceIn(kEnumerate), Error(kEnumerate, L"StringFromIID failed with error 0x8007000E"),
                    Information(kEnumerate, std::wstring(L"WWAN Interface = ") + kSecondModem),
                    TraceOut(kEnumerate, L"Return = 0")));
}

TEST_F(WwanEnumerationTest, SuccessWithoutATextIsAFailureToo) {
    m_modems.interfaces.emplace_back(m_modems.Radio(), kSecondModem);
    const Rig::ScopedResult<&::StringFromIID> noText{S_OK, Rig::AtCall{1}};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, kSecondModem);
    EXPECT_THAT(
        Lines(),
        ElementsAre(TraceIn(kEnumerate), Error(kEnumerate, L"StringFromIID failed with error 0x00000000"),
                    Information(kEnumerate, std::wstring(L"WWAN Interface = ") + kSecondModem),
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
    EXPECT_EQ(m_modems.interfaces[0].References(), 0);
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
    m_modems.manager.onGetInterfaces = [](int) -> HRESULT { throw std::runtime_error("out of order"); };
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
    EXPECT_EQ(m_modems.interfaces[0].References(), 0);
}

TEST_F(WwanEnumerationTest, CopyRefusesNullArguments) {
    SAFEARRAY* const array = FakeManager::ArrayOf({});
    ULONG count = 0;
    Platform::UniqueProcessHeap<GUID> identifiers;
    EXPECT_EQ(CopyArrayOfInterfaces(nullptr, &count, &identifiers), E_POINTER);
    EXPECT_EQ(CopyArrayOfInterfaces(array, nullptr, &identifiers), E_POINTER);
    EXPECT_EQ(CopyArrayOfInterfaces(array, &count, nullptr), E_POINTER);
    SafeArrayDestroy(array);
}

TEST_F(WwanEnumerationTest, CopyCountsTheElementsAndGivesTheirIdentifiers) {
    m_modems.interfaces.emplace_back(m_modems.Radio(), kSecondModem);
    SAFEARRAY* array = nullptr;
    ASSERT_EQ(WwanState::interfaceManager.load()->GetInterfaces(&array), S_OK);
    ULONG count = 0;
    Platform::UniqueProcessHeap<GUID> identifiers;
    EXPECT_EQ(CopyArrayOfInterfaces(array, &count, &identifiers), S_OK);
    ASSERT_EQ(count, 2U);
    EXPECT_EQ(identifiers.Get()[0].Data1, 0x11111111U);
    EXPECT_EQ(identifiers.Get()[1].Data1, 0x22222222U);
    SafeArrayDestroy(array);
}

TEST_F(WwanEnumerationTest, FailedCopyLeavesNothingInItsOutputs) {
    ULONG count = 5;
    auto identifiers = Platform::AllocateFromProcessHeap<GUID>(sizeof(GUID));
    SAFEARRAY* const array = FakeManager::ArrayOf({nullptr});
    EXPECT_EQ(CopyArrayOfInterfaces(array, &count, &identifiers), E_POINTER);
    EXPECT_EQ(count, 0U);
    EXPECT_FALSE(identifiers);
    SafeArrayDestroy(array);
}

}  // namespace
}  // namespace RadioTests
