#include <gmock/gmock.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "radio/wwan_radio.h"
#include "radio/wwan_state.h"
#include "tests/radio/fake_modem.h"
#include "tests/radio/machine.h"

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
constexpr ULONG kRequest = 42;

class WwanSwitchTest : public testing::Test {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kSwitch); }

    FakeRadio& Radio() { return m_modems.Radio(); }

    /// Has the radio follow, and say so, some time after it was asked.
    void ConfirmAfter(std::chrono::milliseconds delay) {
        Radio().onSet = [this, delay](MBN_RADIO wanted, ULONG* requestId) {
            *requestId = kRequest;
            m_machine.clock.At(m_machine.clock.Elapsed() + delay, [this, wanted] {
                Radio().state = wanted;
                m_sink.Complete(&Radio(), kRequest);
            });
            return S_OK;
        };
    }

    /// Has the radio follow some time after it was asked, without a word.
    void FollowAfter(std::chrono::milliseconds delay) {
        Radio().onSet = [this, delay](MBN_RADIO wanted, ULONG* requestId) {
            *requestId = kRequest;
            m_machine.clock.At(m_machine.clock.Elapsed() + delay, [this, wanted] { Radio().state = wanted; });
            return S_OK;
        };
    }

    /// After an exception out of the middle of a switch the switch has failed, and nothing of it
    /// is left: no mark, no reference, no held lock.
    void ExpectGivenUpWithNothingLeft() {
        EXPECT_THAT(m_machine.log.At(kError),
                    ElementsAre(Error(kSwitch, L"Exception in SwitchWwanStatus()")));
        EXPECT_EQ(Lines().back(), TraceOut(kSwitch, L"WWAN switching Status = 0"));
        EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
        EXPECT_EQ(Radio().References(), 0);
        bool isLockFree = false;
        std::thread([&isLockFree] {
            isLockFree = WwanState::switchLock.try_lock();
            if (isLockFree) {
                WwanState::switchLock.unlock();
            }
        }).join();
        EXPECT_TRUE(isLockFree);
    }

    Machine m_machine;
    RadioLedger m_ledger;
    FakeModems m_modems{{MBN_RADIO_ON}};
    HeldSink m_sink;
};

TEST_F(WwanSwitchTest, CompletionDuringTheWaitEndsTheSwitch) {
    ConfirmAfter(250ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Radio().sets, ElementsAre(MBN_RADIO_OFF));
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                            Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                            Information(kSwitch, L"Change to softwareRadioState : 0"),
                            Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 42"),
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

TEST_F(WwanSwitchTest, CompletionOnAThreadOfItsOwnEndsTheSwitch) {
    Radio().onSet = [this](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        m_machine.clock.AtOnOwnThread(m_machine.clock.Elapsed() + 250ms, [this, wanted] {
            Radio().state = wanted;
            m_sink.Complete(&Radio(), kRequest);
        });
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(m_machine.clock.Elapsed(), 350ms);
    EXPECT_THAT(m_machine.log.Of("CMbnSinks::OnSetSoftwareRadioStateComplete"),
                Contains(Information("CMbnSinks::OnSetSoftwareRadioStateComplete",
                                     L"Not Processing OnSetSoftwareRadioStateComplete")));
}

TEST_F(WwanSwitchTest, CompletionOutOfTheRequestItselfEndsTheSwitch) {
    Radio().onSet = [this](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        Radio().state = wanted;
        m_sink.Complete(&Radio(), kRequest);
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(m_machine.clock.Elapsed(), 200ms);
}

TEST_F(WwanSwitchTest, CompletionAfterTheWaitIsTakenForTheNextRequest) {
    ConfirmAfter(7300ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    // The second request's own completion comes too late to be waited for.
    EXPECT_THAT(Radio().sets, ElementsAre(MBN_RADIO_OFF, MBN_RADIO_OFF));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000, 50, 500, 100, 7000));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New SoftwareRadioState = 0 in iteration 1")));
}

TEST_F(WwanSwitchTest, AnyCompletionWakesTheSwitch) {
    Radio().onSet = [this](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        Radio().state = wanted;
        m_sink.Complete(&Radio(), kRequest + 1000, E_FAIL);
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(m_machine.clock.Elapsed(), 200ms);
}

TEST_F(WwanSwitchTest, SwitchingOnAsksForOn) {
    Radio().state = MBN_RADIO_OFF;
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOn, kRespectsAirplane));
    EXPECT_THAT(Radio().sets, ElementsAre(MBN_RADIO_ON));
    EXPECT_EQ(Radio().state, MBN_RADIO_ON);
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"Change to softwareRadioState : 1")));
}

TEST_F(WwanSwitchTest, AnyNumberButZeroMeansOn) {
    Radio().state = MBN_RADIO_OFF;
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(2, kRespectsAirplane));
    EXPECT_EQ(Radio().state, MBN_RADIO_ON);
    EXPECT_TRUE(SwitchWwanStatus(2, kRespectsAirplane));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"No change in WWAN Status Needed.")));
}

TEST_F(WwanSwitchTest, RadioInTheWantedStateIsOnlyAsked) {
    EXPECT_TRUE(SwitchWwanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current Status : 1, To Change Status = 1"),
                                     Information(kSwitch, L"No change in WWAN Status Needed."),
                                     TraceOut(kSwitch, L"WWAN switching Status = 1")));
    EXPECT_THAT(Radio().sets, IsEmpty());
    EXPECT_EQ(m_machine.adapters.Calls(), 0);
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
    Radio().state = MBN_RADIO_OFF;
    EXPECT_FALSE(SwitchWwanStatus(kRadioOn, kRespectsAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 1"),
                                     Information(kSwitch, L"SwitchWwanStatus not needed for New status = 1"),
                                     TraceOut(kSwitch, L"WWAN switching Status = 0")));
    EXPECT_THAT(m_modems.manager.asked, IsEmpty());
}

TEST_F(WwanSwitchTest, SwitchingOnInAirplaneModeGoesOnWhenTheCallerIgnoresIt) {
    m_machine.SetAirplaneMode(true);
    Radio().state = MBN_RADIO_OFF;
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_EQ(Radio().state, MBN_RADIO_ON);
}

TEST_F(WwanSwitchTest, SwitchingOffIsNotRefusedInAirplaneMode) {
    m_machine.SetAirplaneMode(true);
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kRespectsAirplane));
    EXPECT_EQ(Radio().state, MBN_RADIO_OFF);
}

TEST_F(WwanSwitchTest, MarkIsSetAfterTheEthernetTestAndDuringTheSwitchOnly) {
    std::vector<std::string> steps;
    const auto note = [&steps](const char* step) {
        steps.push_back(std::string(step) + (WwanState::NetworkChangedForSetRadio ? ", mark" : ", no mark"));
    };
    m_machine.adapters.AnswerNext([&](IP_ADAPTER_INFO*, ULONG*) -> DWORD {
        note("Ethernet test");
        return ERROR_SUCCESS;
    });
    Radio().onSet = [&](MBN_RADIO wanted, ULONG* requestId) {
        note("request");
        *requestId = kRequest;
        Radio().state = wanted;
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(steps, ElementsAre("Ethernet test, no mark", "request, mark"));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, SwitchingOffWithoutEthernetLeavesAMark) {
    ConfirmAfter(10ms);
    SwitchWwanStatus(kRadioOff, kIgnoresAirplane);
    EXPECT_TRUE(WwanState::offWithoutEthernet);
    m_machine.PlugCableIn();
    SwitchWwanStatus(kRadioOn, kIgnoresAirplane);
    SwitchWwanStatus(kRadioOff, kIgnoresAirplane);
    EXPECT_TRUE(WwanState::offWithoutEthernet) << "nobody takes it back";
}

TEST_F(WwanSwitchTest, SwitchingOffWithTheCableInLeavesNoMark) {
    m_machine.PlugCableIn();
    ConfirmAfter(10ms);
    SwitchWwanStatus(kRadioOff, kIgnoresAirplane);
    EXPECT_FALSE(WwanState::offWithoutEthernet);
    EXPECT_GT(m_machine.adapters.Calls(), 0);
}

TEST_F(WwanSwitchTest, SwitchingOnLeavesNoMark) {
    Radio().state = MBN_RADIO_OFF;
    ConfirmAfter(10ms);
    SwitchWwanStatus(kRadioOn, kIgnoresAirplane);
    EXPECT_FALSE(WwanState::offWithoutEthernet);
}

TEST_F(WwanSwitchTest, UnreadableAdaptersDoNotStopTheSwitch) {
    m_machine.HideAdapters();
    ConfirmAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(Radio().state, MBN_RADIO_OFF);
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
    m_sink.Complete(&Radio());
    FollowAfter(7050ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Radio().sets, ElementsAre(MBN_RADIO_OFF, MBN_RADIO_ON));
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
    EXPECT_THAT(Radio().sets, IsEmpty());
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio) << "else the sink would ignore the user";
}

TEST_F(WwanSwitchTest, RadioThatCannotBeReachedEndsTheSwitch) {
    // The query before goes well; then the modem is gone.
    m_modems.manager.onGetInterface = [](int call) { return call == 1 ? S_OK : E_FAIL; };
    EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                                     Information(kSwitch, L"Change to softwareRadioState : 0"),
                                     Error(kSwitch, L"GetRadioInterface Failed"),
                                     TraceOut(kSwitch, L"WWAN switching Status = 0")));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, RadioThatRefusesForAWhileIsAskedAgain) {
    Radio().onSet = [this](MBN_RADIO wanted, ULONG* requestId) {
        if (Radio().sets.size() < 5) {
            return E_PENDING;
        }
        *requestId = kRequest;
        Radio().state = wanted;
        m_sink.Complete(&Radio(), kRequest);
        return S_OK;
    };
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
    Radio().onSet = [this](MBN_RADIO wanted, ULONG*) {
        if (Radio().sets.size() == 5) {
            m_machine.clock.At(m_machine.clock.Elapsed() + 1000ms, [this, wanted] {
                Radio().state = wanted;
                m_sink.Complete(&Radio());
            });
        }
        return E_FAIL;
    };
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
    EXPECT_THAT(Radio().sets, SizeIs(5));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 100, 100, 100, 100, 7000));
}

TEST_F(WwanSwitchTest, RadioThatFollowsWithoutAWordIsFoundByTheLookAfterTheTimeout) {
    FollowAfter(3000ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(
        Lines(),
        ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                    Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                    Information(kSwitch, L"Change to softwareRadioState : 0"),
                    Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 42"),
                    Information(kSwitch, L"WaitForSingleObject returned = 258 , bOnOffStatus = 0"),
                    Information(kSwitch, L"Got new WWAN Status = 0 , bOnOffStatus = 0"),
                    Information(kSwitch, L"New Radio State is Set after timeout. So exiting from loop"),
                    TraceOut(kSwitch, L"WWAN switching Status = 1")));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000, 50));
}

TEST_F(WwanSwitchTest, RadioThatNeverConfirmsIsGivenUpAfterTenIterationsWithSuccess) {
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(Radio().state, MBN_RADIO_ON);
    EXPECT_THAT(Radio().sets, AllOf(SizeIs(10), Each(MBN_RADIO_OFF)));
    EXPECT_THAT(m_machine.clock.Waits(), AllOf(SizeIs(10), Each(7000)));
    EXPECT_EQ(m_machine.clock.Elapsed(), 50ms + 50ms + 10 * (100ms + 7000ms + 50ms + 500ms));
    const auto lines = Lines();
    EXPECT_THAT(std::vector(lines.end() - 5, lines.end()),
                ElementsAre(Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 10"),
                            Information(kSwitch, L"WaitForSingleObject returned = 258 , bOnOffStatus = 0"),
                            Information(kSwitch, L"Got new WWAN Status = 1 , bOnOffStatus = 0"),
                            Information(kSwitch, L"Retrying SetSoftwareRadioState = 9"),
                            TraceOut(kSwitch, L"WWAN switching Status = 1")));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, RadioThatConfirmsAnotherStateIsAskedAgain) {
    Radio().onSet = [this](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        if (Radio().sets.size() == 2) {
            Radio().state = wanted;
        }
        m_sink.Complete(&Radio(), kRequest);
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                            Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                            Information(kSwitch, L"Change to softwareRadioState : 0"),
                            Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 42"),
                            Information(kSwitch, L"WaitForSingleObject returned = 0 , bOnOffStatus = 0"),
                            Information(kSwitch, L"New SoftwareRadioState = 1 in iteration 0"),
                            Information(kSwitch, L"Got new WWAN Status = 1 , bOnOffStatus = 0"),
                            Information(kSwitch, L"Retrying SetSoftwareRadioState = 0"),
                            Information(kSwitch, L"SetSoftwareRadioState Radio State = 0, Request ID = 42"),
                            Information(kSwitch, L"WaitForSingleObject returned = 0 , bOnOffStatus = 0"),
                            Information(kSwitch, L"New SoftwareRadioState = 0 in iteration 1"),
                            Information(kSwitch,
                                        L"NewSoftwareRadioState and expected radio states match. Exiting.. "),
                            TraceOut(kSwitch, L"WWAN switching Status = 1")));
    EXPECT_THAT(m_machine.clock.SleepsAndWaits(), ElementsAre(50, 50, 100, 7000, 50, 500, 100, 7000));
}

TEST_F(WwanSwitchTest, RadioThatChangesItsMindBetweenTheTwoLooksCountsAsFollowing) {
    // The completion's radio says "on" still; the fresh look finds it off.
    Radio().onSet = [this](MBN_RADIO, ULONG* requestId) {
        *requestId = kRequest;
        m_sink.Complete(&Radio(), kRequest);
        Radio().onGet = [this](MBN_RADIO* state) {
            *state = MBN_RADIO_ON;
            Radio().onGet = nullptr;
            Radio().state = MBN_RADIO_OFF;
            return S_OK;
        };
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Information(
                             kSwitch, L"New Radio State is Set after timeout. So exiting from loop")));
}

TEST_F(WwanSwitchTest, LastRadioThatCannotBeAskedIsReportedAndLookedAtAfresh) {
    Radio().onSet = [this](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        Radio().state = wanted;
        m_sink.Complete(&Radio(), kRequest);
        Radio().onGet = [this](MBN_RADIO*) {
            Radio().onGet = nullptr;
            return E_FAIL;
        };
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(
        m_machine.log.At(kError),
        ElementsAre(Error(kSwitch, L"get_SoftwareRadioState failed with error: HRESULT : 0x80004005")));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"Got new WWAN Status = 0 , bOnOffStatus = 0")));
}

TEST_F(WwanSwitchTest, CompletionWithoutARadioIsReportedAndLookedAtAfresh) {
    Radio().onSet = [this](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        Radio().state = wanted;
        m_sink.Complete(nullptr, kRequest);
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(
        m_machine.log.At(kError),
        ElementsAre(Error(kSwitch, L"get_SoftwareRadioState failed with error: HRESULT : 0x80004003")));
    EXPECT_THAT(Lines(), Contains(Information(
                             kSwitch, L"New Radio State is Set after timeout. So exiting from loop")));
}

TEST_F(WwanSwitchTest, CompletionWithAnotherRadioObjectIsAskedInstead) {
    FakeRadio other{MBN_RADIO_OFF, "other"};
    Radio().onSet = [&](MBN_RADIO, ULONG* requestId) {
        *requestId = kRequest;
        m_sink.Complete(&other, kRequest);
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New SoftwareRadioState = 0 in iteration 0")));
    WwanState::lastRadio.store(nullptr);
}

TEST_F(WwanSwitchTest, RadioThatIsReplacedWhileItIsAskedStaysHeld) {
    FakeRadio other{MBN_RADIO_OFF, "other"};
    Radio().onSet = [&](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        m_sink.Complete(&other, kRequest);
        Radio().state = wanted;
        return S_OK;
    };
    other.onGet = [&](MBN_RADIO* state) {
        // The fake itself fails the test when nobody holds it after this.
        m_sink.Complete(&Radio(), kRequest);
        *state = MBN_RADIO_OFF;
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(other.References(), 0);
}

TEST_F(WwanSwitchTest, FailedWaitIsLookedAtLikeATimeout) {
    FollowAfter(10ms);
    const Rig::ScopedImport<&::WaitForSingleObject> fails{
        [](HANDLE, DWORD milliseconds) { return milliseconds == 7000; },
        [](HANDLE, DWORD) { return DWORD{WAIT_FAILED}; }};
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(),
                Contains(Information(kSwitch, L"WaitForSingleObject returned = -1 , bOnOffStatus = 0")));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"Got new WWAN Status = 0 , bOnOffStatus = 0")));
}

TEST_F(WwanSwitchTest, OfTwoModemsOnlyTheLastOneIsSwitched) {
    FakeModems modems{{MBN_RADIO_ON, MBN_RADIO_ON}};
    modems.radios[1].onSet = [&](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        modems.radios[1].state = wanted;
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(modems.radios[0].sets, IsEmpty());
    EXPECT_EQ(modems.radios[1].state, MBN_RADIO_OFF);
}

TEST_F(WwanSwitchTest, RadioIsReleasedAtTheEnd) {
    FollowAfter(10ms);
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(Radio().References(), 0);
    EXPECT_EQ(m_modems.interfaces[0].References(), 0);
    EXPECT_EQ(m_modems.manager.References(), 1) << "the published one";
}

TEST_F(WwanSwitchTest, ExceptionTakesTheMarkBackAndLeavesTheLock) {
    Radio().onSet = [](MBN_RADIO, ULONG*) -> HRESULT { throw std::runtime_error("out of order"); };
    EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current Status : 1, To Change Status = 0"),
                                     Information(kSwitch, L"Change to softwareRadioState : 0"),
                                     Error(kSwitch, L"Exception in SwitchWwanStatus()"),
                                     TraceOut(kSwitch, L"WWAN switching Status = 0")));
    ExpectGivenUpWithNothingLeft();
}

TEST_F(WwanSwitchTest, ExceptionOutOfTheWaitTakesTheMarkBackAndLeavesTheLock) {
    {
        const Rig::ScopedImport<&::WaitForSingleObject> throws{
            [](HANDLE, DWORD milliseconds) { return milliseconds == 7000; },
            [](HANDLE, DWORD) -> DWORD { throw std::runtime_error("out of order"); }};
        EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
        EXPECT_EQ(throws.Calls(), 1);
    }
    EXPECT_THAT(Radio().sets, ElementsAre(MBN_RADIO_OFF));
    ExpectGivenUpWithNothingLeft();
}

TEST_F(WwanSwitchTest, ExceptionOutOfTheLastRadioTakesTheMarkBackAndLeavesTheLock) {
    FakeRadio other{MBN_RADIO_OFF, "other"};
    other.onGet = [](MBN_RADIO*) -> HRESULT { throw DWORD{ERROR_CRC}; };
    Radio().onSet = [&](MBN_RADIO, ULONG* requestId) {
        *requestId = kRequest;
        m_sink.Complete(&other, kRequest);
        return S_OK;
    };
    EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(other.References(), 1) << "the published one";
    ExpectGivenUpWithNothingLeft();
    WwanState::lastRadio.store(nullptr);
}

TEST_F(WwanSwitchTest, ThrownWin32ErrorOutOfTheEventIsLogged) {
    const Rig::ScopedImport<&::CreateEventW> throws{
        [](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) -> HANDLE { throw DWORD{ERROR_CRC}; }};
    EXPECT_FALSE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kSwitch, L"Exception in SwitchWwanStatus()")));
    EXPECT_FALSE(WwanState::NetworkChangedForSetRadio);
}

TEST_F(WwanSwitchTest, SecondSwitchWaitsUntilTheFirstOneIsDone) {
    std::optional<std::thread> second;
    std::size_t setsMeanwhile = 0;
    Radio().onSet = [&](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        m_machine.clock.At(m_machine.clock.Elapsed() + 1000ms, [&, wanted] {
            if (!second) {
                second.emplace([] { SwitchWwanStatus(kRadioOn, kIgnoresAirplane); });
                Rig::Real<&::Sleep>(50);
                setsMeanwhile = Radio().sets.size();
            }
            Radio().state = wanted;
            m_sink.Complete(&Radio(), kRequest);
        });
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    ASSERT_TRUE(second);
    second->join();
    EXPECT_EQ(setsMeanwhile, 1U);
    EXPECT_THAT(Radio().sets, ElementsAre(MBN_RADIO_OFF, MBN_RADIO_ON));
    EXPECT_EQ(Radio().state, MBN_RADIO_ON);
}

TEST_F(WwanSwitchTest, QueryDoesNotWaitForASwitch) {
    std::optional<bool> asked;
    Radio().onSet = [&](MBN_RADIO wanted, ULONG* requestId) {
        *requestId = kRequest;
        m_machine.clock.AtOnOwnThread(m_machine.clock.Elapsed() + 200ms,
                                      [&] { asked = ServiceUtils::CheckWwanStatus(); });
        m_machine.clock.At(m_machine.clock.Elapsed() + 300ms, [&, wanted] {
            Radio().state = wanted;
            m_sink.Complete(&Radio(), kRequest);
        });
        return S_OK;
    };
    EXPECT_TRUE(SwitchWwanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(asked, true);
}

}  // namespace
}  // namespace RadioTests
