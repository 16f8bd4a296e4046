#include "tests/network/fake_adapters.h"

#include <gmock/gmock.h>
#include <wrl/client.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "network/connection_adapter.h"
#include "tests/network/fake_network.h"
#include "tests/support/log_recorder.h"
#include "tests/support/skip_unless_imported.h"

namespace NetworkTests {
namespace {

namespace Level = Orva::Shared::Level;
using namespace Rig::Lines;
using Microsoft::WRL::ComPtr;
using Rig::LogLine;
using Rig::LogRecorder;
using Rig::ScopedImport;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kIsEthernet[] = "NLMUtils::IsEthernetConnection";
constexpr char kPrint[] = "NLMUtils::PrintAdapterInfo";
constexpr char kTypeString[] = "NLMUtils::GetInterfaceTypeString";
constexpr ULONG kFirstBytes = 15000;
/// What the flag holds before a call, to see whether it was written.
constexpr unsigned char kUntouched = 0x40;

LogLine NoMemory() {
    return Error(kPrint, L"Memory allocation failed for IP_ADAPTER_ADDRESSES struct");
}
LogLine Success() {
    return Information(kPrint, L"Memory allocation success for IP_ADAPTER_ADDRESSES struct");
}
LogLine Failed(int error) {
    return Information(kPrint, L"GetAdaptersAddresses failed with an Error code : " + std::to_wstring(error));
}
LogLine GivenUp() {
    return Error(kPrint, L"ERROR with GetAdaptersAddresses");
}
LogLine TooManyPasses() {
    return Error(kPrint, L"Memory allocation retry limit exceeded ");
}
LogLine MoreMemory(int bytes) {
    return Information(kPrint,
                       L"The buffer size is not enough,trying to allocate more memory...Required Memory is " +
                           std::to_wstring(bytes) + L" Bytes");
}
LogLine NoMatch() {
    return Warning(kPrint, L"Could not find matching adapter");
}

/// Looks for adapter 1. The flag afterwards.
unsigned char PrintFirstAdapter() {
    unsigned char isEthernet = kUntouched;
    NLMUtils::PrintAdapterInfo(AdapterText(1), &isEthernet);
    return isEthernet;
}

TEST(PrintAdapterInfo, EthernetAdapterIsLoggedAndFlagged) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    FakeAdapterAddresses adapters{{{AdapterName(2), kWifi, L"Wireless", L"Wi-Fi"},
                                   {AdapterName(1), kEthernet, L"Fast Ethernet", L"Ethernet 2"}}};

    EXPECT_EQ(PrintFirstAdapter(), 1);

    EXPECT_THAT(adapters.SizesOffered(), ElementsAre(kFirstBytes));
    EXPECT_EQ(adapters.Family(), ULONG{AF_UNSPEC});
    EXPECT_EQ(adapters.Flags(), ULONG{GAA_FLAG_INCLUDE_PREFIX});
    EXPECT_THAT(heap.Asked(), ElementsAre(kFirstBytes));
    EXPECT_THAT(heap.Held(), IsEmpty());
    EXPECT_THAT(log.Lines(),
                ElementsAre(TraceIn(kPrint, L"GUID Value = {ADA00000-0000-0000-0000-000000000001}"),
                            Success(), Information(kPrint, L"Description   : Fast Ethernet"),
                            Information(kPrint, L"Friendly Name : Ethernet 2"),
                            TraceIn(kTypeString, L"IFTYPE Value = 6"),
                            TraceOut(kTypeString, L"InterfaceType = Ethernet"),
                            Information(kPrint, L"Interface type: Ethernet"),
                            TraceOut(kPrint, L"Ethernet Status = 1")));
}

TEST(PrintAdapterInfo, OtherAdapterIsLoggedAndLeavesTheFlag) {
    LogRecorder log;
    const FakeAdapterAddresses adapters{{{AdapterName(1), kWifi, L"Wireless", L"Wi-Fi"}}};

    EXPECT_EQ(PrintFirstAdapter(), kUntouched);

    EXPECT_THAT(log.Of(kPrint), ElementsAre(TraceIn(kPrint, L"GUID Value = " + AdapterText(1)), Success(),
                                            Information(kPrint, L"Description   : Wireless"),
                                            Information(kPrint, L"Friendly Name : Wi-Fi"),
                                            Information(kPrint, L"Interface type: IEEE 802.11 Wireless"),
                                            TraceOut(kPrint, L"Ethernet Status = 64")));
}

TEST(PrintAdapterInfo, UnknownAdapterIsWarnedAboutAndLeavesTheFlag) {
    LogRecorder log;
    const FakeAdapterAddresses adapters{{{AdapterName(2), kEthernet}}};

    EXPECT_EQ(PrintFirstAdapter(), kUntouched);

    EXPECT_THAT(log.From(Level::kInformation), ElementsAre(Success(), NoMatch()));
}

TEST(PrintAdapterInfo, WalkGoesOnBehindTheFirstMatch) {
    LogRecorder log;
    const FakeAdapterAddresses adapters{{{AdapterName(1), kWifi, L"One", L"1"},
                                         {AdapterName(2), kWifi, L"Two", L"2"},
                                         {AdapterName(1), kEthernet, L"Three", L"3"}}};

    EXPECT_EQ(PrintFirstAdapter(), 1);

    EXPECT_TRUE(log.Contains(Information(kPrint, L"Description   : One")));
    EXPECT_FALSE(log.Contains(Information(kPrint, L"Description   : Two")));
    EXPECT_TRUE(log.Contains(Information(kPrint, L"Description   : Three")));
}

TEST(PrintAdapterInfo, IdentifierInLowerCaseNeverMatches) {
    LogRecorder log;
    const FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet}}};
    unsigned char isEthernet = 0;

    NLMUtils::PrintAdapterInfo(L"{ada00000-0000-0000-0000-000000000001}", &isEthernet);

    EXPECT_EQ(isEthernet, 0);
    EXPECT_TRUE(log.Contains(NoMatch()));
}

TEST(PrintAdapterInfo, NameThatIsOnlyABeginningDoesNotMatch) {
    LogRecorder log;
    const std::string name = AdapterName(1);
    const FakeAdapterAddresses adapters{
        {{name + "x", kEthernet}, {name.substr(0, name.size() - 1), kEthernet}, {"", kEthernet}}};

    EXPECT_EQ(PrintFirstAdapter(), kUntouched);

    EXPECT_TRUE(log.Contains(NoMatch()));
}

TEST(PrintAdapterInfo, NamesOfEveryByteDoNoHarm) {
    const LogRecorder log;
    for (int byte = 1; byte < 256; ++byte) {
        const FakeAdapterAddresses adapters{{{std::string(38, static_cast<char>(byte)), kEthernet}}};

        EXPECT_EQ(PrintFirstAdapter(), kUntouched) << byte;
    }
}

TEST(PrintAdapterInfo, MissingTextsReadAsEmpty) {
    LogRecorder log;
    const FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet, {}, {}}, {{}, kWifi, {}, {}}}};

    EXPECT_EQ(PrintFirstAdapter(), 1);

    EXPECT_TRUE(log.Contains(Information(kPrint, L"Description   : ")));
    EXPECT_TRUE(log.Contains(Information(kPrint, L"Friendly Name : ")));
}

TEST(PrintAdapterInfo, LongTextsAreCutByTheLogAlone) {
    LogRecorder log;
    const FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet, std::wstring(5000, L'd'), L"n"}}};

    EXPECT_EQ(PrintFirstAdapter(), 1);

    EXPECT_TRUE(log.Contains(Information(kPrint, L"Description   : " + std::wstring(495, L'd'))));
}

TEST(PrintAdapterInfo, FiveHundredAdaptersAreWalked) {
    const LogRecorder log;
    std::vector<AddressedAdapter> many(499, AddressedAdapter{AdapterName(2), kWifi});
    many.push_back({AdapterName(1), kEthernet});
    const FakeAdapterAddresses adapters{many};

    EXPECT_EQ(PrintFirstAdapter(), 1);
}

TEST(PrintAdapterInfo, ListLeftUnwrittenHasNoMatch) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    FakeAdapterAddresses adapters;
    adapters.FailNext(ERROR_SUCCESS);
    unsigned char isEthernet = 0;

    NLMUtils::PrintAdapterInfo(L"", &isEthernet);

    EXPECT_EQ(isEthernet, 0);
    EXPECT_THAT(log.From(Level::kInformation), ElementsAre(Success(), NoMatch()));
}

TEST(PrintAdapterInfo, NoMemoryEndsItWithoutACall) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    heap.Refuse(1);
    const FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet}}};

    EXPECT_EQ(PrintFirstAdapter(), kUntouched);

    EXPECT_THAT(adapters.SizesOffered(), IsEmpty());
    EXPECT_THAT(log.From(Level::kTraceOut),
                ElementsAre(NoMemory(), TraceOut(kPrint, L"Ethernet Status = 64")));
}

TEST(PrintAdapterInfo, FailureOtherThanTooLittleMemoryEndsIt) {
    SKIP_UNLESS_IMPORTED(malloc);
    for (const int error :
         {ERROR_NO_DATA, ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_PARAMETER, ERROR_ADDRESS_NOT_ASSOCIATED}) {
        LogRecorder log;
        HeapWatch heap;
        FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet}}};
        adapters.FailNext(static_cast<ULONG>(error));

        EXPECT_EQ(PrintFirstAdapter(), kUntouched);

        EXPECT_EQ(adapters.SizesOffered().size(), 1U);
        EXPECT_THAT(log.From(Level::kTraceOut),
                    ElementsAre(Failed(error), GivenUp(), TraceOut(kPrint, L"Ethernet Status = 64")));
        EXPECT_THAT(heap.Held(), IsEmpty());
    }
}

TEST(PrintAdapterInfo, OneOrTwoReallocationsAreEnough) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet, L"D", L"N"}}};
    adapters.AskNextFor(20000);
    adapters.AskNextFor(30000);

    EXPECT_EQ(PrintFirstAdapter(), 1);

    EXPECT_THAT(adapters.SizesOffered(), ElementsAre(kFirstBytes, 20000, 30000));
    EXPECT_THAT(heap.Asked(), ElementsAre(kFirstBytes, 20000, 30000));
    EXPECT_THAT(heap.Held(), IsEmpty());
    EXPECT_THAT(
        log.From(Level::kInformation),
        ElementsAre(Failed(ERROR_BUFFER_OVERFLOW), MoreMemory(20000), MoreMemory(30000), Success(),
                    Information(kPrint, L"Description   : D"), Information(kPrint, L"Friendly Name : N"),
                    Information(kPrint, L"Interface type: Ethernet")));
}

TEST(PrintAdapterInfo, SuccessOfTheThirdOrFourthPassIsGivenUpAllTheSame) {
    SKIP_UNLESS_IMPORTED(malloc);
    for (const int passes : {3, 4}) {
        LogRecorder log;
        HeapWatch heap;
        FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet}}};
        std::vector<LogLine> expected{Failed(ERROR_BUFFER_OVERFLOW)};
        for (int pass = 1; pass <= passes; ++pass) {
            adapters.AskNextFor(static_cast<ULONG>(20000 + pass));
            expected.push_back(MoreMemory(20000 + pass));
        }
        expected.push_back(TooManyPasses());

        EXPECT_EQ(PrintFirstAdapter(), kUntouched);

        EXPECT_EQ(adapters.SizesOffered().size(), static_cast<std::size_t>(passes) + 1);
        EXPECT_EQ(log.From(Level::kInformation), expected);
        EXPECT_THAT(heap.Held(), IsEmpty());
    }
}

TEST(PrintAdapterInfo, ListThatAlwaysGrowsIsGivenUpAfterFourPasses) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    FakeAdapterAddresses adapters;
    for (ULONG pass = 0; pass < 10; ++pass) {
        adapters.AskNextFor(20000 + pass);
    }

    EXPECT_EQ(PrintFirstAdapter(), kUntouched);

    EXPECT_THAT(adapters.SizesOffered(), ElementsAre(kFirstBytes, 20000, 20001, 20002, 20003));
    EXPECT_THAT(log.At(Level::kError), ElementsAre(TooManyPasses()));
    EXPECT_TRUE(log.Contains(TraceOut(kPrint, L"Ethernet Status = 64")));
    EXPECT_THAT(heap.Held(), IsEmpty());
}

TEST(PrintAdapterInfo, OtherFailureAfterAReallocationEndsIt) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    FakeAdapterAddresses adapters;
    adapters.AskNextFor(20000);
    adapters.FailNext(ERROR_NO_DATA);

    EXPECT_EQ(PrintFirstAdapter(), kUntouched);

    EXPECT_THAT(log.From(Level::kInformation),
                ElementsAre(Failed(ERROR_BUFFER_OVERFLOW), MoreMemory(20000), GivenUp()));
    EXPECT_THAT(heap.Held(), IsEmpty());
}

TEST(PrintAdapterInfo, NoMemoryForOnePassGoesOnWithTheNext) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    heap.Refuse(2);
    FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet}}};
    adapters.AskNextFor(20000);

    EXPECT_EQ(PrintFirstAdapter(), 1);

    EXPECT_THAT(adapters.SizesOffered(), ElementsAre(kFirstBytes, 20000));
    EXPECT_THAT(log.At(Level::kError), ElementsAre(NoMemory()));
    EXPECT_EQ(log.Count(MoreMemory(20000)), 2);
    EXPECT_THAT(heap.Held(), IsEmpty());
}

TEST(PrintAdapterInfo, NoMemoryForAnyPassIsGivenUpAfterFour) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    for (int nth = 2; nth < 10; ++nth) {
        heap.Refuse(nth);
    }
    FakeAdapterAddresses adapters;
    adapters.AskNextFor(20000);

    EXPECT_EQ(PrintFirstAdapter(), kUntouched);

    EXPECT_THAT(adapters.SizesOffered(), ElementsAre(kFirstBytes));
    EXPECT_THAT(log.From(Level::kInformation),
                ElementsAre(Failed(ERROR_BUFFER_OVERFLOW), MoreMemory(20000), NoMemory(), MoreMemory(20000),
                            NoMemory(), MoreMemory(20000), NoMemory(), MoreMemory(20000), NoMemory(),
                            TooManyPasses()));
    EXPECT_THAT(heap.Held(), IsEmpty());
}

TEST(PrintAdapterInfo, SystemThatAsksForNoMemoryDoesNoHarm) {
    SKIP_UNLESS_IMPORTED(malloc);
    const LogRecorder log;
    HeapWatch heap;
    FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet}}};
    adapters.AskNextFor(0);

    EXPECT_EQ(PrintFirstAdapter(), 1);

    EXPECT_THAT(heap.Asked(), ElementsAre(kFirstBytes, sizeof(IP_ADAPTER_ADDRESSES)));
}

TEST(PrintAdapterInfo, ExceptionIsLoggedAndTheMemoryReleased) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    FakeAdapterAddresses adapters;
    adapters.AnswerNext([](IP_ADAPTER_ADDRESSES*, ULONG*) -> ULONG { throw std::runtime_error("driver"); });

    EXPECT_EQ(PrintFirstAdapter(), kUntouched);

    EXPECT_THAT(log.From(Level::kTraceOut), ElementsAre(Error(kPrint, L"Exception in PrintAdapterInfo()"),
                                                        TraceOut(kPrint, L"Ethernet Status = 64")));
    EXPECT_THAT(heap.Held(), IsEmpty());
}

using InterfaceTypeCase = std::pair<DWORD, const wchar_t*>;
class GetInterfaceTypeStringOf : public testing::TestWithParam<InterfaceTypeCase> {};

TEST_P(GetInterfaceTypeStringOf, NamesTheType) {
    LogRecorder log;
    const auto [type, name] = GetParam();

    EXPECT_EQ(NLMUtils::GetInterfaceTypeString(&type), name);

    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kTypeString, L"IFTYPE Value = " +
                                                                  std::to_wstring(static_cast<int>(type))),
                                         TraceOut(kTypeString, std::wstring(L"InterfaceType = ") + name)));
}

INSTANTIATE_TEST_SUITE_P(Types, GetInterfaceTypeStringOf,
                         testing::Values(InterfaceTypeCase{1, L"Other"}, InterfaceTypeCase{6, L"Ethernet"},
                                         InterfaceTypeCase{9, L"Token Ring"}, InterfaceTypeCase{23, L"PPP"},
                                         InterfaceTypeCase{24, L"Software Loopback"},
                                         InterfaceTypeCase{37, L"ATM"},
                                         InterfaceTypeCase{71, L"IEEE 802.11 Wireless"},
                                         InterfaceTypeCase{131, L"Tunnel"},
                                         InterfaceTypeCase{144, L"IEEE 1394 (Firewire)"},
                                         InterfaceTypeCase{0, L"Unrecognized interface type"},
                                         InterfaceTypeCase{7, L"Unrecognized interface type"},
                                         InterfaceTypeCase{243, L"Unrecognized interface type"},
                                         InterfaceTypeCase{0xFFFFFFFF, L"Unrecognized interface type"}));

/// Connection 1 over adapter 1, and a manager that the code under test may use.
class IsEthernetConnectionTest : public testing::Test {
  protected:
    IsEthernetConnectionTest() {
        m_manager.connections = {&m_connection};
        EXPECT_EQ(m_manager.HandOut(m_reference.GetAddressOf()), S_OK);
    }

    bool Ask() { return NLMUtils::IsEthernetConnection(m_reference.Get(), ConnectionGuid(1), &m_isEthernet); }

    /// What the operation itself wrote besides its entry line.
    [[nodiscard]] std::vector<LogLine> OwnLines() const {
        std::vector<LogLine> lines = m_log.Of(kIsEthernet);
        EXPECT_EQ(lines.front(), TraceIn(kIsEthernet));
        lines.erase(lines.begin());
        return lines;
    }
    [[nodiscard]] bool AdapterWasLookedUp() const { return !m_log.Of(kPrint).empty(); }

    LogRecorder m_log;
    FakeConnection m_connection{ConnectionGuid(1), AdapterGuid(1)};
    FakeNetworkListManager m_manager;
    ComPtr<INetworkListManager> m_reference;
    unsigned char m_isEthernet = 0;
};

TEST_F(IsEthernetConnectionTest, ConnectionOverEthernetIsFlagged) {
    const FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet}}};

    EXPECT_TRUE(Ask());

    EXPECT_EQ(m_isEthernet, 1);
    EXPECT_THAT(OwnLines(), ElementsAre(Information(kIsEthernet, L"Matching Adapter Id: " + AdapterText(1)),
                                        TraceOut(kIsEthernet, L"Return Value = 1")));
    EXPECT_EQ(m_connection.References(), 0);
    EXPECT_EQ(m_connection.ReferencesTaken(), 1);
}

TEST_F(IsEthernetConnectionTest, ConnectionOverWifiIsKnownButNotFlagged) {
    const FakeAdapterAddresses adapters{{{AdapterName(1), kWifi}}};

    EXPECT_TRUE(Ask());

    EXPECT_EQ(m_isEthernet, 0);
}

TEST_F(IsEthernetConnectionTest, AdapterThatIsNotListedStillCountsAsKnown) {
    const FakeAdapterAddresses adapters{{{AdapterName(2), kEthernet}}};

    EXPECT_TRUE(Ask());

    EXPECT_EQ(m_isEthernet, 0);
}

TEST_F(IsEthernetConnectionTest, WithoutAManagerNothingIsKnown) {
    m_reference.Reset();

    EXPECT_FALSE(Ask());

    EXPECT_THAT(OwnLines(), ElementsAre(Error(kIsEthernet, L"INetworkListManager is NULL"),
                                        TraceOut(kIsEthernet, L"Return Value = 0")));
    EXPECT_FALSE(AdapterWasLookedUp());
}

TEST_F(IsEthernetConnectionTest, ConnectionThatIsGoneIsNotKnown) {
    m_manager.connections.clear();

    EXPECT_FALSE(Ask());

    EXPECT_THAT(OwnLines(),
                ElementsAre(Error(kIsEthernet, L"GetNetworkConnection Failed with error 0x80070490"),
                            TraceOut(kIsEthernet, L"Return Value = 0")));
    EXPECT_FALSE(AdapterWasLookedUp());
}

TEST_F(IsEthernetConnectionTest, SuccessCodeOtherThanOkIsAFailure) {
    m_manager.connectionResult = S_FALSE;

    EXPECT_FALSE(Ask());

    EXPECT_THAT(OwnLines(),
                ElementsAre(Error(kIsEthernet, L"GetNetworkConnection Failed with error 0x00000001"),
                            TraceOut(kIsEthernet, L"Return Value = 0")));
    EXPECT_EQ(m_connection.References(), 0) << "what came with the success code is given back";
}

TEST_F(IsEthernetConnectionTest, SuccessWithoutAConnectionIsAFailure) {
    m_manager.givesConnection = false;

    EXPECT_FALSE(Ask());

    EXPECT_FALSE(AdapterWasLookedUp());
}

TEST_F(IsEthernetConnectionTest, ConnectionThatVanishesBeforeItsAdapterIsAskedForIsNotKnown) {
    m_connection.adapterIdResult = HRESULT_FROM_WIN32(ERROR_NOT_FOUND);

    EXPECT_FALSE(Ask());

    EXPECT_THAT(OwnLines(), ElementsAre(Error(kIsEthernet, L"GetAdapterId Failed with error 0x80070490"),
                                        TraceOut(kIsEthernet, L"Return Value = 0")));
    EXPECT_EQ(m_connection.References(), 0);
    EXPECT_FALSE(AdapterWasLookedUp());
}

TEST_F(IsEthernetConnectionTest, IdentifierWithoutATextIsNotKnown) {
    const ScopedImport<&::StringFromCLSID> noText{[](auto...) -> HRESULT { return E_OUTOFMEMORY; }};

    EXPECT_FALSE(Ask());

    EXPECT_THAT(OwnLines(), ElementsAre(Error(kIsEthernet, L"StringFromCLSID Failed with error 0x8007000E"),
                                        TraceOut(kIsEthernet, L"Return Value = 0")));
    EXPECT_EQ(m_connection.References(), 0);
    EXPECT_FALSE(AdapterWasLookedUp());
}

TEST_F(IsEthernetConnectionTest, TextIsGivenBack) {
    const FakeAdapterAddresses adapters{{{AdapterName(1), kEthernet}}};
    std::vector<void*> given;
    std::vector<void*> freed;
    const ScopedImport<&::StringFromCLSID> texts{[&](REFCLSID id, LPOLESTR* text) {
        const HRESULT result = texts.Original(id, text);
        given.push_back(*text);
        return result;
    }};
    const ScopedImport<&::CoTaskMemFree> frees{[&](void* memory) {
        freed.push_back(memory);
        frees.Original(memory);
    }};

    EXPECT_TRUE(Ask());

    EXPECT_EQ(given.size(), 1U);
    EXPECT_EQ(freed, given);
}

TEST_F(IsEthernetConnectionTest, ExceptionIsLoggedAndNothingIsKnown) {
    const ScopedImport<&::StringFromCLSID> throws{[](auto...) -> HRESULT { throw DWORD{ERROR_GEN_FAILURE}; }};

    EXPECT_FALSE(Ask());

    EXPECT_THAT(OwnLines(), ElementsAre(Error(kIsEthernet, L"Exception in IsEthernetConnection()"),
                                        TraceOut(kIsEthernet, L"Return Value = 0")));
    EXPECT_EQ(m_connection.References(), 0);
}

}  // namespace
}  // namespace NetworkTests
