#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/wwan_test.h"

namespace RadioTests {
namespace {

using namespace std::chrono_literals;

constexpr char kWwanSwitch[] = "ServiceUtils::SwitchWwanStatus";
constexpr wchar_t kRequestFailed[] = L"SetSoftwareRadioState failed with error in retry %d: HRESULT : 0x";
constexpr wchar_t kRequestGivenUp[] = L"SetSoftwareRadioState failed with error : HRESULT : 0x";

// Lines of a switch off.

LogLine Requested(int requestId) {
    return Information(kWwanSwitch,
                       L"SetSoftwareRadioState Radio State = 0, Request ID = " + std::to_wstring(requestId));
}
LogLine Waited(int outcome) {
    return Information(
        kWwanSwitch, L"WaitForSingleObject returned = " + std::to_wstring(outcome) + L" , bOnOffStatus = 0");
}
LogLine LastRadioSays(int state, int iteration) {
    return Information(kWwanSwitch, L"New SoftwareRadioState = " + std::to_wstring(state) +
                                        L" in iteration " + std::to_wstring(iteration));
}
LogLine FreshLookSays(int status) {
    return Information(kWwanSwitch,
                       L"Got new WWAN Status = " + std::to_wstring(status) + L" , bOnOffStatus = 0");
}
LogLine Retrying(int iteration) {
    return Information(kWwanSwitch, L"Retrying SetSoftwareRadioState = " + std::to_wstring(iteration));
}
const LogLine kMatch =
    Information(kWwanSwitch, L"NewSoftwareRadioState and expected radio states match. Exiting.. ");
const LogLine kFollowedAnyway =
    Information(kWwanSwitch, L"New Radio State is Set after timeout. So exiting from loop");

class WwanSwitchTest : public WwanTest {
  protected:
    static bool SwitchOn() { return SwitchWwanStatus(kRadioOn, kIgnoreAirplaneMode); }
    static bool SwitchOff() { return SwitchWwanStatus(kRadioOff, kIgnoreAirplaneMode); }

    [[nodiscard]] std::vector<LogLine> Lines() const { return m_machine.log.Of(kWwanSwitch); }

    /// All lines of a switch off whose radio was on.
    [[nodiscard]] static std::vector<LogLine> SwitchOffLines(const std::vector<LogLine>& special,
                                                             bool result = true) {
        std::vector<LogLine> lines{TraceIn(kWwanSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                   Information(kWwanSwitch, L"Current Status : 1, To Change Status = 0"),
                                   Information(kWwanSwitch, L"Change to softwareRadioState : 0")};
        lines.insert(lines.end(), special.begin(), special.end());
        lines.push_back(
            TraceOut(kWwanSwitch, result ? L"WWAN switching Status = 1" : L"WWAN switching Status = 0"));
        return lines;
    }
};

TEST_F(WwanSwitchTest, CompletionDuringTheWaitEndsTheSwitch) {
    ConfirmAfter(250ms);
    EXPECT_TRUE(SwitchOff());
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 0"));
    EXPECT_EQ(Lines(), SwitchOffLines({Requested(100), Waited(0), LastRadioSays(0, 0), kMatch}));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000));
    EXPECT_EQ(m_machine.clock.Elapsed(), 350ms);
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
    // The sink's thread wakes the switch, does not wait for it, and leaves the rest to it.
    EXPECT_TRUE(m_machine.log.Contains(Information("CMbnSinks::OnSetSoftwareRadioStateComplete",
                                                   L"Not Processing OnSetSoftwareRadioStateComplete")));
}

TEST_F(WwanSwitchTest, CompletionBeforeTheWaitIsNotMissed) {
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchOff());
    EXPECT_THAT(Lines(), Contains(Waited(0)));
    EXPECT_EQ(m_machine.clock.Elapsed(), 200ms) << "nothing but the pauses";
}

TEST_F(WwanSwitchTest, CompletionOutOfTheRequestItselfEndsTheSwitch) {
    FollowWithoutAWord();
    // Whatever request it is of, and whatever became of that.
    m_notebook.Before(Call::MbnRadioSetSoftwareRadioState, 1, [this] {
        Modem().software = 0;
        Complete(1042, E_FAIL);
    });
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(m_machine.clock.Elapsed(), 200ms);
}

TEST_F(WwanSwitchTest, CompletionAfterTheWaitIsTakenForTheNextRequest) {
    ConfirmAfter(7300ms);
    EXPECT_TRUE(SwitchOff());
    // The second request's own completion comes too late to be waited for.
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 0", "modem 1 to 0"));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000, 50, 500, 100, 7000));
    EXPECT_THAT(Lines(), Contains(LastRadioSays(0, 1)));
}

TEST_F(WwanSwitchTest, SwitchingOnAsksForOn) {
    Modem().software = 0;
    EXPECT_TRUE(SwitchOn());
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 1"));
    EXPECT_THAT(Lines(), Contains(Information(kWwanSwitch, L"Change to softwareRadioState : 1")));
    EXPECT_FALSE(WwanState::offWithoutEthernet);
}

TEST_F(WwanSwitchTest, WithoutADeviceNothingIsDone) {
    struct Operation {
        const char* name;
        std::function<bool()> act;
        const wchar_t* entryLine;
        const wchar_t* exitLine;
    };
    WwanState::devicePresent = false;
    for (const Operation& operation :
         {Operation{"CheckWwanStatus", &CheckWwanStatus, L"", L"WWAN Status = 0"},
          Operation{"SwitchWwanStatus", &SwitchOn, L"OnOffValue = 1, bCheckAirplaneStatus = 0",
                    L"WWAN switching Status = 0"},
          Operation{"SwitchWwanStatus", &SwitchOff, L"OnOffValue = 0, bCheckAirplaneStatus = 0",
                    L"WWAN switching Status = 0"},
          Operation{"SwitchWwanStatusWithRetry", [] { return SwitchWwanStatusWithRetry(kRadioOn, 5); },
                    L"NewStatus = 1, Retry Count = 5", L"WWAN switching Status = 0"},
          Operation{"StartWWANService",
                    [] {
                        StartWWANService();
                        return false;
                    },
                    L"", L""},
          Operation{"StopWWANService",
                    [] {
                        StopWWANService();
                        return false;
                    },
                    L"", L""}}) {
        const std::string name = std::string("ServiceUtils::") + operation.name;
        m_machine.log.Clear();
        EXPECT_FALSE(operation.act());
        EXPECT_THAT(m_machine.log.Lines(), ElementsAre(TraceIn(name, operation.entryLine),
                                                       Error(name, L"WWAN Device is not available."),
                                                       TraceOut(name, operation.exitLine)));
    }
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
    EXPECT_FALSE(m_machine.store.Exists());
}

TEST_F(WwanSwitchTest, MarkIsSetAfterTheEthernetTestAndDuringTheSwitchOnly) {
    std::vector<std::string> steps;
    const auto note = [&steps](const char* step) {
        return [&steps, step] {
            steps.push_back(std::string(step) +
                            (WwanState::NetworkChangedForSetRadio ? ", mark" : ", no mark"));
        };
    };
    FollowWithoutAWord();
    m_notebook.Before(Call::GetAdaptersInfo, 1, note("Ethernet test"));
    m_notebook.Before(Call::MbnRadioSetSoftwareRadioState, 1, note("request"));
    EXPECT_TRUE(SwitchOff());
    EXPECT_THAT(steps, ElementsAre("Ethernet test, no mark", "request, mark"));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, SwitchingOffWithTheCableInLeavesNoMark) {
    m_notebook.PlugCable();
    SwitchOff();
    EXPECT_FALSE(WwanState::offWithoutEthernet);
    EXPECT_GT(m_notebook.Count(Call::GetAdaptersInfo), 0);
}

TEST_F(WwanSwitchTest, SwitchingOffWithoutEthernetLeavesAMarkThatNobodyTakesBack) {
    SwitchOff();
    EXPECT_TRUE(WwanState::offWithoutEthernet);
    m_notebook.PlugCable();
    SwitchOn();
    SwitchOff();
    EXPECT_TRUE(WwanState::offWithoutEthernet);
}

TEST_F(WwanSwitchTest, UnreadableAdaptersDoNotStopTheSwitch) {
    m_machine.HideAdapters();
    EXPECT_TRUE(SwitchOff());
    EXPECT_FALSE(IsOn());
    EXPECT_TRUE(WwanState::offWithoutEthernet) << "no Ethernet was found";
}

TEST_F(WwanSwitchTest, EachSwitchMakesAnEventOfItsOwnThatReplacesTheLastOne) {
    const ScopedWatch<&::CreateEventW> events;
    const int openBefore = m_ledger.Outstanding(Rig::Kind::kHandle);
    SwitchOff();
    const auto first = WwanState::radioChangeEvent.load()->Get();
    SwitchOn();
    const auto autoReset = FieldsAre(nullptr, FALSE, FALSE, nullptr);
    EXPECT_THAT(events.Arguments(), ElementsAre(autoReset, autoReset));
    EXPECT_NE(WwanState::radioChangeEvent.load()->Get(), first) << "it stays published after the switch";
    EXPECT_EQ(m_ledger.Outstanding(Rig::Kind::kHandle), openBefore + 1) << "the first one is closed";
}

TEST_F(WwanSwitchTest, OldCompletionDoesNotWakeANewSwitch) {
    Modem().software = 0;
    EXPECT_TRUE(SwitchOn());
    // A straggler: nobody waits any more for the event that the switch has left published.
    Complete();
    FollowWithoutAWord();
    EXPECT_TRUE(SwitchOff());
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 1", "modem 1 to 0"));
    EXPECT_THAT(Lines(), AllOf(Contains(Waited(WAIT_TIMEOUT)), Not(Contains(Waited(0)))));
}

TEST_F(WwanSwitchTest, EventThatCannotBeMadeEndsTheSwitch) {
    const ScopedResult<&::CreateEventW> fails{nullptr, ERROR_NO_SYSTEM_RESOURCES};
    EXPECT_FALSE(SwitchOff());
    EXPECT_EQ(
        Lines(),
        SwitchOffLines({Error(kWwanSwitch, L"CreateEvent failed with error: HRESULT : 0x800705AA")}, false));
    EXPECT_THAT(Sets(), IsEmpty());
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio) << "else the sink would ignore the user";
}

TEST_F(WwanSwitchTest, RadioThatCannotBeReachedEndsTheSwitch) {
    // The query before goes well; then the modem is gone.
    for (int call = 2; call <= 6; ++call) {
        m_notebook.Fail(Call::MbnInterfaceManagerGetInterface, call, E_FAIL);
    }
    EXPECT_FALSE(SwitchOff());
    EXPECT_EQ(Lines(), SwitchOffLines({Error(kWwanSwitch, L"GetRadioInterface Failed")}, false));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, RadioThatRefusesForAWhileIsAskedAgain) {
    Modem().refusalsLeft = 4;
    Modem().refuseError = static_cast<std::uint32_t>(E_PENDING);
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(m_machine.log.From(kWarning), FailedTries(kWwanSwitch, 4, kRequestFailed, L"8000000A"));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50, 50, 100, 100, 100, 100, 100));
}

TEST_F(WwanSwitchTest, RadioThatRefusesFiveTimesIsWaitedForAllTheSame) {
    Modem().refusalsLeft = 5;
    m_notebook.Before(Call::MbnRadioSetSoftwareRadioState, 5, [this] {
        m_machine.clock.At(m_machine.clock.Elapsed() + 1000ms,
                           [this] { m_notebook.Act(&::Notebook::SwitchModemByUser, 0U, false); });
    });
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(m_machine.log.From(kWarning),
              FailedTries(kWwanSwitch, 5, kRequestFailed, L"80004005", kRequestGivenUp));
    EXPECT_THAT(Lines(), Contains(Requested(0)));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 100, 100, 100, 100, 7000));
}

TEST_F(WwanSwitchTest, RadioIsLookedAtAfreshUnlessItsCompletionShowsThatItFollowed) {
    struct Course {
        const char* name;
        std::function<void()> arrange;
        std::vector<LogLine> lines;
    };
    const auto cannotBeAsked = [](const std::wstring& error) {
        return Error(kWwanSwitch, L"get_SoftwareRadioState failed with error: HRESULT : 0x" + error);
    };
    const std::vector<Course> courses{
        {"follows without a word",
         [this] { FollowWithoutAWord(); },
         {Requested(100), Waited(WAIT_TIMEOUT), FreshLookSays(0), kFollowedAnyway}},
        {"confirms another state, and is asked again",
         [this] {
             Modem().follows = 0;
             m_notebook.Before(Call::MbnRadioSetSoftwareRadioState, 2, [this] { Modem().follows = 1; });
         },
         {Requested(100), Waited(0), LastRadioSays(1, 0), FreshLookSays(1), Retrying(0), Requested(101),
          Waited(0), LastRadioSays(0, 1), kMatch}},
        {"changes its mind between the two looks",
         [this] {
             Modem().follows = 0;
             m_notebook.Before(Call::MbnRadioGetSoftwareRadioState, 3, [this] { Modem().software = 0; });
         },
         {Requested(100), Waited(0), LastRadioSays(1, 0), FreshLookSays(0), kFollowedAnyway}},
        {"confirms with a radio that cannot be asked",
         [this] { m_notebook.Fail(Call::MbnRadioGetSoftwareRadioState, 2, E_FAIL); },
         {Requested(100), Waited(0), cannotBeAsked(L"80004005"), FreshLookSays(0), kFollowedAnyway}},
        {"confirms without a radio",
         [this] { Modem().confirmRadio = ConfirmRadio::Null; },
         {Requested(100), Waited(0), cannotBeAsked(L"80004003"), FreshLookSays(0), kFollowedAnyway}}};
    for (const Course& course : courses) {
        SCOPED_TRACE(course.name);
        SetModems(1);
        m_machine.log.Clear();
        course.arrange();
        EXPECT_TRUE(SwitchOff());
        EXPECT_FALSE(IsOn());
        EXPECT_EQ(Lines(), SwitchOffLines(course.lines));
    }
}

TEST_F(WwanSwitchTest, FailedWaitIsLookedAtLikeATimeout) {
    FollowWithoutAWord();
    const ScopedImport<&::WaitForSingleObject> fails{
        [](HANDLE, DWORD milliseconds) { return milliseconds == 7000; },
        [](HANDLE, DWORD) { return DWORD{WAIT_FAILED}; }};
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(Lines(), SwitchOffLines({Requested(100), Waited(-1), FreshLookSays(0), kFollowedAnyway}));
}

TEST_F(WwanSwitchTest, RadioThatNeverConfirmsIsGivenUpAfterTenIterationsWithSuccess) {
    IgnoreRequests();
    EXPECT_TRUE(SwitchOff());
    EXPECT_TRUE(IsOn());
    EXPECT_THAT(Sets(), AllOf(SizeIs(10), Each("modem 1 to 0")));
    std::vector<LogLine> iterations;
    for (int i = 0; i < 10; ++i) {
        iterations.insert(iterations.end(),
                          {Requested(100 + i), Waited(WAIT_TIMEOUT), FreshLookSays(1), Retrying(i)});
    }
    EXPECT_EQ(Lines(), SwitchOffLines(iterations));
    EXPECT_THAT(m_machine.clock.Waits(), AllOf(SizeIs(10), Each(7000)));
    EXPECT_EQ(m_machine.clock.Elapsed(), 50ms + 50ms + 10 * (100ms + 7000ms + 50ms + 500ms));
}

TEST_F(WwanSwitchTest, StopRemembersARadioAsOnThatNeverFollows) {
    IgnoreRequests();
    StopWWANService();
    EXPECT_THAT(Sets(), SizeIs(10)) << "the switch is not repeated";
    EXPECT_EQ(m_machine.RememberedWwan(), L"True");
}

TEST_F(WwanSwitchTest, CompletionWithAnotherRadioObjectIsAskedInstead) {
    Modem().follows = 0;
    Modem().confirmRadio = ConfirmRadio::Opposite;
    EXPECT_TRUE(SwitchOff());
    EXPECT_THAT(Lines(), Contains(LastRadioSays(0, 0)));
}

TEST_F(WwanSwitchTest, RadioThatIsReplacedWhileItIsAskedStaysHeld) {
    Modem().confirmRadio = ConfirmRadio::Fresh;
    // A radio that nobody holds is gone, and the question that is still inside would end the process.
    m_notebook.Before(Call::MbnRadioGetSoftwareRadioState, 2, [this] { Complete(); });
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(References(), 1) << "the one that replaced it";
}

TEST_F(WwanSwitchTest, OfTwoModemsOnlyTheLastOneIsSwitched) {
    SetModems(2);
    EXPECT_TRUE(SwitchOff());
    EXPECT_THAT(Sets(), ElementsAre("modem 2 to 0"));
    EXPECT_TRUE(IsOn());
    EXPECT_EQ(Modem(1).software, 0U);
}

TEST_F(WwanSwitchTest, SecondSwitchWaitsUntilTheFirstOneIsDone) {
    ConfirmAfter(1000ms);
    std::optional<std::thread> second;
    int setsMeanwhile = 0;
    m_machine.clock.At(500ms, [&] {
        second.emplace(&SwitchOn);
        Rig::Real<&::Sleep>(50);
        setsMeanwhile = SetCount();
    });
    EXPECT_TRUE(SwitchOff());
    ASSERT_TRUE(second);
    second->join();
    EXPECT_EQ(setsMeanwhile, 1);
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 0", "modem 1 to 1"));
    EXPECT_TRUE(IsOn());
}

TEST_F(WwanSwitchTest, QueryDoesNotWaitForASwitch) {
    ConfirmAfter(300ms);
    std::optional<bool> asked;
    m_machine.clock.AtOnOwnThread(300ms, [&] { asked = CheckWwanStatus(); });
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(asked, true);
}

}  // namespace
}  // namespace RadioTests
