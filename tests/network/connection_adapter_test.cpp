#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include "network/connection_adapter.h"

#include <algorithm>
#include <cwctype>
#include <functional>
#include <map>
#include <stdexcept>
#include <utility>

#include "tests/network/network_test.h"
#include "tests/support/skip_unless_imported.h"

namespace NetworkTests {
namespace {

constexpr char kIsEthernet[] = "NLMUtils::IsEthernetConnection";
constexpr char kPrint[] = "NLMUtils::PrintAdapterInfo";
constexpr char kTypeString[] = "NLMUtils::GetInterfaceTypeString";
constexpr SIZE_T kFirstBytes = 15000;
/// What the flag holds before a call, to see whether it was written.
constexpr unsigned char kUntouched = 0x40;

const LogLine kNoMemory = Error(kPrint, L"Memory allocation failed for IP_ADAPTER_ADDRESSES struct");
const LogLine kSuccess = Information(kPrint, L"Memory allocation success for IP_ADAPTER_ADDRESSES struct");
const LogLine kGivenUp = Error(kPrint, L"ERROR with GetAdaptersAddresses");
const LogLine kTooManyPasses = Error(kPrint, L"Memory allocation retry limit exceeded ");
const LogLine kNoMatch = Warning(kPrint, L"Could not find matching adapter");
LogLine Failed(int error) {
    return Information(kPrint, L"GetAdaptersAddresses failed with an Error code : " + std::to_wstring(error));
}
LogLine MoreMemory(SIZE_T bytes) {
    return Information(kPrint,
                       L"The buffer size is not enough,trying to allocate more memory...Required Memory is " +
                           std::to_wstring(bytes) + L" Bytes");
}

/// On a notebook with Wi-Fi and a cable that is in.
class ConnectionAdapterTest : public NetworkTest {
  protected:
    ConnectionAdapterTest() : NetworkTest({}) { m_notebook.PlugCable(); }

    /// The flag after an adapter was looked for.
    static unsigned char Print(const std::wstring& adapterId) {
        unsigned char isEthernet = kUntouched;
        NLMUtils::PrintAdapterInfo(adapterId, &isEthernet);
        return isEthernet;
    }
    [[nodiscard]] unsigned char PrintCable() const { return Print(CableId()); }

    [[nodiscard]] std::wstring CableId() const { return GuidText(m_notebook.Cable().id); }
    /// Adds to the list of adapters, by default as many as make it longer than is reckoned with at first.
    Adapter& AddAdapters(int count = 40) const {
        for (int i = 1; i < count; ++i) {
            m_notebook.AddAdapter(kLoopback);
        }
        return m_notebook.AddAdapter(kEthernet);
    }
    /// What the operation wrote up to the adapter that it found.
    [[nodiscard]] std::vector<LogLine> Steps() const {
        std::vector<LogLine> lines = Inside(kPrint);
        const auto found = std::ranges::find_if(
            lines, [](const LogLine& line) { return line.message.starts_with(L"Description"); });
        lines.erase(found, lines.end());
        return lines;
    }
    [[nodiscard]] std::vector<SIZE_T> SizesOffered() const {
        return NetworkTest::SizesOffered(Call::GetAdaptersAddresses);
    }
};

using PrintAdapterInfoTest = ConnectionAdapterTest;

TEST_F(PrintAdapterInfoTest, EthernetAdapterIsLoggedAndFlagged) {
    SKIP_UNLESS_IMPORTED(malloc);
    const UncleanHeap heap;

    EXPECT_EQ(PrintCable(), 1);

    EXPECT_THAT(m_notebook.Calls(), ElementsAre("GetAdaptersAddresses family 0, flags 0x10, 15000 bytes"));
    EXPECT_THAT(heap.Asked(), ElementsAre(kFirstBytes));
    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kPrint, L"GUID Value = " + CableId()), kSuccess,
                            Information(kPrint, L"Description   : Brook Gigabit Ethernet Controller 1"),
                            Information(kPrint, L"Friendly Name : Ethernet 1"),
                            TraceIn(kTypeString, L"IFTYPE Value = 6"),
                            TraceOut(kTypeString, L"InterfaceType = Ethernet"),
                            Information(kPrint, L"Interface type: Ethernet"),
                            TraceOut(kPrint, L"Ethernet Status = 1")));
}

TEST_F(PrintAdapterInfoTest, OtherAdapterIsLoggedAndLeavesTheFlag) {
    const std::wstring wifi = GuidText(m_notebook.Wlan().id);

    EXPECT_EQ(Print(wifi), kUntouched);

    EXPECT_THAT(m_log.Of(kPrint),
                ElementsAre(TraceIn(kPrint, L"GUID Value = " + wifi), kSuccess,
                            Information(kPrint, L"Description   : Brook Wireless Adapter 1"),
                            Information(kPrint, L"Friendly Name : Wi-Fi 1"),
                            Information(kPrint, L"Interface type: IEEE 802.11 Wireless"),
                            TraceOut(kPrint, L"Ethernet Status = 64")));
}

TEST_F(PrintAdapterInfoTest, OnlyTheExactIdentifierMatches) {
    std::wstring lowerCase = CableId();
    std::ranges::transform(lowerCase, lowerCase.begin(), &towlower);
    ASSERT_NE(lowerCase, CableId());
    for (const std::wstring& id : {lowerCase, CableId() + L"x", CableId().substr(0, CableId().size() - 1),
                                   std::wstring(), GuidText(m_notebook.Cable().connectionId)}) {
        m_log.Clear();

        EXPECT_EQ(Print(id), kUntouched);

        EXPECT_THAT(m_log.From(Level::kInformation), ElementsAre(kSuccess, kNoMatch));
    }
}

TEST_F(PrintAdapterInfoTest, WalkGoesOnBehindTheFirstMatch) {
    m_notebook.Devices().adapters[1].id = m_notebook.Cable().id;
    m_notebook.Cable().type = kLoopback;
    Adapter& third = AddAdapters(2);
    third.id = m_notebook.Cable().id;

    EXPECT_EQ(PrintCable(), 1);

    EXPECT_THAT(Messages(kPrint),
                ElementsAre(kSuccess.message, L"Description   : Brook Gigabit Ethernet Controller 1",
                            L"Friendly Name : Ethernet 1", L"Interface type: Software Loopback",
                            L"Description   : Brook Wireless Adapter 1", L"Friendly Name : Wi-Fi 1",
                            L"Interface type: IEEE 802.11 Wireless", L"Description   : Brook Adapter 4",
                            L"Friendly Name : Adapter 4", L"Interface type: Ethernet"));
}

TEST_F(PrintAdapterInfoTest, LinkOutOfTheListOrBackIntoItEndsIt) {
    for (const std::ptrdiff_t bytes : {std::ptrdiff_t{0}, std::ptrdiff_t{-8}, std::ptrdiff_t{1} << 30}) {
        SCOPED_TRACE(bytes);
        const ScopedImport<&::GetAdaptersAddresses> broken{
            Rig::kWrapping, [bytes](const auto& original, ULONG family, ULONG flags, void* reserved,
                                    IP_ADAPTER_ADDRESSES* list, ULONG* size) {
                const ULONG result = original.Original(family, flags, reserved, list, size);
                list->Next =
                    reinterpret_cast<IP_ADAPTER_ADDRESSES*>(reinterpret_cast<std::byte*>(list) + bytes);
                return result;
            }};
        EXPECT_EQ(Print(L"none of them"), kUntouched);
        EXPECT_EQ(Inside(kPrint).back(), kNoMatch);
    }
}

TEST_F(PrintAdapterInfoTest, OddTextsDoNoHarm) {
    std::string name(38, '\xFF');
    std::wstring text = L"%s%n" + std::wstring(5000, L'd');
    bool hasTexts = true;
    const ScopedImport<&::GetAdaptersAddresses> odd{
        Rig::kWrapping, [&](const auto& original, ULONG family, ULONG flags, void* reserved,
                            IP_ADAPTER_ADDRESSES* list, ULONG* bytes) {
            const ULONG result = original.Original(family, flags, reserved, list, bytes);
            list->Next->AdapterName = hasTexts ? name.data() : nullptr;
            list->Description = list->FriendlyName = hasTexts ? text.data() : nullptr;
            return result;
        }};

    EXPECT_EQ(PrintCable(), 1);
    EXPECT_TRUE(m_log.Contains(Information(kPrint, L"Description   : %s%n" + std::wstring(491, L'd'))));

    hasTexts = false;
    EXPECT_EQ(PrintCable(), 1);
    EXPECT_TRUE(m_log.Contains(Information(kPrint, L"Description   : ")));
    EXPECT_TRUE(m_log.Contains(Information(kPrint, L"Friendly Name : ")));
}

TEST_F(PrintAdapterInfoTest, ListThatGrowsIsReadIntoAsMuchMemoryAsTheSystemAskedFor) {
    SKIP_UNLESS_IMPORTED(malloc);
    const UncleanHeap heap;
    AddAdapters();
    m_notebook.Before(Call::GetAdaptersAddresses, 2, [this] { AddAdapters(); });

    EXPECT_EQ(PrintCable(), 1);

    ASSERT_EQ(heap.Asked().size(), 3U);
    EXPECT_EQ(SizesOffered(), heap.Asked());
    EXPECT_THAT(Steps(), ElementsAre(Failed(ERROR_BUFFER_OVERFLOW), MoreMemory(heap.Asked()[1]),
                                     MoreMemory(heap.Asked()[2]), kSuccess));
}

/// How the list is read.
struct Reading {
    const char* name;
    std::vector<int> answers;  ///< behind the last one comes the list
    std::vector<LogLine> steps;
    int calls;
};

class ReadingTest : public ConnectionAdapterTest {
  protected:
    void Expect(const Reading& reading) {
        SCOPED_TRACE(reading.name);
        m_log.Clear();
        m_notebook.ForgetCalls();
        int call = 0;
        for (const int answer : reading.answers) {
            m_notebook.Fail(Call::GetAdaptersAddresses, ++call, answer);
        }
        const bool isFound = reading.steps.back() == kSuccess;

        EXPECT_EQ(PrintCable(), isFound ? 1 : kUntouched);

        EXPECT_EQ(Steps(), reading.steps);
        EXPECT_EQ(m_log.Of(kPrint).back(),
                  TraceOut(kPrint, isFound ? L"Ethernet Status = 1" : L"Ethernet Status = 64"));
        EXPECT_EQ(m_notebook.Count(Call::GetAdaptersAddresses), reading.calls);
        EXPECT_EQ(HeapBlocks(), 0);
    }

    static constexpr int kTooLong = ERROR_BUFFER_OVERFLOW;
    const LogLine overflow = Failed(kTooLong);
    const LogLine more = MoreMemory(kFirstBytes);
};

TEST_F(ReadingTest, FailureEndsItAndAListThatDoesNotFitIsReadInFewerThanThreePassesMore) {
    for (const int error : {ERROR_NO_DATA, ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_PARAMETER}) {
        Expect({"a failure of another kind", {error}, {Failed(error), kGivenUp}, 1});
    }
    Expect({"such a failure in a pass", {kTooLong, ERROR_NO_DATA}, {overflow, more, kGivenUp}, 2});
    Expect({"one pass", {kTooLong}, {overflow, more, kSuccess}, 2});
    Expect({"two passes", {kTooLong, kTooLong}, {overflow, more, more, kSuccess}, 3});
    Expect({"a third one, which is one too many even where it succeeds",
            {kTooLong, kTooLong, kTooLong},
            {overflow, more, more, more, kTooManyPasses},
            4});
    Expect({"four passes, and no fifth",
            std::vector<int>(5, kTooLong),
            {overflow, more, more, more, more, kTooManyPasses},
            5});
}

TEST_F(ReadingTest, PassWithoutMemoryCountsLikeAnyOther) {
    SKIP_UNLESS_IMPORTED(malloc);
    UncleanHeap heap;
    heap.Refuse(1);
    Expect({"no memory at first", {}, {kNoMemory}, 0});
    heap.Refuse(2);
    Expect({"then for one pass", {kTooLong}, {overflow, more, kNoMemory, more, kSuccess}, 2});
    for (int nth = 2; nth < 10; ++nth) {
        heap.Refuse(nth);
    }
    Expect({"then for all passes",
            {kTooLong},
            {overflow, more, kNoMemory, more, kNoMemory, more, kNoMemory, more, kNoMemory, kTooManyPasses},
            1});
}

TEST_F(PrintAdapterInfoTest, ListLeftUnwrittenHasNoMatchWhateverMemoryTheSystemAskedFor) {
    SKIP_UNLESS_IMPORTED(malloc);
    const UncleanHeap heap;
    m_notebook.GiveNothing(Call::GetAdaptersAddresses);
    EXPECT_EQ(Print(L""), kUntouched);
    EXPECT_THAT(Inside(kPrint), ElementsAre(kSuccess, kNoMatch));

    const ScopedImport<&::GetAdaptersAddresses> odd{
        Rig::kWrapping,
        [](const auto& original, ULONG family, ULONG flags, void* reserved, IP_ADAPTER_ADDRESSES* list,
           ULONG* bytes) -> ULONG {
            if (original.Calls() > 1) {
                return original.Original(family, flags, reserved, list, bytes);
            }
            *bytes = 0;
            return ERROR_BUFFER_OVERFLOW;
        }};
    EXPECT_EQ(Print(L""), kUntouched);
    EXPECT_THAT(heap.Asked(), ElementsAre(kFirstBytes, kFirstBytes, sizeof(IP_ADAPTER_ADDRESSES)));
    EXPECT_EQ(Inside(kPrint).back(), kNoMatch);
}

TEST_F(PrintAdapterInfoTest, ExceptionIsLoggedAndTheMemoryReleased) {
    m_notebook.Before(Call::GetAdaptersAddresses, 1, [] { throw std::runtime_error("driver"); });

    EXPECT_EQ(PrintCable(), kUntouched);

    ExpectError(kPrint, L"Exception in PrintAdapterInfo()", L"Ethernet Status = 64");
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(ConnectionAdapterTest, InterfaceTypesHaveNames) {
    constexpr wchar_t kUnknown[] = L"Unrecognized interface type";
    const std::map<DWORD, std::wstring> names{{1, L"Other"},
                                              {6, L"Ethernet"},
                                              {9, L"Token Ring"},
                                              {23, L"PPP"},
                                              {24, L"Software Loopback"},
                                              {37, L"ATM"},
                                              {71, L"IEEE 802.11 Wireless"},
                                              {131, L"Tunnel"},
                                              {144, L"IEEE 1394 (Firewire)"},
                                              {0, kUnknown},
                                              {7, kUnknown},
                                              {243, kUnknown},
                                              {0xFFFFFFFF, kUnknown}};
    for (const auto& [type, name] : names) {
        m_log.Clear();

        EXPECT_EQ(NLMUtils::GetInterfaceTypeString(&type), name);

        const std::wstring number = std::to_wstring(static_cast<int>(type));
        EXPECT_THAT(m_log.Lines(), ElementsAre(TraceIn(kTypeString, L"IFTYPE Value = " + number),
                                               TraceOut(kTypeString, L"InterfaceType = " + name)));
    }
}

/// Asks about connections, with a manager that the code under test may use.
class IsEthernetConnectionTest : public ConnectionAdapterTest {
  protected:
    bool Ask(const Adapter& adapter) {
        return NLMUtils::IsEthernetConnection(m_manager.Get(), adapter.connectionId, &m_isEthernet);
    }

    ComPtr<INetworkListManager> m_manager = NetworkListManager();
    unsigned char m_isEthernet = 0;
};

TEST_F(IsEthernetConnectionTest, ConnectionOverEthernetIsFlagged) {
    EXPECT_TRUE(Ask(m_notebook.Cable()));

    EXPECT_EQ(m_isEthernet, 1);
    EXPECT_THAT(
        m_log.Of(kIsEthernet),
        ElementsAre(TraceIn(kIsEthernet), Information(kIsEthernet, L"Matching Adapter Id: " + CableId()),
                    TraceOut(kIsEthernet, L"Return Value = 1")));
    EXPECT_EQ(References(), 1) << "the test's own";
}

TEST_F(IsEthernetConnectionTest, ConnectionOverWifiOrAnUnlistedAdapterIsKnownButNotFlagged) {
    m_notebook.Act(&::Notebook::ConnectWifi, 0U);
    EXPECT_TRUE(Ask(m_notebook.Devices().adapters[1]));
    m_notebook.Fail(Call::GetAdaptersAddresses, 1, ERROR_NO_DATA);
    EXPECT_TRUE(Ask(m_notebook.Cable()));
    EXPECT_EQ(m_isEthernet, 0);
}

TEST_F(IsEthernetConnectionTest, WhatCannotBeLookedUpIsNotKnown) {
    const auto fail = [this](Call call, HRESULT result) {
        return [this, call, result] { m_notebook.Fail(call, 1, result); };
    };
    const std::vector<std::pair<std::function<void()>, std::wstring>> reasons{
        {fail(Call::NetworkListManagerGetNetworkConnection, S_FALSE),  // with the connection
         L"GetNetworkConnection Failed with error 0x00000001"},
        {fail(Call::NetworkListManagerGetNetworkConnection, S_OK),  // without one
         L"GetNetworkConnection Failed with error 0x00000000"},
        {fail(Call::NetworkConnectionGetAdapterId, HRESULT_FROM_WIN32(ERROR_NOT_FOUND)),
         L"GetAdapterId Failed with error 0x80070490"},
        {[this] {
             m_notebook.Before(Call::NetworkConnectionGetAdapterId, 1,
                               [] { throw DWORD{ERROR_GEN_FAILURE}; });
         },
         L"Exception in IsEthernetConnection()"},
        {[this] { m_notebook.PullCable(); }, L"GetNetworkConnection Failed with error 0x80070490"},
        {[this] { m_manager.Reset(); }, L"INetworkListManager is NULL"}};
    for (const auto& [arrange, reason] : reasons) {
        arrange();
        m_log.Clear();

        EXPECT_FALSE(Ask(m_notebook.Cable()));

        ExpectError(kIsEthernet, reason, L"Return Value = 0");
        EXPECT_THAT(m_log.Of(kPrint), IsEmpty());
        EXPECT_EQ(m_isEthernet, 0);
        EXPECT_EQ(References(), m_manager != nullptr ? 1 : 0);
    }
}

TEST_F(IsEthernetConnectionTest, IdentifierWithoutATextIsNotKnown) {
    const ScopedImport<&::StringFromCLSID> noText{[](auto...) -> HRESULT { return E_OUTOFMEMORY; }};

    EXPECT_FALSE(Ask(m_notebook.Cable()));

    ExpectError(kIsEthernet, L"StringFromCLSID Failed with error 0x8007000E", L"Return Value = 0");
    EXPECT_THAT(m_log.Of(kPrint), IsEmpty());
}

}  // namespace
}  // namespace NetworkTests
