#include <gmock/gmock.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/wwan_test.h"

namespace RadioTests {
namespace {

using namespace Rig::Lines;
using namespace std::chrono_literals;
using Orva::Shared::Level::kError;
using Orva::Shared::Level::kWarning;
using ServiceUtils::kRadioOff;
using ServiceUtils::kRadioOn;
using ServiceUtils::SwitchWwanStatus;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr char kSwitch[] = "ServiceUtils::SwitchWwanStatus";
constexpr unsigned char kIgnoresAirplane = 0;
constexpr unsigned char kRespectsAirplane = 1;

class WwanSwitchTest : public WwanTest {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kSwitch); }

    /// After an exception out of the middle of a switch the switch has failed, and nothing of it
    /// is left: no mark, no reference, no held lock.
    void ExpectGivenUpWithNothingLeft(LONG references = 0) {
        EXPECT_THAT(m_machine.log.At(kError),
                    ElementsAre(Error(kSwitch, L"Exception in SwitchWwanStatus()")));
        EXPECT_EQ(Lines().back(), TraceOut(kSwitch, L"WWAN switching Status = 0"));
        EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
        EXPECT_EQ(References(), references);
        bool isLockFree = false;
        std::thread([&isLockFree] {
            isLockFree = WwanState::switchLock.try_lock();
            if (isLockFree) {
                WwanState::switchLock.unlock();
            }
        }).join();
        EXPECT_TRUE(isLockFree);
    }
};

TEST_F(WwanSwitchTest, CompletionDuringTheWaitEndsTheSwitch) {
    ConfirmAfter(250ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 0"));
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                            Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                            Information(kSwitch, L"Change to softwareRadioState : 0"),
                            Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 100"),
                            Information(kSwitch, L"WaitForSingleObject returned = 0 , bOnOffStatus = 0"),
                            Information(kSwitch, L"New SoftwareRadioState = 0 in iteration 0"),
                            Information(kSwitch,
                                        L"NewSoftwareRadioState and expected radio states match. Exiting.. "),
                            TraceOut(kSwitch, L"WWAN switching Status = 1")));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000));
    EXPECT_EQ(m_machine.clock.Elapsed(), 350ms);
}

TEST_F(WwanSwitchTest, CompletionBeforeTheWaitIsNotMissed) {
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(),
                Contains(Information(kSwitch, L"WaitForSingleObject returned = 0 , bOnOffStatus = 0")));
    EXPECT_EQ(m_machine.clock.Elapsed(), 200ms) << "nothing but the pauses";
}

TEST_F(WwanSwitchTest, CompletionOutOfTheRequestItselfEndsTheSwitch) {
    FollowWithoutAWord();
    // Whatever request it is of, and whatever became of that.
    m_notebook.At(Call::MbnRadioSetSoftwareRadioState, 1, [this] {
        Modem().software = 0;
        Complete(1042, E_FAIL);
        return std::nullopt;
    });
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(m_machine.clock.Elapsed(), 200ms);
    EXPECT_THAT(m_machine.log.Of("CMbnSinks::OnSetSoftwareRadioStateComplete"),
                Contains(Information("CMbnSinks::OnSetSoftwareRadioStateComplete",
                                     L"Not Processing OnSetSoftwareRadioStateComplete")));
}

TEST_F(WwanSwitchTest, CompletionAfterTheWaitIsTakenForTheNextRequest) {
    ConfirmAfter(7300ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    // The second request's own completion comes too late to be waited for.
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 0", "modem 1 to 0"));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000, 50, 500, 100, 7000));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New SoftwareRadioState = 0 in iteration 1")));
}

TEST_F(WwanSwitchTest, SwitchingOnAsksForOn) {
    Modem().software = 0;
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOn, kRespectsAirplane));
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 1"));
    EXPECT_TRUE(IsOn());
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"Change to softwareRadioState : 1")));
}

TEST_F(WwanSwitchTest, AnyNumberButZeroMeansOn) {
    Modem().software = 0;
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(2, kRespectsAirplane));
    EXPECT_TRUE(IsOn());
    EXPECT_TRUE(SwitchWwanStatus(2, kRespectsAirplane));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"No change in WWAN Status Needed.")));
}

TEST_F(WwanSwitchTest, RadioInTheWantedStateIsOnlyAsked) {
    EXPECT_TRUE(SwitchWwanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current Status : 1, To Change Status = 1"),
                                     Information(kSwitch, L"No change in WWAN Status Needed."),
                                     TraceOut(kSwitch, L"WWAN switching Status = 1")));
    EXPECT_THAT(Sets(), IsEmpty());
    EXPECT_EQ(m_notebook.Count(Call::GetAdaptersInfo), 0);
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50));
}

TEST_F(WwanSwitchTest, WithoutADeviceNothingIsDone) {
    WwanState::devicePresent = false;
    for (const auto status : {kRadioOn, kRadioOff}) {
        EXPECT_FALSE(SwitchWwanStatus(status, kIgnoresAirplane));
    }
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 0"),
                                     Error(kSwitch, L"WWAN Device is not available."),
                                     TraceOut(kSwitch, L"WWAN switching Status = 0"),
                                     TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Error(kSwitch, L"WWAN Device is not available."),
                                     TraceOut(kSwitch, L"WWAN switching Status = 0")));
}

TEST_F(WwanSwitchTest, SwitchingOnIsRefusedInAirplaneMode) {
    m_machine.SetAirplaneMode(true);
    Modem().software = 0;
    EXPECT_FALSE(SwitchWwanStatus(kRadioOn, kRespectsAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 1"),
                                     Information(kSwitch, L"SwitchWwanStatus not needed for New status = 1"),
                                     TraceOut(kSwitch, L"WWAN switching Status = 0")));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
}

TEST_F(WwanSwitchTest, SwitchingOnInAirplaneModeGoesOnWhenTheCallerIgnoresIt) {
    m_machine.SetAirplaneMode(true);
    Modem().software = 0;
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_TRUE(IsOn());
}

TEST_F(WwanSwitchTest, SwitchingOffIsNotRefusedInAirplaneMode) {
    m_machine.SetAirplaneMode(true);
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kRespectsAirplane));
    EXPECT_FALSE(IsOn());
}

TEST_F(WwanSwitchTest, MarkIsSetAfterTheEthernetTestAndDuringTheSwitchOnly) {
    std::vector<std::string> steps;
    const auto note = [&steps](const char* step) {
        return [&steps, step] {
            steps.push_back(std::string(step) +
                            (WwanState::NetworkChangedForSetRadio ? ", mark" : ", no mark"));
            return std::nullopt;
        };
    };
    FollowWithoutAWord();
    m_notebook.At(Call::GetAdaptersInfo, 1, note("Ethernet test"));
    m_notebook.At(Call::MbnRadioSetSoftwareRadioState, 1, note("request"));
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(steps, ElementsAre("Ethernet test, no mark", "request, mark"));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, SwitchingOffWithoutEthernetLeavesAMark) {
    ConfirmAfter(10ms);
    SwitchWwanStatus(kRadioOff, kIgnoresAirplane);
    EXPECT_TRUE(WwanState::offWithoutEthernet);
    m_notebook.PlugCable();
    SwitchWwanStatus(kRadioOn, kIgnoresAirplane);
    SwitchWwanStatus(kRadioOff, kIgnoresAirplane);
    EXPECT_TRUE(WwanState::offWithoutEthernet) << "nobody takes it back";
}

TEST_F(WwanSwitchTest, SwitchingOffWithTheCableInLeavesNoMark) {
    m_notebook.PlugCable();
    ConfirmAfter(10ms);
    SwitchWwanStatus(kRadioOff, kIgnoresAirplane);
    EXPECT_FALSE(WwanState::offWithoutEthernet);
    EXPECT_GT(m_notebook.Count(Call::GetAdaptersInfo), 0);
}

TEST_F(WwanSwitchTest, SwitchingOnLeavesNoMark) {
    Modem().software = 0;
    ConfirmAfter(10ms);
    SwitchWwanStatus(kRadioOn, kIgnoresAirplane);
    EXPECT_FALSE(WwanState::offWithoutEthernet);
}

TEST_F(WwanSwitchTest, UnreadableAdaptersDoNotStopTheSwitch) {
    m_machine.HideAdapters();
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_FALSE(IsOn());
    EXPECT_TRUE(WwanState::offWithoutEthernet) << "no Ethernet was found";
}

TEST_F(WwanSwitchTest, EachSwitchMakesAnEventOfItsOwnThatReplacesTheLastOne) {
    const EventWatch events;
    ConfirmAfter(10ms);
    SwitchWwanStatus(kRadioOff, kIgnoresAirplane);
    EXPECT_THAT(events.Made(), ElementsAre("auto-reset, not signalled"));
    EXPECT_EQ(events.Open(), 1U) << "it stays published after the switch";
    const auto first = WwanState::radioChangeEvent.load()->Get();
    SwitchWwanStatus(kRadioOn, kIgnoresAirplane);
    EXPECT_EQ(events.Made().size(), 2U);
    EXPECT_EQ(events.Open(), 1U) << "the first one is closed";
    EXPECT_NE(WwanState::radioChangeEvent.load()->Get(), first);
}

TEST_F(WwanSwitchTest, OldCompletionDoesNotWakeANewSwitch) {
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    // A straggler: nobody waits any more for the event that the switch has left published.
    Complete();
    FollowWithoutAWord();
    EXPECT_TRUE(SwitchWwanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 0", "modem 1 to 1"));
    EXPECT_THAT(
        Lines(),
        AllOf(Contains(Information(kSwitch, L"WaitForSingleObject returned = 258 , bOnOffStatus = 1")),
              Not(Contains(Information(kSwitch, L"WaitForSingleObject returned = 0 , bOnOffStatus = 1")))));
}

TEST_F(WwanSwitchTest, EventThatCannotBeMadeEndsTheSwitch) {
    const Rig::ScopedResult<&::CreateEventW> fails{nullptr, ERROR_NO_SYSTEM_RESOURCES};
    EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                                     Information(kSwitch, L"Change to softwareRadioState : 0"),
                                     Error(kSwitch, L"CreateEvent failed with error: HRESULT : 0x800705AA"),
                                     TraceOut(kSwitch, L"WWAN switching Status = 0")));
    EXPECT_THAT(Sets(), IsEmpty());
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio) << "else the sink would ignore the user";
}

TEST_F(WwanSwitchTest, RadioThatCannotBeReachedEndsTheSwitch) {
    // The query before goes well; then the modem is gone.
    for (int call = 2; call <= 6; ++call) {
        m_notebook.Fail(Call::MbnInterfaceManagerGetInterface, call, E_FAIL);
    }
    EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                                     Information(kSwitch, L"Change to softwareRadioState : 0"),
                                     Error(kSwitch, L"GetRadioInterface Failed"),
                                     TraceOut(kSwitch, L"WWAN switching Status = 0")));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, RadioThatRefusesForAWhileIsAskedAgain) {
    Modem().refusalsLeft = 4;
    Modem().refuseError = static_cast<std::uint32_t>(E_PENDING);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(
        m_machine.log.At(kWarning),
        ElementsAre(
            Warning(kSwitch, L"SetSoftwareRadioState failed with error in retry 0: HRESULT : 0x8000000A"),
            Warning(kSwitch, L"SetSoftwareRadioState failed with error in retry 1: HRESULT : 0x8000000A"),
            Warning(kSwitch, L"SetSoftwareRadioState failed with error in retry 2: HRESULT : 0x8000000A"),
            Warning(kSwitch, L"SetSoftwareRadioState failed with error in retry 3: HRESULT : 0x8000000A")));
    EXPECT_THAT(m_machine.log.At(kError), IsEmpty());
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(50, 50, 100, 100, 100, 100, 100));
}

TEST_F(WwanSwitchTest, RadioThatRefusesFiveTimesIsWaitedForAllTheSame) {
    Modem().refusalsLeft = 5;
    m_notebook.At(Call::MbnRadioSetSoftwareRadioState, 5, [this] {
        m_machine.clock.At(m_machine.clock.Elapsed() + 1000ms,
                           [this] { m_notebook.Act(&::Notebook::SwitchModemByUser, 0U, false); });
        return std::nullopt;
    });
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(
        m_machine.log.From(kWarning),
        ElementsAre(
            Warning(kSwitch, L"SetSoftwareRadioState failed with error in retry 0: HRESULT : 0x80004005"),
            Warning(kSwitch, L"SetSoftwareRadioState failed with error in retry 1: HRESULT : 0x80004005"),
            Warning(kSwitch, L"SetSoftwareRadioState failed with error in retry 2: HRESULT : 0x80004005"),
            Warning(kSwitch, L"SetSoftwareRadioState failed with error in retry 3: HRESULT : 0x80004005"),
            Warning(kSwitch, L"SetSoftwareRadioState failed with error in retry 4: HRESULT : 0x80004005"),
            Error(kSwitch, L"SetSoftwareRadioState failed with error : HRESULT : 0x80004005")));
    EXPECT_THAT(Lines(),
                Contains(Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 0")));
    EXPECT_THAT(Sets(), SizeIs(5));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 100, 100, 100, 100, 7000));
}

TEST_F(WwanSwitchTest, RadioThatFollowsWithoutAWordIsFoundByTheLookAfterTheTimeout) {
    FollowWithoutAWord();
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(
        Lines(),
        ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                    Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                    Information(kSwitch, L"Change to softwareRadioState : 0"),
                    Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 100"),
                    Information(kSwitch, L"WaitForSingleObject returned = 258 , bOnOffStatus = 0"),
                    Information(kSwitch, L"Got new WWAN Status = 0 , bOnOffStatus = 0"),
                    Information(kSwitch, L"New Radio State is Set after timeout. So exiting from loop"),
                    TraceOut(kSwitch, L"WWAN switching Status = 1")));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000, 50));
}

TEST_F(WwanSwitchTest, RadioThatNeverConfirmsIsGivenUpAfterTenIterationsWithSuccess) {
    IgnoreRequests();
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(IsOn());
    EXPECT_THAT(Sets(), AllOf(SizeIs(10), Each("modem 1 to 0")));
    EXPECT_THAT(m_machine.clock.Waits(), AllOf(SizeIs(10), Each(7000)));
    EXPECT_EQ(m_machine.clock.Elapsed(), 50ms + 50ms + 10 * (100ms + 7000ms + 50ms + 500ms));
    const auto lines = Lines();
    EXPECT_THAT(std::vector(lines.end() - 5, lines.end()),
                ElementsAre(Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 109"),
                            Information(kSwitch, L"WaitForSingleObject returned = 258 , bOnOffStatus = 0"),
                            Information(kSwitch, L"Got new WWAN Status = 1 , bOnOffStatus = 0"),
                            Information(kSwitch, L"Retrying SetSoftwareRadioState = 9"),
                            TraceOut(kSwitch, L"WWAN switching Status = 1")));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, RadioThatConfirmsAnotherStateIsAskedAgain) {
    Modem().follows = 0;
    m_notebook.At(Call::MbnRadioSetSoftwareRadioState, 2, [this] {
        Modem().follows = 1;
        return std::nullopt;
    });
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                            Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                            Information(kSwitch, L"Change to softwareRadioState : 0"),
                            Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 100"),
                            Information(kSwitch, L"WaitForSingleObject returned = 0 , bOnOffStatus = 0"),
                            Information(kSwitch, L"New SoftwareRadioState = 1 in iteration 0"),
                            Information(kSwitch, L"Got new WWAN Status = 1 , bOnOffStatus = 0"),
                            Information(kSwitch, L"Retrying SetSoftwareRadioState = 0"),
                            Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 101"),
                            Information(kSwitch, L"WaitForSingleObject returned = 0 , bOnOffStatus = 0"),
                            Information(kSwitch, L"New SoftwareRadioState = 0 in iteration 1"),
                            Information(kSwitch,
                                        L"NewSoftwareRadioState and expected radio states match. Exiting.. "),
                            TraceOut(kSwitch, L"WWAN switching Status = 1")));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000, 50, 500, 100, 7000));
}

TEST_F(WwanSwitchTest, RadioThatChangesItsMindBetweenTheTwoLooksCountsAsFollowing) {
    // The completion's radio says "on" still; the fresh look finds it off.
    Modem().follows = 0;
    m_notebook.At(Call::MbnRadioGetSoftwareRadioState, 3, [this] {
        Modem().software = 0;
        return std::nullopt;
    });
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Information(
                             kSwitch, L"New Radio State is Set after timeout. So exiting from loop")));
}

TEST_F(WwanSwitchTest, LastRadioThatCannotBeAskedIsReportedAndLookedAtAfresh) {
    m_notebook.Fail(Call::MbnRadioGetSoftwareRadioState, 2, E_FAIL);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(
        m_machine.log.At(kError),
        ElementsAre(Error(kSwitch, L"get_SoftwareRadioState failed with error: HRESULT : 0x80004005")));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"Got new WWAN Status = 0 , bOnOffStatus = 0")));
}

TEST_F(WwanSwitchTest, CompletionWithoutARadioIsReportedAndLookedAtAfresh) {
    Modem().confirmRadio = ConfirmRadio::Null;
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(
        m_machine.log.At(kError),
        ElementsAre(Error(kSwitch, L"get_SoftwareRadioState failed with error: HRESULT : 0x80004003")));
    EXPECT_THAT(Lines(), Contains(Information(
                             kSwitch, L"New Radio State is Set after timeout. So exiting from loop")));
}

TEST_F(WwanSwitchTest, CompletionWithAnotherRadioObjectIsAskedInstead) {
    Modem().follows = 0;
    Modem().confirmRadio = ConfirmRadio::Opposite;
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New SoftwareRadioState = 0 in iteration 0")));
}

TEST_F(WwanSwitchTest, RadioThatIsReplacedWhileItIsAskedStaysHeld) {
    Modem().confirmRadio = ConfirmRadio::Fresh;
    // A radio that nobody holds is gone, and the question that is still inside would end the process.
    m_notebook.At(Call::MbnRadioGetSoftwareRadioState, 2, [this] {
        Complete();
        return std::nullopt;
    });
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(References(), 1) << "the one that replaced it";
}

TEST_F(WwanSwitchTest, FailedWaitIsLookedAtLikeATimeout) {
    FollowWithoutAWord();
    const Rig::ScopedImport<&::WaitForSingleObject> fails{
        [](HANDLE, DWORD milliseconds) { return milliseconds == 7000; },
        [](HANDLE, DWORD) { return DWORD{WAIT_FAILED}; }};
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(),
                Contains(Information(kSwitch, L"WaitForSingleObject returned = -1 , bOnOffStatus = 0")));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"Got new WWAN Status = 0 , bOnOffStatus = 0")));
}

TEST_F(WwanSwitchTest, OfTwoModemsOnlyTheLastOneIsSwitched) {
    SetModems(2);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Sets(), ElementsAre("modem 2 to 0"));
    EXPECT_TRUE(IsOn());
    EXPECT_EQ(Modem(1).software, 0U);
}

TEST_F(WwanSwitchTest, RadioIsReleasedAtTheEnd) {
    FollowWithoutAWord();
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(References(), 0);
}

TEST_F(WwanSwitchTest, ExceptionTakesTheMarkBackAndLeavesTheLock) {
    m_notebook.AtEach(Call::MbnRadioSetSoftwareRadioState,
                      []() -> DWORD { throw std::runtime_error("out of order"); });
    EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                                     Information(kSwitch, L"Change to softwareRadioState : 0"),
                                     Error(kSwitch, L"Exception in SwitchWwanStatus()"),
                                     TraceOut(kSwitch, L"WWAN switching Status = 0")));
    ExpectGivenUpWithNothingLeft();
}

TEST_F(WwanSwitchTest, ExceptionOutOfTheWaitTakesTheMarkBackAndLeavesTheLock) {
    FollowWithoutAWord();
    {
        const Rig::ScopedImport<&::WaitForSingleObject> throws{
            [](HANDLE, DWORD milliseconds) { return milliseconds == 7000; },
            [](HANDLE, DWORD) -> DWORD { throw std::runtime_error("out of order"); }};
        EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
        EXPECT_EQ(throws.Calls(), 1);
    }
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 0"));
    ExpectGivenUpWithNothingLeft();
}

TEST_F(WwanSwitchTest, ExceptionOutOfTheLastRadioTakesTheMarkBackAndLeavesTheLock) {
    m_notebook.At(Call::MbnRadioGetSoftwareRadioState, 2, []() -> DWORD { throw DWORD{ERROR_CRC}; });
    EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    constexpr LONG kPublished = 1;
    ExpectGivenUpWithNothingLeft(kPublished);
}

TEST_F(WwanSwitchTest, ThrownWin32ErrorOutOfTheEventIsLogged) {
    const Rig::ScopedImport<&::CreateEventW> throws{
        [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE { throw DWORD{ERROR_CRC}; }};
    EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kSwitch, L"Exception in SwitchWwanStatus()")));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, SecondSwitchWaitsUntilTheFirstOneIsDone) {
    ConfirmAfter(1000ms);
    std::optional<std::thread> second;
    int setsMeanwhile = 0;
    m_machine.clock.At(500ms, [&] {
        second.emplace([] { SwitchWwanStatus(kRadioOn, kIgnoresAirplane); });
        Rig::Real<&::Sleep>(50);
        setsMeanwhile = SetCount();
    });
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    ASSERT_TRUE(second);
    second->join();
    EXPECT_EQ(setsMeanwhile, 1);
    EXPECT_THAT(Sets(), ElementsAre("modem 1 to 0", "modem 1 to 1"));
    EXPECT_TRUE(IsOn());
}

TEST_F(WwanSwitchTest, QueryDoesNotWaitForASwitch) {
    ConfirmAfter(300ms);
    std::optional<bool> asked;
    m_machine.clock.AtOnOwnThread(300ms, [&] { asked = ServiceUtils::CheckWwanStatus(); });
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(asked, true);
}

}  // namespace
}  // namespace RadioTests
