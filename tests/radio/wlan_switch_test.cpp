#include "radio/wlan_radio.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <thread>

#include "tests/radio/fake_wlan.h"
#include "tests/radio/machine.h"

namespace RadioTests {
namespace {

using namespace Rig::Lines;
using namespace std::chrono_literals;
using Orva::Shared::Level::kError;
using Orva::Shared::Level::kWarning;
using ServiceUtils::CheckWlanStatus;
using ServiceUtils::kRadioOff;
using ServiceUtils::kRadioOn;
using ServiceUtils::my_service_turnonoff_wifi;
using ServiceUtils::my_setwifitimeout;
using ServiceUtils::SwitchWlanStatus;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr char kSwitch[] = "ServiceUtils::SwitchWlanStatus";
constexpr unsigned char kIgnoresAirplane = 0;
constexpr unsigned char kRespectsAirplane = 1;
constexpr int kPasses = 81;

std::wstring RetryText(int pass) {
    return L"Could not Set WLAN state in all PHYs. So retrying in count = " + std::to_wstring(pass);
}

class WlanSwitchTest : public testing::Test {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kSwitch); }

    Machine m_machine;
    RadioLedger m_ledger;
};

/// Does something on another thread while a switch pauses between two passes. The switch goes on
/// when that is done, or (when that waits for the switch) after a while.
class DuringThePause {
  public:
    DuringThePause(Rig::TestClock& clock, std::function<void()> what) {
        clock.At(50ms, [this, what = std::move(what)] {
            m_other = std::thread([this, what] {
                what();
                m_isDone = true;
            });
            for (int i = 0; i < 5000 && !m_isDone; ++i) {
                Rig::Real<&::Sleep>(DWORD{1});
            }
            m_wasDone = m_isDone;
        });
    }
    DuringThePause(const DuringThePause&) = delete;
    DuringThePause& operator=(const DuringThePause&) = delete;
    ~DuringThePause() {
        if (m_other.joinable()) {
            m_other.join();
        }
    }

    [[nodiscard]] bool WasDone() const { return m_wasDone; }

  private:
    std::thread m_other;
    std::atomic<bool> m_isDone = false;
    bool m_wasDone = false;
};

TEST_F(WlanSwitchTest, SwitchingOffTurnsEveryPhyOff) {
    FakeWlan wlan{{On(), On()}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(wlan.IsOff());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0"),
                                     Verbose(kSwitch, L"Linkvane set WIFI radio to dot11_radio_state_off"),
                                     Verbose(kSwitch, L"The number of supported PHY types : 2"),
                                     Information(kSwitch, L"Set WLAN state 0 for PHY 0 success"),
                                     Information(kSwitch, L"Set WLAN state 0 for PHY 1 success"),
                                     Information(kSwitch, L"New WIFI state : 0"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 1")));
}

TEST_F(WlanSwitchTest, SwitchingOnTurnsEveryPhyOn) {
    FakeWlan wlan{{Off(), On()}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kRespectsAirplane));
    EXPECT_TRUE(wlan.IsOn());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 1"),
                                     Information(kSwitch, L"Current WLAN Status : 0, To Change Status = 1"),
                                     Verbose(kSwitch, L"Linkvane set WIFI radio to dot11_radi_state_on"),
                                     Verbose(kSwitch, L"The number of supported PHY types : 2"),
                                     Information(kSwitch, L"Set WLAN state 1 for PHY 0 success"),
                                     Information(kSwitch, L"Set WLAN state 1 for PHY 1 success"),
                                     Information(kSwitch, L"New WIFI state : 1"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 1")));
}

TEST_F(WlanSwitchTest, QuerySwitchAndQueryMakeTheseCalls) {
    FakeWlan wlan{{On()}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(wlan.Calls(),
                ElementsAre("Open 2", "Enumerate", "Query 0", "Free record", "Free list", "Close",  // before
                            "Open 2", "Enumerate", "Capability 0", "Set 0 phy 0 off",  // the switch
                            "Open 2", "Enumerate", "Query 0", "Free record", "Free list", "Close",  // after
                            "Free capability", "Free list", "Close"));
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
}

TEST_F(WlanSwitchTest, ServiceRemembersWhatItSetItself) {
    FakeWlan wlan{{Off()}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOff);
}

TEST_F(WlanSwitchTest, AnyNumberButZeroMeansOn) {
    FakeWlan wlan{{Off()}};
    EXPECT_TRUE(SwitchWlanStatus(2, kIgnoresAirplane));
    EXPECT_TRUE(wlan.IsOn());
    EXPECT_TRUE(SwitchWlanStatus(2, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"No change in WLAN Status Needed.")));
}

TEST_F(WlanSwitchTest, RadioInTheWantedStateIsOnlyAsked) {
    for (const Phy phy : {On(), Off()}) {
        FakeWlan wlan{{phy}};
        const auto wanted = phy.software == dot11_radio_state_on ? kRadioOn : kRadioOff;
        EXPECT_TRUE(SwitchWlanStatus(wanted, kIgnoresAirplane));
        EXPECT_THAT(wlan.Calls(),
                    ElementsAre("Open 2", "Enumerate", "Query 0", "Free record", "Free list", "Close"));
    }
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 1"),
                                     Information(kSwitch, L"No change in WLAN Status Needed."),
                                     TraceOut(kSwitch, L"WLAN switching Status = 1"),
                                     TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 0, To Change Status = 0"),
                                     Information(kSwitch, L"No change in WLAN Status Needed."),
                                     TraceOut(kSwitch, L"WLAN switching Status = 1")));
}

TEST_F(WlanSwitchTest, SwitchingOnIsRefusedInAirplaneMode) {
    m_machine.SetAirplaneMode(true);
    FakeWlan wlan{{Off()}};
    EXPECT_FALSE(SwitchWlanStatus(kRadioOn, kRespectsAirplane));
    EXPECT_THAT(wlan.Calls(), IsEmpty());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 1"),
                                     Information(kSwitch, L"SwitchWlanStatus not needed for New status = 1"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 0")));
}

TEST_F(WlanSwitchTest, SwitchingOnInAirplaneModeGoesOnWhenTheCallerIgnoresIt) {
    m_machine.SetAirplaneMode(true);
    FakeWlan wlan{{Off()}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_TRUE(wlan.IsOn());
}

TEST_F(WlanSwitchTest, SwitchingOffIsNotRefusedInAirplaneMode) {
    m_machine.SetAirplaneMode(true);
    FakeWlan wlan{{On()}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kRespectsAirplane));
    EXPECT_TRUE(wlan.IsOff());
    EXPECT_THAT(m_machine.log.At(kError), IsEmpty());
}

TEST_F(WlanSwitchTest, AirplaneModeIsAskedForEverySwitch) {
    FakeWlan wlan{{Off()}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_machine.log.Lines(),
                Contains(TraceOut("ServiceUtils::CheckAirplaneMode", L"Airplane Mode Status: 0 ")));
}

TEST_F(WlanSwitchTest, FailedOpenGivesFalse) {
    FakeWlan wlan{{On()}};
    wlan.Fail(WlanCall::kOpen, 2, ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0"),
                                     Error(kSwitch, L"WlanOpenHandle failed with error: 1062"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 0")));
    EXPECT_TRUE(wlan.IsOn());
}

TEST_F(WlanSwitchTest, FailedEnumerationGivesFalseAndClosesTheHandle) {
    FakeWlan wlan{{On()}};
    wlan.Fail(WlanCall::kEnumerate, 2, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0"),
                                     Error(kSwitch, L"WlanEnumInterfaces failed with error: 8"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 0")));
    EXPECT_EQ(wlan.Calls().back(), "Close");
}

TEST_F(WlanSwitchTest, NoListGivesFalse) {
    FakeWlan wlan{{Off()}};
    wlan.GiveNothingFor(WlanCall::kEnumerate);
    EXPECT_FALSE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Error(kSwitch, L"Interface list is empty")));
}

TEST_F(WlanSwitchTest, ListWithoutEntriesSwitchesNobody) {
    FakeWlan wlan{std::vector<WlanAdapter>{}};
    EXPECT_FALSE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(wlan.CallsOf(WlanCall::kCapability), ElementsAre("Capability nobody"));
    EXPECT_THAT(wlan.CallsOf(WlanCall::kSet), IsEmpty());
    EXPECT_THAT(Lines(), Contains(Error(kSwitch, L"WlanGetInterfaceCapability failed !err is 1168")));
}

TEST_F(WlanSwitchTest, FailedCapabilityGivesFalseAndLeavesTheFlagsAlone) {
    FakeWlan wlan{{On()}};
    wlan.Fail(WlanCall::kCapability, 1, ERROR_INVALID_STATE);
    my_service_turnonoff_wifi = kRadioOn;
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0"),
                                     Verbose(kSwitch, L"Linkvane set WIFI radio to dot11_radio_state_off"),
                                     Error(kSwitch, L"WlanGetInterfaceCapability failed !err is 5023"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 0")));
    EXPECT_THAT(wlan.CallsOf(WlanCall::kSet), IsEmpty());
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_FALSE(my_setwifitimeout);
}

TEST_F(WlanSwitchTest, NoCapabilityGivesFalse) {
    FakeWlan wlan{{On()}};
    wlan.GiveNothingFor(WlanCall::kCapability);
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Error(kSwitch, L"WlanGetInterfaceCapability failed !err is 0")));
}

TEST_F(WlanSwitchTest, AdapterWithoutPhysIsSwitchedAtOnce) {
    // It reads as on, so that only switching off comes to the PHYs.
    FakeWlan wlan{std::vector<Phy>{}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(wlan.CallsOf(WlanCall::kSet), IsEmpty());
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 1")));
}

TEST_F(WlanSwitchTest, All64PhysAreSwitched) {
    FakeWlan wlan{std::vector<Phy>(WLAN_MAX_PHY_INDEX, On())};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(wlan.IsOff());
    EXPECT_THAT(wlan.CallsOf(WlanCall::kSet), SizeIs(WLAN_MAX_PHY_INDEX));
}

TEST_F(WlanSwitchTest, CountBeyondWhatAnInterfaceCanHaveIsCut) {
    FakeWlan wlan{std::vector<Phy>(WLAN_MAX_PHY_INDEX, Off())};
    wlan.ClaimPhys(0xFFFFFFFF);
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Verbose(kSwitch, L"The number of supported PHY types : 4294967295")));
    EXPECT_THAT(wlan.CallsOf(WlanCall::kSet), SizeIs(WLAN_MAX_PHY_INDEX));
}

TEST_F(WlanSwitchTest, OfTwoAdaptersOnlyTheFirstIsSwitched) {
    WlanAdapter second = AdapterWithPhys({On()});
    second.id.Data1 = 2;
    FakeWlan wlan{{AdapterWithPhys({On()}), second}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(wlan.IsOff(0));
    EXPECT_TRUE(wlan.IsOn(1));
}

TEST_F(WlanSwitchTest, PhyThatRefusesForAWhileIsTriedAgainWithAllOthers) {
    FakeWlan wlan{{On(), Refusing(On(), 2)}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(wlan.IsOff());
    EXPECT_THAT(
        Lines(),
        ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                    Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0"),
                    Verbose(kSwitch, L"Linkvane set WIFI radio to dot11_radio_state_off"),
                    Verbose(kSwitch, L"The number of supported PHY types : 2"),
                    Information(kSwitch, L"Set WLAN state 0 for PHY 0 success"),
                    Error(kSwitch, L"Set WLAN state failed!err is 31"), Warning(kSwitch, RetryText(0)),
                    Information(kSwitch, L"Set WLAN state 0 for PHY 0 success"),
                    Error(kSwitch, L"Set WLAN state failed!err is 31"), Warning(kSwitch, RetryText(1)),
                    Information(kSwitch, L"Set WLAN state 0 for PHY 0 success"),
                    Information(kSwitch, L"Set WLAN state 0 for PHY 1 success"),
                    Information(kSwitch, L"New WIFI state : 0"),
                    TraceOut(kSwitch, L"WLAN switching Status = 1")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(100, 100));
    EXPECT_FALSE(my_setwifitimeout);
}

TEST_F(WlanSwitchTest, PhyThatRefusesForEverEndsTheSwitchAfter81Passes) {
    FakeWlan wlan{{On(), Refusing(On())}};
    my_service_turnonoff_wifi = kRadioOn;
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(wlan.CallsOf(WlanCall::kSet), SizeIs(2 * kPasses));
    EXPECT_THAT(m_machine.clock.Sleeps(), AllOf(SizeIs(kPasses), Each(100)));
    const auto warnings = m_machine.log.At(kWarning);
    EXPECT_THAT(warnings, SizeIs(kPasses));
    EXPECT_EQ(warnings.back(), Warning(kSwitch, RetryText(80)));
    const auto lines = Lines();
    EXPECT_EQ(lines.at(lines.size() - 2), Error(kSwitch, L"WlanSetInterface failed"));
    EXPECT_EQ(lines.back(), TraceOut(kSwitch, L"WLAN switching Status = 0"));
    EXPECT_TRUE(my_setwifitimeout);
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn) << "not every PHY took the new state";
}

TEST_F(WlanSwitchTest, AfterRunningOutTheRadioReadsAsOffWithoutAsking) {
    FakeWlan wlan{{On(), Refusing(On())}};
    SwitchWlanStatus(kRadioOff, kIgnoresAirplane);
    wlan.ForgetCalls();
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(wlan.Calls(), IsEmpty());
}

TEST_F(WlanSwitchTest, AfterRunningOutASwitchOffSucceedsWithoutAsking) {
    FakeWlan wlan{{On(), Refusing(On())}};
    SwitchWlanStatus(kRadioOff, kIgnoresAirplane);
    wlan.ForgetCalls();
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(wlan.Calls(), IsEmpty());
    EXPECT_TRUE(my_setwifitimeout);
}

TEST_F(WlanSwitchTest, AfterRunningOutASwitchOnThatSucceedsBringsTheQueryBack) {
    FakeWlan wlan{{On(), Refusing(On(), kPasses)}};
    SwitchWlanStatus(kRadioOff, kIgnoresAirplane);
    ASSERT_TRUE(my_setwifitimeout);
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_TRUE(CheckWlanStatus());
}

TEST_F(WlanSwitchTest, SuccessInTheLastPassCountsAsBothSuccessAndRunningOut) {
    FakeWlan wlan{{Refusing(On(), kPasses - 1)}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(wlan.IsOff());
    EXPECT_TRUE(my_setwifitimeout);
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOff);
    EXPECT_THAT(wlan.CallsOf(WlanCall::kSet), SizeIs(kPasses));
    EXPECT_THAT(m_machine.clock.Sleeps(), SizeIs(kPasses - 1));
    const auto lines = Lines();
    EXPECT_THAT(
        std::vector(lines.end() - 4, lines.end()),
        ElementsAre(Information(kSwitch, L"Set WLAN state 0 for PHY 0 success"),
                    Error(kSwitch, L"WlanSetInterface failed"), Information(kSwitch, L"New WIFI state : 0"),
                    TraceOut(kSwitch, L"WLAN switching Status = 1")));
}

TEST_F(WlanSwitchTest, QueryDoesNotWaitForASwitch) {
    FakeWlan wlan{{Refusing(On(), 1)}};
    bool asked = false;
    const DuringThePause query{m_machine.clock, [&asked] { asked = CheckWlanStatus(); }};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(query.WasDone());
    EXPECT_TRUE(asked);
    EXPECT_TRUE(wlan.IsOff());
}

TEST_F(WlanSwitchTest, SecondSwitchDoesNotWaitForTheFirstOne) {
    FakeWlan wlan{{Refusing(On(), 1)}};
    bool switched = false;
    const DuringThePause second{m_machine.clock,
                                [&switched] { switched = SwitchWlanStatus(kRadioOff, kIgnoresAirplane); }};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(second.WasDone());
    EXPECT_TRUE(switched);
    EXPECT_EQ(wlan.Count(WlanCall::kSet), 3) << "refused, the second switch's, the next pass";
}

TEST_F(WlanSwitchTest, SwitchOnInTheLastPassReadsAsOffAfterwards) {
    FakeWlan wlan{{Refusing(Off(), kPasses - 1)}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_TRUE(wlan.IsOn());
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 0")));
}

TEST_F(WlanSwitchTest, SuccessInTheLastPassButOneIsAPlainSuccess) {
    FakeWlan wlan{{Refusing(On(), kPasses - 2)}};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_THAT(Lines(), Not(Contains(Error(kSwitch, L"WlanSetInterface failed"))));
}

TEST_F(WlanSwitchTest, FailedLookAfterwardsReadsAsOff) {
    FakeWlan wlan{{Off()}};
    wlan.Fail(WlanCall::kQuery, 2, ERROR_INVALID_STATE);
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 0")));
}

/// A call out of the switch itself: the queries before and after catch what they meet.
struct ThrowingCall {
    WlanCall which;
    int nth;
};

void PrintTo(const ThrowingCall& tested, std::ostream* out) {
    *out << testing::PrintToString(tested.which) << tested.nth;
}

class WlanSwitchThrowsTest : public WlanSwitchTest, public testing::WithParamInterface<ThrowingCall> {};

TEST_P(WlanSwitchThrowsTest, ExceptionIsLoggedAndEverythingGivenBack) {
    FakeWlan wlan{{On(), On()}};
    wlan.At(GetParam().which, GetParam().nth, []() -> DWORD { throw std::runtime_error("out of order"); });
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kSwitch, L"Exception in SwitchWlanStatus()")));
    EXPECT_EQ(Lines().back(), TraceOut(kSwitch, L"WLAN switching Status = 0"));
    EXPECT_EQ(wlan.Held(), 0U);
    EXPECT_FALSE(my_setwifitimeout);
}

INSTANTIATE_TEST_SUITE_P(EachCall, WlanSwitchThrowsTest,
                         testing::Values(ThrowingCall{WlanCall::kOpen, 2},
                                         ThrowingCall{WlanCall::kEnumerate, 2},
                                         ThrowingCall{WlanCall::kCapability, 1},
                                         ThrowingCall{WlanCall::kSet, 1}, ThrowingCall{WlanCall::kSet, 2}));

TEST_F(WlanSwitchTest, ExceptionOutOfTheQueryReadsAsOff) {
    FakeWlan wlan{{On()}};
    wlan.At(WlanCall::kQuery, 1, []() -> DWORD { throw DWORD{ERROR_ACCESS_DENIED}; });
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(wlan.IsOn()) << "it was taken for off already";
}

}  // namespace
}  // namespace RadioTests
