#include "network/cable_check.h"

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "logging/log_scope.h"
#include "network/nlm_event_handler.h"
#include "tests/network/network_test.h"
#include "tests/support/skip_unless_imported.h"
#include "tests/support/throw_from_log_line.h"

namespace NetworkTests {
namespace {

constexpr char kInitialise[] = "NLMEventHandler::InitialiseAdapter";
constexpr char kCheck[] = "NLMEventHandler::CheckEthernetConnectionStatus";
constexpr char kCheckEx[] = "NLMEventHandler::CheckEthernetConnectionStatusEx";
constexpr ULONG kOneRecord = 704;
/// What the caller's variables hold before a check, to see whether they were written.
constexpr int kNotWritten = -77;

/// Answer of a check.
struct Outcome {
    int result = kNotWritten;
    int status = kNotWritten;
    int noAddress = kNotWritten;

    friend bool operator==(const Outcome&, const Outcome&) = default;
};
constexpr Outcome kIsIn{1, 1, kNotWritten};
constexpr Outcome kIsOut{1, 0, kNotWritten};
constexpr Outcome kAwaitsAddress{1, 0, 1};
constexpr Outcome kCannotTell{0, kNotWritten, kNotWritten};

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "result " << outcome.result << ", status " << outcome.status << ", no address "
         << outcome.noAddress;
}

Outcome Check() {
    Outcome outcome;
    outcome.result = NLMEventHandler::CheckEthernetConnectionStatusEx(&outcome.status, &outcome.noAddress);
    return outcome;
}

/// One adapter as `GetAdaptersInfo` is to list it.
struct Listed {
    UINT type;
    std::string address;
    std::string description = "Some Adapter";
};
const Listed kWithAddress{kEthernet, "192.168.1.20"};
const Listed kWithoutAddress{kEthernet, "0.0.0.0"};

/// Fills a fixed field without a terminator when the text is as long as the field.
template <std::size_t Size>
void FillField(char (&field)[Size], const std::string& text) {
    std::fill_n(field, Size, '\0');
    std::copy_n(text.begin(), std::min(Size, text.size()), field);
}

/// On a notebook with one Ethernet adapter, which has an address.
class CableCheckTest : public NetworkTest {
  protected:
    CableCheckTest() : NetworkTest({.wlanAdapters = 0, .cables = 0}) { List({kWithAddress}); }

    /// The notebook has exactly these adapters now.
    void List(const std::vector<Listed>& adapters) const {
        m_notebook.Make({.wlanAdapters = 0, .cables = 0});
        for (const Listed& listed : adapters) {
            Adapter& adapter = m_notebook.AddAdapter(listed.type);
            adapter.hasAddress = 1;
            FillField(adapter.address, listed.address);
            FillField(adapter.description, listed.description);
        }
    }
    [[nodiscard]] std::vector<SIZE_T> SizesOffered() const {
        return NetworkTest::SizesOffered(Call::GetAdaptersInfo);
    }
};

using InitialiseAdapterTest = CableCheckTest;

TEST_F(InitialiseAdapterTest, LongerListIsReadIntoAsMuchMemoryAsTheSystemAskedFor) {
    SKIP_UNLESS_IMPORTED(malloc);
    const UncleanHeap heap;
    List({kWithAddress, {kWifi, "10.0.0.2"}, {kGsm, "0.0.0.0"}});

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{ERROR_SUCCESS});

    EXPECT_THAT(SizesOffered(), ElementsAre(kOneRecord, 3 * kOneRecord));
    EXPECT_THAT(heap.Asked(), ElementsAre(kOneRecord, 3 * kOneRecord));
    EXPECT_EQ(HeapBlocks(), 1);
    EXPECT_THAT(Messages(kInitialise),
                ElementsAre(L"GetAdaptersInfo() returns ERROR_BUFFER_OVERFLOW: Re-allocating with "
                            L"new buffer size = 2112",
                            L"GetAdaptersInfo() success: ulOutBufLen = 2112."));
}

TEST_F(InitialiseAdapterTest, FailureOfTheFirstCallDoesNotCount) {
    m_notebook.Fail(Call::GetAdaptersInfo, 1, ERROR_NOT_SUPPORTED);

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{ERROR_SUCCESS});

    EXPECT_EQ(m_notebook.Count(Call::GetAdaptersInfo), 2);
    EXPECT_THAT(Messages(kInitialise), ElementsAre(L"GetAdaptersInfo() success: ulOutBufLen = 704."));
}

TEST_F(InitialiseAdapterTest, FailureOfTheSecondCallIsReturnedAndTheLastErrorLogged) {
    SKIP_UNLESS_IMPORTED(malloc);
    m_notebook.At(Call::GetAdaptersInfo, 2, []() -> DWORD {
        SetLastError(ERROR_ACCESS_DENIED);
        return ERROR_NO_DATA;
    });

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{ERROR_NO_DATA});

    EXPECT_EQ(m_notebook.Count(Call::GetAdaptersInfo), 2);
    EXPECT_THAT(m_log.From(Level::kTraceOut),
                ElementsAre(Error(kInitialise, L"GetAdaptersInfo() failed.Error = 0x00000005"),
                            TraceOut(kInitialise, L"Return = 232")));
    EXPECT_EQ(HeapBlocks(), 1) << "the buffer of the failed call is left in place";
}

TEST_F(InitialiseAdapterTest, ListThatGrowsBetweenTheCallsFailsWithoutAThirdCall) {
    List({kWithAddress, kWithAddress});
    m_notebook.Before(Call::GetAdaptersInfo, 2, [this] {
        m_notebook.AddAdapter(kWifi);
        SetLastError(NO_ERROR);
    });

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{ERROR_BUFFER_OVERFLOW});

    EXPECT_THAT(SizesOffered(), ElementsAre(kOneRecord, 2 * kOneRecord));
    EXPECT_THAT(m_log.At(Level::kError),
                ElementsAre(Error(kInitialise, L"GetAdaptersInfo() failed.Error = 0x00000000")));
}

TEST_F(InitialiseAdapterTest, NoMemoryForOneOfTheBuffersIsAFailure) {
    SKIP_UNLESS_IMPORTED(malloc);
    UncleanHeap heap;
    List({kWithAddress, kWithAddress});
    heap.Refuse(1);
    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{1});
    EXPECT_EQ(m_notebook.Count(Call::GetAdaptersInfo), 0);
    EXPECT_EQ(HeapBlocks(), 0);

    heap.Refuse(2, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{1});
    EXPECT_EQ(m_notebook.Count(Call::GetAdaptersInfo), 1);
    EXPECT_EQ(HeapBlocks(), 0);

    EXPECT_THAT(
        m_log.At(Level::kError),
        ElementsAre(Error(kInitialise, L"Error allocating memory needed to call GetAdaptersinfo\n"),
                    Error(kInitialise,
                          L"Error allocating memory needed to call GetAdaptersinfo.Error = 0x00000008")));
    EXPECT_EQ(m_log.Count(TraceOut(kInitialise, L"Return = 1")), 2);
}

TEST_F(InitialiseAdapterTest, ExceptionIsLoggedAsInformationAndGivesOne) {
    for (const int call : {1, 2}) {
        m_log.Clear();
        m_notebook.ForgetCalls();
        m_notebook.Before(Call::GetAdaptersInfo, call, [] { throw DWORD{ERROR_INVALID_FUNCTION}; });

        EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{1});

        EXPECT_EQ(m_notebook.Count(Call::GetAdaptersInfo), call);
        EXPECT_THAT(m_log.Lines(), ElementsAre(TraceIn(kInitialise),
                                               Information(kInitialise, L"Exception in GetAdaptersInfo()"),
                                               TraceOut(kInitialise, L"Return = 1")));
    }
}

constexpr wchar_t kEthernetMessage[] = L"An Ethernet network interface.";
constexpr wchar_t kUsableMessage[] = L"Ethernet is not VPN and IP is valid";
constexpr wchar_t kVpnMessage[] = L"Ethernet is VPN and IP is valid";
constexpr wchar_t kWifiMessage[] = L"An IEEE 802.11 wireless network interface.";

TEST_F(CableCheckTest, TellsWhetherARealCableIsIn) {
    const std::vector<std::wstring> usable{kEthernetMessage, kUsableMessage};
    const std::vector<std::wstring> notReal{kEthernetMessage, kVpnMessage};
    const std::vector<std::wstring> nothing;
    struct Case {
        const char* name;
        std::vector<Listed> adapters;
        Outcome outcome;
        std::vector<std::wstring> messages;
    };
    const std::vector<Case> cases{
        {"an address", {kWithAddress}, kIsIn, usable},
        {"no address", {kWithoutAddress}, kAwaitsAddress, nothing},
        {"an empty address counts", {{kEthernet, ""}}, kIsIn, usable},
        {"an address that only begins with zeros counts", {{kEthernet, "0.0.0.01"}}, kIsIn, usable},
        {"an address with a blank counts", {{kEthernet, "0.0.0.0 "}}, kIsIn, usable},
        {"a virtual switch", {{kEthernet, "172.16.0.1", "Some Virtual Ethernet Adapter"}}, kIsOut, notReal},
        {"virtual in lower case counts", {{kEthernet, "172.16.0.1", "a virtual adapter"}}, kIsIn, usable},
        {"a VPN", {{kEthernet, "10.8.0.1", "Someone's VPN Adapter"}}, kIsOut, notReal},
        {"VPN inside a word", {{kEthernet, "10.8.0.1", "OpenVPNish"}}, kIsOut, notReal},
        {"VPN in lower case counts", {{kEthernet, "10.8.0.1", "a vpn"}}, kIsIn, usable},
        {"a VPN without address asks to wait", {{kEthernet, "0.0.0.0", "VPN"}}, kAwaitsAddress, nothing},
        {"texts of any bytes", {{kEthernet, "\xFF\x80\x01", "\xE4%s%n\x7F"}}, kIsIn, usable},
        {"Wi-Fi alone", {{kWifi, "192.168.1.30"}}, kIsOut, {kWifiMessage}},
        {"the second Ethernet has the address", {kWithoutAddress, kWithAddress}, {1, 1, 1}, usable},
        {"nothing behind the first usable one is looked at",
         {kWithAddress, kWithoutAddress, {kWifi, "192.168.1.30"}},
         kIsIn,
         usable},
        {"a VPN, then a real one",
         {{kEthernet, "10.8.0.1", "VPN"}, kWithAddress},
         kIsIn,
         {kEthernetMessage, kVpnMessage, kEthernetMessage, kUsableMessage}},
        {"every other type",
         {{kOther, "1.1.1.1"},
          {kWifi, "1.1.1.2"},
          {kWiMax, "1.1.1.3"},
          {kGsm, "1.1.1.4"},
          {kCdma, "1.1.1.5"},
          {kLoopback, "127.0.0.1"},
          {9, "1.1.1.6"},
          {0, "1.1.1.7"},
          {0xFFFFFFFF, "1.1.1.8"}},
         kIsOut,
         {L"Some other type of network interface.", kWifiMessage,
          L"A mobile broadband interface for WiMax devices.",
          L"A mobile broadband interface for GSM - based devices.",
          L"A mobile broadband interface for CDMA-based devices.", L"Unknown type 24", L"Unknown type 9",
          L"Unknown type 0", L"Unknown type -1"}},
        {"texts that fill their fields are read to their ends",
         {{kEthernet, "0.0.0.0000000000", std::string(129, 'x') + "VPN"}},
         kIsOut,
         notReal},
        {"a mark that only what stands behind the field would complete",
         {{kEthernet, "0.0.0.0000000000", std::string(130, 'x') + "VP"}},
         kIsIn,
         usable},
    };
    for (const Case& tested : cases) {
        SCOPED_TRACE(tested.name);
        List(tested.adapters);
        m_log.Clear();

        EXPECT_EQ(Check(), tested.outcome);

        EXPECT_EQ(Messages(kCheck), tested.messages);
    }
}

TEST_F(CableCheckTest, OnlyTheFirstAddressOfAnAdapterCounts) {
    IP_ADDR_STRING second{};
    const ScopedImport<&::GetAdaptersInfo> twoAddresses{
        Rig::kWrapping, [&second](const auto& original, IP_ADAPTER_INFO* list, ULONG* bytes) {
            const DWORD result = original.Original(list, bytes);
            list->IpAddressList.Next = &second;
            return result;
        }};
    FillField(second.IpAddress.String, "0.0.0.0");
    EXPECT_EQ(Check(), kIsIn);

    FillField(second.IpAddress.String, "192.168.1.20");
    List({kWithoutAddress});
    EXPECT_EQ(Check(), kAwaitsAddress);
}

TEST_F(CableCheckTest, LinkOutOfTheListOrBackIntoItEndsIt) {
    List({kWithoutAddress, {kWifi, "10.0.0.2"}});
    std::ptrdiff_t records = 0;
    const ScopedImport<&::GetAdaptersInfo> broken{
        Rig::kWrapping, [&records](const auto& original, IP_ADAPTER_INFO* list, ULONG* bytes) {
            const DWORD result = original.Original(list, bytes);
            if (result == ERROR_SUCCESS) {
                list->Next = list + records;
            }
            return result;
        }};
    // In front of it, the record itself, behind the last, and far away.
    for (const std::ptrdiff_t target : {-1, 0, 2, 1'000'000}) {
        SCOPED_TRACE(target);
        records = target;
        EXPECT_EQ(Check(), kAwaitsAddress);
    }
}

TEST_F(CableCheckTest, ListThatFitsIsReadTwiceAllTheSameAndEachStepTraced) {
    EXPECT_EQ(Check(), kIsIn);

    EXPECT_THAT(SizesOffered(), ElementsAre(kOneRecord, kOneRecord));
    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kCheckEx), TraceIn(kCheck), TraceIn(kInitialise),
                            Information(kInitialise, L"GetAdaptersInfo() success: ulOutBufLen = 704."),
                            TraceOut(kInitialise, L"Return = 0"), Information(kCheck, kEthernetMessage),
                            Information(kCheck, kUsableMessage), TraceOut(kCheck, L"Ethernet Status = 1"),
                            TraceOut(kCheckEx, L"Return Value = 1")));
}

TEST_F(CableCheckTest, NotebookWithoutAdaptersFailsWithoutWritingStatus) {
    List({});

    EXPECT_EQ(Check(), kCannotTell);

    ExpectError(kCheck, L"InitialiseAdapter failed", L"Ethernet Status = 0");
    EXPECT_TRUE(m_log.Contains(TraceOut(kCheckEx, L"Return Value = 0")));
}

TEST_F(CableCheckTest, ListLeftUnwrittenReadsAsNoEthernetWhateverMemoryTheSystemAskedFor) {
    SKIP_UNLESS_IMPORTED(malloc);
    UncleanHeap heap;
    m_notebook.GiveNothing(Call::GetAdaptersInfo);
    EXPECT_EQ(Check(), kIsOut);
    ULONG asksFor = 0;
    const ScopedImport<&::GetAdaptersInfo> odd{
        Rig::kWrapping, [&asksFor](const auto& original, IP_ADAPTER_INFO* list, ULONG* bytes) -> DWORD {
            if (original.Calls() % 2 == 0) {
                return original.Original(list, bytes);
            }
            *bytes = asksFor;
            return ERROR_BUFFER_OVERFLOW;
        }};

    EXPECT_EQ(Check(), kIsOut);
    EXPECT_THAT(heap.Asked(), Each(testing::Ge(kOneRecord)));

    asksFor = 0xFFFFFFFF;
    heap.Refuse(2);
    EXPECT_EQ(Check(), kCannotTell);
    EXPECT_EQ(heap.Asked().back(), asksFor);
    EXPECT_TRUE(m_log.Contains(Error(kCheck, L"InitialiseAdapter failed")));
}

TEST_F(CableCheckTest, BufferThatVanishedIsReported) {
    // The handler's end gives the buffer back, here between the read and the walk.
    m_notebook.At(Call::GetAdaptersInfo, 2, []() -> DWORD {
        ReleaseAdapterList();
        return ERROR_SUCCESS;
    });
    int status = kNotWritten;

    EXPECT_EQ(NLMEventHandler::CheckEthernetConnectionStatus(&status, nullptr), 0);

    EXPECT_EQ(status, kNotWritten);
    ExpectError(kCheck, L"PIP_ADAPTER_INFO is NULL!!", L"Ethernet Status = 0");
}

TEST_F(CableCheckTest, ExceptionIsLoggedAndLeavesStatusAlone) {
    int status = kNotWritten;
    // Its own entry line, three of the read, then the first one of the walk.
    const Rig::ThrowFromLogLine throwing{5, std::runtime_error("no more log")};

    EXPECT_EQ(NLMEventHandler::CheckEthernetConnectionStatus(&status, nullptr), 0);

    EXPECT_EQ(status, kNotWritten);
    ExpectError(kCheck, L"Exception in CheckEthernetConnectionStatus()", L"Ethernet Status = 0");
}

#if defined(__GNUC__)
TEST_F(CableCheckTest, LockThatCannotBeTakenIsReportedWithItsCode) {
    Outcome second;
    int refusedWaits = 0;
    // While the first caller holds the lock, the second one has to wait for it.
    m_notebook.Before(Call::GetAdaptersInfo, 1, [&] {
        std::thread([&] {
            const NoWaits noWaits;
            second = Check();
            refusedWaits = noWaits.Calls();
        }).join();
    });

    EXPECT_EQ(Check(), kIsIn);

    EXPECT_EQ(refusedWaits, 1);
    EXPECT_EQ(second, kCannotTell);
    EXPECT_THAT(m_log.At(Level::kError),
                ElementsAre(Error(kCheckEx, L"Exception in CheckEthernetConnectionStatusEx() : Code = " +
                                                std::to_wstring(EINVAL))));
    EXPECT_EQ(m_log.Count(TraceOut(kCheckEx, L"Return Value = 0")), 1);
    EXPECT_EQ(m_log.Count(TraceIn(kCheck)), 1) << "the one without the lock does not look at the adapters";
}
#endif

TEST_F(CableCheckTest, ExceptionOutOfTheCheckIsReportedAndTheLockFree) {
    {
        const Rig::ThrowFromLogLine throwing{
            2, std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur))};
        EXPECT_EQ(Check(), kCannotTell);
    }
    {
        const Rig::ThrowFromLogLine throwing{2, std::logic_error("no more log")};
        EXPECT_EQ(Check(), kCannotTell);
    }

    EXPECT_THAT(m_log.Lines(),
                ElementsAre(TraceIn(kCheckEx),
                            Error(kCheckEx, L"Exception in CheckEthernetConnectionStatusEx() : Code = " +
                                                std::to_wstring(EDEADLK)),
                            TraceOut(kCheckEx, L"Return Value = 0"), TraceIn(kCheckEx),
                            Error(kCheckEx, L"Exception in CheckEthernetConnectionStatusEx()"),
                            TraceOut(kCheckEx, L"Return Value = 0")));
    EXPECT_EQ(Check(), kIsIn);
}

// --- The question as the rest of the service asks it ----------------------------------------------

TEST_F(CableCheckTest, AnswerIsOneForTheWholeServiceAndRemembersWhoAwaitsAnAddress) {
    bool awaitsAddress = false;
    EXPECT_EQ(NLMUtils::IsCableIn(&awaitsAddress), true);
    EXPECT_FALSE(awaitsAddress);
    List({});
    EXPECT_EQ(NLMUtils::IsCableIn(&awaitsAddress), std::nullopt);
    EXPECT_FALSE(awaitsAddress);
    List({kWithoutAddress});
    EXPECT_EQ(NLMUtils::IsCableIn(), false);
    EXPECT_EQ(NLMUtils::IsCableIn(&awaitsAddress), false);
    EXPECT_TRUE(awaitsAddress);
    List({kWithAddress});
    EXPECT_EQ(NLMUtils::IsCableIn(&awaitsAddress), true);
    EXPECT_TRUE(awaitsAddress) << "what was seen once is kept";
}

TEST_F(CableCheckTest, AdaptersThatCannotBeReadAreAnErrorOfWhoeverAsks) {
    const LogScope asker("Some::Operation");
    EXPECT_EQ(NLMUtils::IsCableIn(asker), true);
    EXPECT_THAT(Inside("Some::Operation"), IsEmpty());
    List({});

    EXPECT_EQ(NLMUtils::IsCableIn(asker), std::nullopt);
    EXPECT_EQ(NLMUtils::IsCableIn(asker, L"in other words"), std::nullopt);

    EXPECT_THAT(Inside("Some::Operation"),
                ElementsAre(Error("Some::Operation", L"CheckEthernetConnectionStatusEx failed"),
                            Error("Some::Operation", L"in other words")));
}

// --- The buffer of the list -----------------------------------------------------------------------

TEST_F(CableCheckTest, EachReadReplacesTheBufferOfTheOneBeforeWhichTheHandlersEndGivesBack) {
    SKIP_UNLESS_IMPORTED(malloc);
    List({kWithAddress, kWithAddress});
    static_cast<void>(Check());
    List({kWithAddress});
    static_cast<void>(Check());
    EXPECT_EQ(HeapBlocks(), 1);
    m_log.Clear();
    const Rig::ScopedWatch<&::HeapFree> frees;

    ReleaseAdapterList();

    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_EQ(frees.Calls(), 1);
    EXPECT_THAT(m_log.Lines(), ElementsAre(TraceIn("NLMEventHandler::NLMEventHandler"),
                                           TraceOut("NLMEventHandler::NLMEventHandler"),
                                           TraceIn("NLMEventHandler::~NLMEventHandler"),
                                           TraceOut("NLMEventHandler::~NLMEventHandler")));
    ReleaseAdapterList();
    EXPECT_EQ(frees.Calls(), 1) << "there was no buffer any more";
    EXPECT_EQ(Check(), kIsIn) << "the next check makes a new one";
}

TEST_F(CableCheckTest, HandlersEndWaitsForACheckThatIsUnderWay) {
    SKIP_UNLESS_IMPORTED(malloc);
    std::thread handlersEnd;
    // In the middle of the second read, with the buffer in the system's hands.
    m_notebook.Before(Call::GetAdaptersInfo, 2, [&] {
        handlersEnd = std::thread([] { ReleaseAdapterList(); });
        EXPECT_TRUE(m_log.WaitFor(TraceIn("NLMEventHandler::~NLMEventHandler")));
        Rig::Real<&::Sleep>(DWORD{20});
        EXPECT_EQ(HeapBlocks(), 1);
    });

    EXPECT_EQ(Check(), kIsIn) << "the list was there to be walked";
    handlersEnd.join();

    EXPECT_EQ(HeapBlocks(), 0);
}

}  // namespace
}  // namespace NetworkTests
