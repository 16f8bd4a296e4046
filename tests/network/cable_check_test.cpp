#include "tests/network/fake_adapters.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <ostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "network/nlm_event_handler.h"
#include "tests/support/log_recorder.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/skip_unless_imported.h"
#include "tests/support/test_clock.h"
#include "tests/support/throw_from_log_line.h"

namespace NetworkTests {
namespace {

namespace Level = Orva::Shared::Level;
using namespace Rig::Lines;
using Rig::LogLine;
using Rig::LogRecorder;
using Rig::ScopedImport;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char kInitialise[] = "NLMEventHandler::InitialiseAdapter";
constexpr char kCheck[] = "NLMEventHandler::CheckEthernetConnectionStatus";
constexpr char kCheckEx[] = "NLMEventHandler::CheckEthernetConnectionStatusEx";
constexpr ULONG kOneRecord = 704;
/// What the caller's variables hold before a check, to see whether they were written.
constexpr int kUntouched = -77;

/// Answer of a check.
struct Outcome {
    int result = kUntouched;
    int status = kUntouched;
    int noAddress = kUntouched;

    friend bool operator==(const Outcome&, const Outcome&) = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "result " << outcome.result << ", status " << outcome.status << ", no address "
         << outcome.noAddress;
}

Outcome Check() {
    Outcome outcome;
    outcome.result = NLMEventHandler::CheckEthernetConnectionStatusEx(&outcome.status, &outcome.noAddress);
    return outcome;
}

/// The lines that the walk over the list wrote.
std::vector<std::wstring> WalkMessages(const LogRecorder& log) {
    std::vector<std::wstring> messages;
    for (const LogLine& line : log.Of(kCheck)) {
        if (line.level >= Level::kVerbose) {
            EXPECT_EQ(line.level, Level::kInformation) << testing::PrintToString(line.message);
            messages.push_back(line.message);
        }
    }
    return messages;
}

TEST(InitialiseAdapter, ListThatFitsIsReadTwiceAllTheSame) {
    LogRecorder log;
    const FakeAdapterList adapters{{EthernetWithAddress()}};

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{ERROR_SUCCESS});

    EXPECT_THAT(adapters.SizesOffered(), ElementsAre(kOneRecord, kOneRecord));
    EXPECT_THAT(log.Lines(),
                ElementsAre(TraceIn(kInitialise),
                            Information(kInitialise, L"GetAdaptersInfo() success: ulOutBufLen = 704."),
                            TraceOut(kInitialise, L"Return = 0")));
}

TEST(InitialiseAdapter, LongerListIsReadIntoAsMuchMemoryAsTheSystemAskedFor) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    const FakeAdapterList adapters{{EthernetWithAddress(), {kWifi, "10.0.0.2"}, {kGsm, "0.0.0.0"}}};

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{ERROR_SUCCESS});

    EXPECT_THAT(adapters.SizesOffered(), ElementsAre(kOneRecord, 3 * kOneRecord));
    EXPECT_THAT(heap.Asked(), ElementsAre(kOneRecord, 3 * kOneRecord));
    EXPECT_THAT(heap.Held(), ElementsAre(3 * kOneRecord));
    EXPECT_THAT(
        log.From(Level::kInformation),
        ElementsAre(Information(kInitialise,
                                L"GetAdaptersInfo() returns ERROR_BUFFER_OVERFLOW: Re-allocating with "
                                L"new buffer size = 2112"),
                    Information(kInitialise, L"GetAdaptersInfo() success: ulOutBufLen = 2112.")));
}

TEST(InitialiseAdapter, FailureOfTheFirstCallDoesNotCount) {
    LogRecorder log;
    FakeAdapterList adapters{{EthernetWithAddress()}};
    adapters.FailNext(ERROR_NOT_SUPPORTED);

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{ERROR_SUCCESS});

    EXPECT_EQ(adapters.Calls(), 2);
    EXPECT_THAT(log.At(Level::kError), IsEmpty());
}

TEST(InitialiseAdapter, FailureOfTheSecondCallIsReturnedAndTheLastErrorLogged) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    FakeAdapterList adapters;
    adapters.FailNext(ERROR_SUCCESS);
    adapters.FailNext(ERROR_NO_DATA, ERROR_ACCESS_DENIED);

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{ERROR_NO_DATA});

    EXPECT_EQ(adapters.Calls(), 2);
    EXPECT_THAT(log.From(Level::kTraceOut),
                ElementsAre(Error(kInitialise, L"GetAdaptersInfo() failed.Error = 0x00000005"),
                            TraceOut(kInitialise, L"Return = 232")));
    EXPECT_THAT(heap.Held(), ElementsAre(kOneRecord)) << "the buffer of the failed call is left in place";
}

TEST(InitialiseAdapter, ListThatGrowsBetweenTheCallsFailsWithoutAThirdCall) {
    LogRecorder log;
    FakeAdapterList adapters;
    const auto asksFor = [](ULONG records) {
        return [records](IP_ADAPTER_INFO*, ULONG* bytes) -> DWORD {
            *bytes = records * kOneRecord;
            SetLastError(NO_ERROR);
            return ERROR_BUFFER_OVERFLOW;
        };
    };
    adapters.AnswerNext(asksFor(2));
    adapters.AnswerNext(asksFor(3));

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{ERROR_BUFFER_OVERFLOW});

    EXPECT_EQ(adapters.Calls(), 2);
    EXPECT_THAT(log.At(Level::kError),
                ElementsAre(Error(kInitialise, L"GetAdaptersInfo() failed.Error = 0x00000000")));
}

TEST(InitialiseAdapter, NoMemoryForTheFirstBufferFailsWithoutACall) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    const FakeAdapterList adapters{{EthernetWithAddress()}};
    heap.Refuse(1);

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{1});

    EXPECT_EQ(adapters.Calls(), 0);
    EXPECT_THAT(heap.Held(), IsEmpty());
    EXPECT_THAT(log.Lines(),
                ElementsAre(TraceIn(kInitialise),
                            Error(kInitialise, L"Error allocating memory needed to call GetAdaptersinfo\n"),
                            TraceOut(kInitialise, L"Return = 1")));
}

TEST(InitialiseAdapter, NoMemoryForTheLargerBufferFailsWithTheLastError) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    const FakeAdapterList adapters{{EthernetWithAddress(), EthernetWithAddress()}};
    heap.Refuse(2, ERROR_NOT_ENOUGH_MEMORY);

    EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{1});

    EXPECT_EQ(adapters.Calls(), 1);
    EXPECT_THAT(heap.Held(), IsEmpty());
    EXPECT_THAT(
        log.At(Level::kError),
        ElementsAre(Error(kInitialise,
                          L"Error allocating memory needed to call GetAdaptersinfo.Error = 0x00000008")));
    EXPECT_TRUE(log.Contains(TraceOut(kInitialise, L"Return = 1")));
}

TEST(InitialiseAdapter, ExceptionIsLoggedAsInformationAndGivesOne) {
    for (const int call : {1, 2}) {
        LogRecorder log;
        FakeAdapterList adapters{{EthernetWithAddress()}};
        if (call == 2) {
            adapters.FailNext(ERROR_SUCCESS);
        }
        adapters.AnswerNext([](IP_ADAPTER_INFO*, ULONG*) -> DWORD { throw DWORD{ERROR_INVALID_FUNCTION}; });

        EXPECT_EQ(NLMEventHandler::InitialiseAdapter(), DWORD{1});

        EXPECT_EQ(adapters.Calls(), call);
        EXPECT_THAT(log.Lines(), ElementsAre(TraceIn(kInitialise),
                                             Information(kInitialise, L"Exception in GetAdaptersInfo()"),
                                             TraceOut(kInitialise, L"Return = 1")));
    }
}

TEST(InitialiseAdapter, EachReadReplacesTheBufferOfTheOneBefore) {
    SKIP_UNLESS_IMPORTED(malloc);
    const LogRecorder log;
    HeapWatch heap;
    FakeAdapterList adapters{{EthernetWithAddress(), EthernetWithAddress()}};
    static_cast<void>(NLMEventHandler::InitialiseAdapter());
    adapters.Set({EthernetWithAddress()});

    static_cast<void>(NLMEventHandler::InitialiseAdapter());

    EXPECT_THAT(heap.Held(), ElementsAre(kOneRecord));
}

/// Adapters, what a check says of them, and the lines of the walk.
struct AdaptersCase {
    const char* name;
    std::vector<Adapter> adapters;
    Outcome outcome;
    std::vector<std::wstring> messages;
};

constexpr wchar_t kEthernetMessage[] = L"An Ethernet network interface.";
constexpr wchar_t kUsableMessage[] = L"Ethernet is not VPN and IP is valid";
constexpr wchar_t kVpnMessage[] = L"Ethernet is VPN and IP is valid";
constexpr wchar_t kWifiMessage[] = L"An IEEE 802.11 wireless network interface.";

class CheckEthernetConnectionStatusOf : public testing::TestWithParam<AdaptersCase> {};

TEST_P(CheckEthernetConnectionStatusOf, TellsWhetherARealCableIsUp) {
    LogRecorder log;
    const FakeAdapterList adapters{GetParam().adapters};

    EXPECT_EQ(Check(), GetParam().outcome);

    EXPECT_EQ(WalkMessages(log), GetParam().messages);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, CheckEthernetConnectionStatusOf,
    testing::Values(AdaptersCase{"EthernetWithAddress",
                                 {EthernetWithAddress()},
                                 {1, 1, kUntouched},
                                 {kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"EthernetWithoutAddress", {EthernetWithoutAddress()}, {1, 0, 1}, {}},
                    AdaptersCase{"EthernetWithEmptyAddressCounts",
                                 {{kEthernet, ""}},
                                 {1, 1, kUntouched},
                                 {kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"AddressThatOnlyBeginsWithZerosCounts",
                                 {{kEthernet, "0.0.0.01"}},
                                 {1, 1, kUntouched},
                                 {kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"AddressWithBlankCounts",
                                 {{kEthernet, "0.0.0.0 "}},
                                 {1, 1, kUntouched},
                                 {kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"VirtualSwitch",
                                 {{kEthernet, "172.16.0.1", "Hypervisor Virtual Ethernet Adapter"}},
                                 {1, 0, kUntouched},
                                 {kEthernetMessage, kVpnMessage}},
                    AdaptersCase{"VirtualInLowerCaseCounts",
                                 {{kEthernet, "172.16.0.1", "hypervisor virtual adapter"}},
                                 {1, 1, kUntouched},
                                 {kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"Vpn",
                                 {{kEthernet, "10.8.0.1", "Someone's VPN Adapter"}},
                                 {1, 0, kUntouched},
                                 {kEthernetMessage, kVpnMessage}},
                    AdaptersCase{"VpnInsideAWord",
                                 {{kEthernet, "10.8.0.1", "OpenVPNish"}},
                                 {1, 0, kUntouched},
                                 {kEthernetMessage, kVpnMessage}},
                    AdaptersCase{"VpnInLowerCaseCounts",
                                 {{kEthernet, "10.8.0.1", "a vpn"}},
                                 {1, 1, kUntouched},
                                 {kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"VpnWithoutAddressAsksToWait",
                                 {{kEthernet, "0.0.0.0", "Someone's VPN Adapter"}},
                                 {1, 0, 1},
                                 {}},
                    AdaptersCase{"WifiAlone", {{kWifi, "192.168.1.30"}}, {1, 0, kUntouched}, {kWifiMessage}},
                    AdaptersCase{"SecondEthernetHasTheAddress",
                                 {EthernetWithoutAddress(), EthernetWithAddress()},
                                 {1, 1, 1},
                                 {kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"NothingBehindTheFirstUsableOneIsLookedAt",
                                 {EthernetWithAddress(), EthernetWithoutAddress(), {kWifi, "192.168.1.30"}},
                                 {1, 1, kUntouched},
                                 {kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"SecondAddressOfAnAdapterDoesNotCount",
                                 {{kEthernet, "0.0.0.0", "Two Addresses", "192.168.1.20"}},
                                 {1, 0, 1},
                                 {}},
                    AdaptersCase{"SecondAddressOfAnAdapterDoesNoHarm",
                                 {{kEthernet, "192.168.1.20", "Two Addresses", "0.0.0.0"}},
                                 {1, 1, kUntouched},
                                 {kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"VpnThenRealOne",
                                 {{kEthernet, "10.8.0.1", "VPN"}, EthernetWithAddress()},
                                 {1, 1, kUntouched},
                                 {kEthernetMessage, kVpnMessage, kEthernetMessage, kUsableMessage}},
                    AdaptersCase{"EveryOtherType",
                                 {{kOther, "1.1.1.1"},
                                  {kWifi, "1.1.1.2"},
                                  {kWiMax, "1.1.1.3"},
                                  {kGsm, "1.1.1.4"},
                                  {kCdma, "1.1.1.5"},
                                  {kLoopback, "127.0.0.1"},
                                  {9, "1.1.1.6"},
                                  {0, "1.1.1.7"},
                                  {0xFFFFFFFF, "1.1.1.8"}},
                                 {1, 0, kUntouched},
                                 {L"Some other type of network interface.", kWifiMessage,
                                  L"A mobile broadband interface for WiMax devices.",
                                  L"A mobile broadband interface for GSM - based devices.",
                                  L"A mobile broadband interface for CDMA-based devices.", L"Unknown type 24",
                                  L"Unknown type 9", L"Unknown type 0", L"Unknown type -1"}}),
    [](const testing::TestParamInfo<AdaptersCase>& tested) { return tested.param.name; });

TEST(CheckEthernetConnectionStatus, SuccessWritesStatusAndTraces) {
    LogRecorder log;
    const FakeAdapterList adapters{{EthernetWithAddress()}};

    EXPECT_EQ(Check(), (Outcome{1, 1, kUntouched}));

    EXPECT_THAT(log.Lines(),
                ElementsAre(TraceIn(kCheckEx), TraceIn(kCheck), TraceIn(kInitialise),
                            Information(kInitialise, L"GetAdaptersInfo() success: ulOutBufLen = 704."),
                            TraceOut(kInitialise, L"Return = 0"), Information(kCheck, kEthernetMessage),
                            Information(kCheck, kUsableMessage), TraceOut(kCheck, L"Ethernet Status = 1"),
                            TraceOut(kCheckEx, L"Return Value = 1")));
}

TEST(CheckEthernetConnectionStatus, NullNoAddressIsLeftOut) {
    const LogRecorder log;
    const FakeAdapterList adapters{{EthernetWithoutAddress(), EthernetWithAddress()}};
    int status = kUntouched;

    EXPECT_EQ(NLMEventHandler::CheckEthernetConnectionStatusEx(&status, nullptr), 1);

    EXPECT_EQ(status, 1);
}

TEST(CheckEthernetConnectionStatus, UnreadableAdaptersFailWithoutWritingStatus) {
    LogRecorder log;
    const FakeAdapterList noAdapters;

    EXPECT_EQ(Check(), (Outcome{0, kUntouched, kUntouched}));

    EXPECT_THAT(log.Of(kCheck), ElementsAre(TraceIn(kCheck), Error(kCheck, L"InitialiseAdapter failed"),
                                            TraceOut(kCheck, L"Ethernet Status = 0")));
    EXPECT_TRUE(log.Contains(TraceOut(kCheckEx, L"Return Value = 0")));
}

TEST(CheckEthernetConnectionStatus, ListLeftUnwrittenReadsAsNoEthernet) {
    SKIP_UNLESS_IMPORTED(malloc);
    const LogRecorder log;
    HeapWatch heap;
    FakeAdapterList adapters;
    adapters.FailNext(ERROR_SUCCESS);
    adapters.FailNext(ERROR_SUCCESS);

    EXPECT_EQ(Check(), (Outcome{1, 0, kUntouched}));
}

TEST(CheckEthernetConnectionStatus, SystemThatAsksForNoMemoryDoesNoHarm) {
    SKIP_UNLESS_IMPORTED(malloc);
    const LogRecorder log;
    HeapWatch heap;
    FakeAdapterList adapters;
    adapters.AnswerNext([](IP_ADAPTER_INFO*, ULONG* bytes) -> DWORD {
        *bytes = 0;
        return ERROR_BUFFER_OVERFLOW;
    });
    adapters.FailNext(ERROR_SUCCESS);

    EXPECT_EQ(Check(), (Outcome{1, 0, kUntouched}));

    EXPECT_THAT(heap.Asked(), Each(testing::Ge(kOneRecord)));
}

TEST(CheckEthernetConnectionStatus, SystemThatAsksForAllMemoryIsRefused) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    FakeAdapterList adapters;
    adapters.AnswerNext([](IP_ADAPTER_INFO*, ULONG* bytes) -> DWORD {
        *bytes = 0xFFFFFFFF;
        return ERROR_BUFFER_OVERFLOW;
    });
    HeapWatch heap;
    heap.Refuse(2);

    EXPECT_EQ(Check(), (Outcome{0, kUntouched, kUntouched}));

    EXPECT_TRUE(log.Contains(Error(kCheck, L"InitialiseAdapter failed")));
}

TEST(CheckEthernetConnectionStatus, BufferThatVanishedIsReported) {
    LogRecorder log;
    FakeAdapterList adapters;
    adapters.FailNext(ERROR_SUCCESS);
    // The handler's end gives the buffer back, here between the read and the walk.
    adapters.AnswerNext([](IP_ADAPTER_INFO*, ULONG*) -> DWORD {
        const NLMEventHandler handler(nullptr, nullptr);
        return ERROR_SUCCESS;
    });
    int status = kUntouched;

    EXPECT_EQ(NLMEventHandler::CheckEthernetConnectionStatus(&status, nullptr), 0);

    EXPECT_EQ(status, kUntouched);
    EXPECT_THAT(log.Of(kCheck), ElementsAre(TraceIn(kCheck), Error(kCheck, L"PIP_ADAPTER_INFO is NULL!!"),
                                            TraceOut(kCheck, L"Ethernet Status = 0")));
}

TEST(CheckEthernetConnectionStatus, ExceptionIsLoggedAndLeavesStatusAlone) {
    LogRecorder log;
    const FakeAdapterList adapters{{EthernetWithAddress()}};
    int status = kUntouched;
    // Its own entry line, three of the read, then the first one of the walk.
    const Rig::ThrowFromLogLine throwing{5, std::runtime_error("no more log")};

    EXPECT_EQ(NLMEventHandler::CheckEthernetConnectionStatus(&status, nullptr), 0);

    EXPECT_EQ(status, kUntouched);
    EXPECT_THAT(log.Of(kCheck),
                ElementsAre(TraceIn(kCheck), Error(kCheck, L"Exception in CheckEthernetConnectionStatus()"),
                            TraceOut(kCheck, L"Ethernet Status = 0")));
}

TEST(CheckEthernetConnectionStatus, FiveHundredAdaptersAreWalked) {
    LogRecorder log;
    std::vector<Adapter> many(499, Adapter{kWifi, "10.0.0.1"});
    many.push_back(EthernetWithAddress());
    const FakeAdapterList adapters{many};

    EXPECT_EQ(Check(), (Outcome{1, 1, kUntouched}));

    EXPECT_THAT(adapters.SizesOffered(), ElementsAre(kOneRecord, 500 * kOneRecord));
    EXPECT_EQ(log.Count(Information(kCheck, kWifiMessage)), 499);
}

TEST(CheckEthernetConnectionStatus, TextsThatFillTheirFieldsAreReadToTheirEnds) {
    const LogRecorder log;
    const std::string fullDescription = std::string(129, 'x') + "VPN";
    FakeAdapterList adapters{{{kEthernet, "0.0.0.0000000000", fullDescription}}};

    EXPECT_EQ(Check(), (Outcome{1, 0, kUntouched}));

    // The mark would be complete only with what stands behind the field.
    adapters.Set({{kEthernet, "0.0.0.0000000000", std::string(130, 'x') + "VP"}});
    EXPECT_EQ(Check(), (Outcome{1, 1, kUntouched}));
}

TEST(CheckEthernetConnectionStatus, DescriptionsOfEveryByteDoNoHarm) {
    const LogRecorder log;
    for (int byte = 1; byte < 256; ++byte) {
        const std::string description(132, static_cast<char>(byte));
        const FakeAdapterList adapters{{{kEthernet, description.substr(0, 16), description}}};

        EXPECT_EQ(Check(), (Outcome{1, 1, kUntouched})) << byte;
    }
}

#if defined(__GNUC__)
// Other runtimes have locks that cannot fail.
TEST(CheckEthernetConnectionStatusEx, LockThatCannotBeTakenIsReportedWithItsCode) {
    LogRecorder log;
    FakeAdapterList adapters{{EthernetWithAddress()}};
    Outcome second;
    int refusedWaits = 0;
    // While the first caller holds the lock, the second one has to wait for it.
    adapters.AnswerNext([&](IP_ADAPTER_INFO*, ULONG*) -> DWORD {
        std::thread([&] {
            const DWORD thisThread = GetCurrentThreadId();
            const ScopedImport<&::WaitForSingleObject> noWait{
                [thisThread](HANDLE, DWORD) { return GetCurrentThreadId() == thisThread; },
                [](HANDLE, DWORD) -> DWORD { return WAIT_FAILED; }};
            second = Check();
            refusedWaits = noWait.Calls();
        }).join();
        return ERROR_SUCCESS;
    });

    EXPECT_EQ(Check(), (Outcome{1, 1, kUntouched}));

    EXPECT_EQ(refusedWaits, 1);
    EXPECT_EQ(second, (Outcome{0, kUntouched, kUntouched}));
    EXPECT_THAT(log.At(Level::kError),
                ElementsAre(Error(kCheckEx, L"Exception in CheckEthernetConnectionStatusEx() : Code = " +
                                                std::to_wstring(EINVAL))));
    EXPECT_EQ(log.Count(TraceOut(kCheckEx, L"Return Value = 0")), 1);
    EXPECT_EQ(log.Count(TraceIn(kCheck)), 1) << "the one without the lock does not look at the adapters";
}
#endif

TEST(CheckEthernetConnectionStatusEx, SystemErrorOutOfTheCheckIsReportedWithItsCode) {
    LogRecorder log;
    const FakeAdapterList adapters{{EthernetWithAddress()}};
    Outcome outcome;
    {
        const Rig::ThrowFromLogLine throwing{
            2, std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur))};
        outcome = Check();
    }

    EXPECT_EQ(outcome, (Outcome{0, kUntouched, kUntouched}));
    EXPECT_THAT(log.Lines(),
                ElementsAre(TraceIn(kCheckEx),
                            Error(kCheckEx, L"Exception in CheckEthernetConnectionStatusEx() : Code = " +
                                                std::to_wstring(EDEADLK)),
                            TraceOut(kCheckEx, L"Return Value = 0")));
    EXPECT_EQ(Check(), (Outcome{1, 1, kUntouched})) << "the lock is free again";
}

TEST(CheckEthernetConnectionStatusEx, OtherExceptionOutOfTheCheckIsReported) {
    LogRecorder log;
    const FakeAdapterList adapters{{EthernetWithAddress()}};
    Outcome outcome;
    {
        const Rig::ThrowFromLogLine throwing{2, std::logic_error("no more log")};
        outcome = Check();
    }

    EXPECT_EQ(outcome, (Outcome{0, kUntouched, kUntouched}));
    EXPECT_THAT(log.At(Level::kError),
                ElementsAre(Error(kCheckEx, L"Exception in CheckEthernetConnectionStatusEx()")));
    EXPECT_EQ(Check(), (Outcome{1, 1, kUntouched})) << "the lock is free again";
}

TEST(CheckEthernetConnectionStatusEx, CallersFromManyThreadsTakeTurns) {
    const LogRecorder log;
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
    const ScopedImport<&::GetAdaptersInfo> adapters{[&](IP_ADAPTER_INFO* list, ULONG*) -> DWORD {
        overlapped = overlapped || ++inside > 1;
        std::this_thread::yield();
        *list = {};
        list->Type = kEthernet;
        --inside;
        return ERROR_SUCCESS;
    }};
    std::atomic<int> seenUp = 0;
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&seenUp] {
            for (int n = 0; n < 50; ++n) {
                seenUp += Check() == Outcome{1, 1, kUntouched} ? 1 : 0;
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }

    EXPECT_EQ(seenUp, 200);
    EXPECT_FALSE(overlapped);
}

TEST(CheckEthernetConnectionStatusEx, TimedOperationsWriteTheirTimesAfterTheirExitLines) {
    const LogRecorder log(LogRecorder::Timing::kOn);
    const Rig::TestClock clock;
    const FakeAdapterList adapters{{EthernetWithoutAddress()}};

    static_cast<void>(Check());

    EXPECT_THAT(log.From(Level::kDiag), ElementsAre(Diag(kInitialise, L"Elapsed time =     0.0 ms."),
                                                    Diag(kCheck, L"Elapsed time =     0.0 ms."),
                                                    Diag(kCheckEx, L"Elapsed time =     0.0 ms.")));
    EXPECT_EQ(log.Lines().back().level, Level::kDiag);
}

TEST(AdapterBuffer, IsGivenBackByTheHandlersEnd) {
    SKIP_UNLESS_IMPORTED(malloc);
    LogRecorder log;
    HeapWatch heap;
    const FakeAdapterList adapters{{EthernetWithAddress()}};
    static_cast<void>(Check());
    EXPECT_THAT(heap.Held(), ElementsAre(kOneRecord));
    log.Clear();

    { const NLMEventHandler handler(nullptr, nullptr); }

    EXPECT_THAT(heap.Held(), IsEmpty());
    EXPECT_THAT(log.Lines(), ElementsAre(TraceIn("NLMEventHandler::NLMEventHandler"),
                                         TraceOut("NLMEventHandler::NLMEventHandler"),
                                         TraceIn("NLMEventHandler::~NLMEventHandler"),
                                         TraceOut("NLMEventHandler::~NLMEventHandler")));
    EXPECT_EQ(Check(), (Outcome{1, 1, kUntouched})) << "the next check makes a new one";
}

TEST(AdapterBuffer, HandlersEndWaitsForACheckThatIsUnderWay) {
    SKIP_UNLESS_IMPORTED(malloc);
    const LogRecorder log;
    HeapWatch heap;
    FakeAdapterList adapters;
    std::thread handlersEnd;
    adapters.FailNext(ERROR_SUCCESS);
    // In the middle of the second read, with the buffer in the system's hands.
    adapters.AnswerNext([&](IP_ADAPTER_INFO*, ULONG*) -> DWORD {
        handlersEnd = std::thread([] { const NLMEventHandler handler(nullptr, nullptr); });
        EXPECT_TRUE(log.WaitFor(TraceIn("NLMEventHandler::~NLMEventHandler")));
        Rig::Real<&::Sleep>(DWORD{20});
        EXPECT_THAT(heap.Held(), Contains(kOneRecord));
        return ERROR_SUCCESS;
    });

    EXPECT_EQ(Check(), (Outcome{1, 0, kUntouched})) << "the list was there to be walked";
    handlersEnd.join();

    EXPECT_THAT(heap.Held(), Not(Contains(kOneRecord)));
}

TEST(AdapterBuffer, HandlersEndWithoutABufferGivesNothingBack) {
    SKIP_UNLESS_IMPORTED(malloc);
    const LogRecorder log;
    { const NLMEventHandler handler(nullptr, nullptr); }
    HeapWatch heap;
    std::atomic<int> freed = 0;
    const ScopedImport<&::HeapFree> frees{[&](auto... arguments) {
        ++freed;
        return frees.Original(arguments...);
    }};

    { const NLMEventHandler handler(nullptr, nullptr); }

    EXPECT_EQ(freed, 0);
}

}  // namespace
}  // namespace NetworkTests
