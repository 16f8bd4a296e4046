#include "radio/wwan_interfaces.h"

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "notebook/hardware/class_objects.h"
#include "notebook/state/text.h"
#include "radio/wwan_state.h"
#include "tests/radio/wwan_test.h"
#include "tests/support/skip_unless_imported.h"

namespace RadioTests {
namespace {

using NLMUtils::CopyArrayOfInterfaces;
using ::Notebook::ModemList;

constexpr char kEnumerate[] = "ServiceUtils::EnumerateWwanInterfaces";
constexpr char kCopy[] = "NLMUtils::CopyArrayOfInterfaces";
constexpr wchar_t kTryFailed[] = L"GetInterfaces failed in try %d with !err is 0x";
constexpr wchar_t kGivenUp[] = L"GetInterfaces failed with error: HRESULT : 0x";
constexpr LONG kLowest = std::numeric_limits<LONG>::min();
constexpr LONG kHighest = std::numeric_limits<LONG>::max();

class WwanEnumerationTest : public WwanTest {
  protected:
    WwanEnumerationTest() { MakeModems(1); }

    /// The machine has so many modems, and none is recorded.
    void MakeModems(std::uint32_t count) {
        SetModems(count);
        WwanState::devicePresent = false;
        WwanState::interfaceId.clear();
    }
    [[nodiscard]] static Microsoft::WRL::ComPtr<IUnknown> TheModem() {
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

    [[nodiscard]] std::vector<LogLine> Lines() const { return m_machine.log.Of(kEnumerate); }
    [[nodiscard]] LogLine Recorded(std::size_t modem) const {
        return Information(kEnumerate, L"WWAN Interface = " + Id(modem));
    }

    ULONG m_count = 0;
    Platform::UniqueProcessHeap<GUID> m_identifiers;
};

/// An array of these references.
SAFEARRAY* ArrayOf(const std::vector<IUnknown*>& elements, LONG lowerBound = 0) {
    SAFEARRAY* const array =
        SafeArrayCreateVector(VT_UNKNOWN, lowerBound, static_cast<ULONG>(elements.size()));
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
                                                   Recorded(0), TraceOut(kEnumerate, L"Return = 1")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(500));
    EXPECT_EQ(References(), 0);
}

TEST_F(WwanEnumerationTest, OfTwoModemsTheLastOneWins) {
    MakeModems(2);
    EXPECT_TRUE(EnumerateWwanInterfaces());
    EXPECT_EQ(WwanState::interfaceId, Id(1));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kEnumerate), Recorded(0), Recorded(1),
                                     TraceOut(kEnumerate, L"Return = 1")));
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

TEST_F(WwanEnumerationTest, ManagerThatIsNotReadyIsAskedFiveTimes) {
    for (const bool comesAtLast : {true, false}) {
        for (int call = 1; call <= (comesAtLast ? 4 : 5); ++call) {
            m_notebook.Fail(Call::MbnInterfaceManagerGetInterfaces, call, E_PENDING);
        }
        m_machine.log.Clear();
        m_machine.clock.ForgetRecords();
        EXPECT_EQ(EnumerateWwanInterfaces(), comesAtLast);
        EXPECT_EQ(m_machine.log.From(kWarning),
                  comesAtLast ? FailedTries(kEnumerate, 4, kTryFailed, L"8000000A")
                              : FailedTries(kEnumerate, 5, kTryFailed, L"8000000A", kGivenUp));
        EXPECT_THAT(m_machine.clock.Sleeps(), AllOf(SizeIs(5), Each(500)));
        EXPECT_EQ(Lines().back(), TraceOut(kEnumerate, comesAtLast ? L"Return = 1" : L"Return = 0"));
    }
}

TEST_F(WwanEnumerationTest, ModemThatCannotBeCopiedIsReportedAndTheNextIsNotRecordedEither) {
    const auto expectFailure = [this](const std::wstring& error) {
        SCOPED_TRACE(testing::PrintToString(error));
        m_machine.log.Clear();
        EXPECT_FALSE(EnumerateWwanInterfaces());
        EXPECT_TRUE(WwanState::interfaceId.empty());
        EXPECT_THAT(m_machine.log.At(kError),
                    ElementsAre(Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error " + error)));
        EXPECT_EQ(Lines().back(), TraceOut(kEnumerate, L"Return = 0"));
    };
    struct Case {
        Call call;
        LONG error;  ///< zero: it gives nothing
        const wchar_t* text;
    };
    MakeModems(2);
    for (const Case& broken : {Case{Call::MbnInterfaceManagerGetInterfaces, S_OK, L"0x80004003"},
                               Case{Call::MbnInterfaceQueryInterface, S_OK, L"0x80004002"},
                               Case{Call::MbnInterfaceGetInterfaceId, E_ACCESSDENIED, L"0x80070005"},
                               Case{Call::MbnInterfaceGetInterfaceId, S_OK, L"0x800401F4"}}) {
        m_notebook.Fail(broken.call, 1, broken.error);
        expectFailure(broken.text);
    }
    {
        const ScopedResult<&::SafeArrayGetLBound> fails{DISP_E_BADINDEX};
        expectFailure(L"0x8002000B");
    }
    {
        const ScopedResult<&::SafeArrayGetUBound> fails{DISP_E_BADINDEX};
        expectFailure(L"0x8002000B");
    }
    const ScopedResult<&::SafeArrayGetElement> fails{DISP_E_BADINDEX};
    expectFailure(L"0x8002000B");
}

TEST_F(WwanEnumerationTest, TextThatIsNoGuidMeansNoModem) {
    for (const std::wstring& text :
         {std::wstring(), std::wstring(L"Modem"), std::wstring(L"11111111-1111-1111-1111-111111111111"),
          std::wstring(L"{11111111-1111-1111-1111-1111"),
          std::wstring(L"{GGGGGGGG-1111-1111-1111-111111111111}"), std::wstring(100000, L'{')}) {
        const ScopedImport<&::SysAllocString> gives{Rig::kWrapping, [&](const auto& system, const OLECHAR*) {
                                                        return system.Original(text.c_str());
                                                    }};
        m_machine.log.Clear();
        EXPECT_FALSE(EnumerateWwanInterfaces());
        EXPECT_TRUE(WwanState::interfaceId.empty());
        ASSERT_THAT(m_machine.log.At(kError), SizeIs(1));
        EXPECT_THAT(m_machine.log.At(kError)[0].message,
                    testing::StartsWith(L"CopyArrayOfInterfaces Failed with error 0x8"));
    }
}

TEST_F(WwanEnumerationTest, IdentifierWithoutATextMakesTheResultFalseButNotTheNextOneUnrecorded) {
    const std::pair<HRESULT, const wchar_t*> answers[] = {
        {E_OUTOFMEMORY, L"StringFromIID failed with error 0x8007000E"},
        {S_OK, L"StringFromIID failed with error 0x00000000"}};
    for (const auto& [answer, text] : answers) {
        MakeModems(2);
        m_machine.log.Clear();
        const ScopedResult<&::StringFromIID> givesNoText{answer, Rig::AtCall{1}};
        EXPECT_FALSE(EnumerateWwanInterfaces());
        EXPECT_EQ(WwanState::interfaceId, Id(1));
        EXPECT_THAT(Lines(), ElementsAre(TraceIn(kEnumerate), Error(kEnumerate, text), Recorded(1),
                                         TraceOut(kEnumerate, L"Return = 0")));
    }
}

TEST_F(WwanEnumerationTest, EmptyArrayMeansNoModem) {
    m_notebook.Devices().modemList = ModemList::Empty;
    EXPECT_FALSE(EnumerateWwanInterfaces());
    {
        const ScopedImport<&::SafeArrayGetUBound> odd{[](SAFEARRAY*, UINT, LONG* bound) {
            *bound = kLowest;
            return S_OK;
        }};
        EXPECT_FALSE(EnumerateWwanInterfaces());
    }
    EXPECT_TRUE(WwanState::interfaceId.empty());
    EXPECT_THAT(m_machine.log.From(kWarning), IsEmpty());
    for (const LONG lower : {7L, -7L}) {
        EXPECT_EQ(Copy(ArrayOf({}, lower)), S_OK);
        EXPECT_EQ(m_count, 0U);
    }
}

TEST_F(WwanEnumerationTest, WidestBoundsAskForMemoryForEveryElementAndFailWithoutIt) {
    SKIP_UNLESS_IMPORTED(malloc);
    const ScopedImport<&::SafeArrayGetLBound> lowest{[](SAFEARRAY*, UINT, LONG* bound) {
        *bound = kLowest;
        return S_OK;
    }};
    const ScopedImport<&::SafeArrayGetUBound> highest{[](SAFEARRAY*, UINT, LONG* bound) {
        *bound = kHighest;
        return S_OK;
    }};
    std::vector<SIZE_T> asked;
    const ScopedImport<&::HeapAlloc> refuses{[&](HANDLE, DWORD, SIZE_T bytes) -> void* {
        asked.push_back(bytes);
        return nullptr;
    }};
    EXPECT_FALSE(EnumerateWwanInterfaces());
    EXPECT_THAT(asked, ElementsAre((SIZE_T{1} << 32) * sizeof(GUID)));
    EXPECT_THAT(m_machine.log.At(kError),
                ElementsAre(Error(kCopy, L"CopyArrayOfInterfaces malloc failed!!"),
                            Error(kEnumerate, L"CopyArrayOfInterfaces Failed with error 0x8007000E")));
}

TEST_F(WwanEnumerationTest, CopyRefusesNullArguments) {
    SAFEARRAY* const array = ArrayOf({});
    EXPECT_EQ(CopyArrayOfInterfaces(nullptr, &m_count, &m_identifiers), E_POINTER);
    EXPECT_EQ(CopyArrayOfInterfaces(array, nullptr, &m_identifiers), E_POINTER);
    EXPECT_EQ(CopyArrayOfInterfaces(array, &m_count, nullptr), E_POINTER);
    SafeArrayDestroy(array);
}

TEST_F(WwanEnumerationTest, ArrayIsReadFromWhateverItsLowerBoundIs) {
    const Microsoft::WRL::ComPtr<IUnknown> modem = TheModem();
    for (const LONG lower : {1L, -1L, 1000000L, kLowest, kHighest - 2}) {
        EXPECT_EQ(Copy(ArrayOf({modem.Get(), modem.Get()}, lower)), S_OK) << lower;
        ASSERT_EQ(m_count, 2U) << lower;
        EXPECT_EQ(m_identifiers.Get()[0], Modem().id) << lower;
        EXPECT_EQ(m_identifiers.Get()[1], Modem().id) << lower;
    }
}

SAFEARRAY* ArrayOfTwoDimensions() {
    SAFEARRAYBOUND bounds[] = {{1, 0}, {1, 0}};
    return SafeArrayCreate(VT_UNKNOWN, 2, bounds);
}

/// Claims elements, and nobody made room for them.
SAFEARRAY* ArrayWithoutRoom(ULONG elements) {
    SAFEARRAY* array = nullptr;
    SafeArrayAllocDescriptorEx(VT_UNKNOWN, 1, &array);
    array->fFeatures |= FADF_UNKNOWN;
    array->rgsabound[0] = {elements, 0};
    return array;
}

TEST_F(WwanEnumerationTest, ArrayOfNoneNeedsNoRoom) {
    m_count = 5;
    EXPECT_EQ(Copy(ArrayWithoutRoom(0)), S_OK);
    EXPECT_EQ(m_count, 0U);
}

TEST_F(WwanEnumerationTest, ArrayThatEndsAtTheHighestIndexIsReadToItsEnd) {
    const Microsoft::WRL::ComPtr<IUnknown> modem = TheModem();
    std::vector<LONG> indices;
    // Wine's own arrays refuse that index.
    const ScopedImport<&::SafeArrayGetElement> gives([&](SAFEARRAY*, LONG* index, void* element) -> HRESULT {
        indices.push_back(*index);
        return indices.size() <= 2 ? modem.CopyTo(static_cast<IUnknown**>(element)) : DISP_E_BADINDEX;
    });
    SAFEARRAY* const array = ArrayOf({modem.Get(), modem.Get()});
    array->rgsabound[0].lLbound = kHighest - 1;
    EXPECT_EQ(Copy(array), S_OK);
    EXPECT_THAT(indices, ElementsAre(kHighest - 1, kHighest));
}

TEST_F(WwanEnumerationTest, ArrayThatHoldsNoInterfaceIsRefusedAndLeavesNothingInTheOutputs) {
    const std::pair<SAFEARRAY*, HRESULT> arrays[] = {
        {ArrayWithoutRoom(1), E_POINTER},
        {ArrayOf({nullptr}), E_POINTER},
        {ArrayOf({WwanState::interfaceManager.load().get()}), E_NOINTERFACE},
        {SafeArrayCreateVector(VT_I8, 0, 3), DISP_E_TYPEMISMATCH},
        {SafeArrayCreateVector(VT_BSTR, 0, 1), DISP_E_TYPEMISMATCH},
        {SafeArrayCreateVector(VT_VARIANT, 0, 1), DISP_E_TYPEMISMATCH},
        {ArrayOfTwoDimensions(), DISP_E_TYPEMISMATCH}};
    for (const auto& [array, error] : arrays) {
        m_count = 5;
        m_identifiers = Platform::AllocateFromProcessHeap<GUID>(sizeof(GUID));
        EXPECT_EQ(Copy(array), error);
        EXPECT_EQ(m_count, 0U);
        EXPECT_FALSE(m_identifiers);
    }
}

}  // namespace
}  // namespace RadioTests
