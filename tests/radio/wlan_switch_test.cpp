#include "radio/wlan_radio.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <thread>

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

class WlanSwitchTest : public RadioTest {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kSwitch); }
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
    m_notebook.SetPhys({On(), On()});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOff());
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
    m_notebook.SetPhys({Off(), On()});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kRespectsAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOn());
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
    m_notebook.SetPhys({On()});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_notebook.Calls(),
                ElementsAre("WlanOpenHandle version 2", "WlanEnumInterfaces", "WlanQueryInterface",
                            "WlanCloseHandle",  // before
                            "WlanOpenHandle version 2", "WlanEnumInterfaces", "WlanGetInterfaceCapability",
                            "WlanSetInterface PHY 0 to 2",  // the switch
                            "WlanOpenHandle version 2", "WlanEnumInterfaces", "WlanQueryInterface",
                            "WlanCloseHandle",  // after
                            "WlanCloseHandle"));
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
}

TEST_F(WlanSwitchTest, ServiceRemembersWhatItSetItself) {
    m_notebook.SetPhys({Off()});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOff);
}

TEST_F(WlanSwitchTest, AnyNumberButZeroMeansOn) {
    m_notebook.SetPhys({Off()});
    EXPECT_TRUE(SwitchWlanStatus(2, kIgnoresAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_TRUE(SwitchWlanStatus(2, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"No change in WLAN Status Needed.")));
}

TEST_F(WlanSwitchTest, RadioInTheWantedStateIsOnlyAsked) {
    for (const Phy phy : {On(), Off()}) {
        m_notebook.SetPhys({phy});
        const auto wanted = phy.software == ::Notebook::kRadioOn ? kRadioOn : kRadioOff;
        EXPECT_TRUE(SwitchWlanStatus(wanted, kIgnoresAirplane));
        EXPECT_THAT(m_notebook.Calls(), ElementsAre("WlanOpenHandle version 2", "WlanEnumInterfaces",
                                                    "WlanQueryInterface", "WlanCloseHandle"));
        m_notebook.ForgetCalls();
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
    m_notebook.SetPhys({Off()});
    EXPECT_FALSE(SwitchWlanStatus(kRadioOn, kRespectsAirplane));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 1"),
                                     Information(kSwitch, L"SwitchWlanStatus not needed for New status = 1"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 0")));
}

TEST_F(WlanSwitchTest, SwitchingOnInAirplaneModeGoesOnWhenTheCallerIgnoresIt) {
    m_machine.SetAirplaneMode(true);
    m_notebook.SetPhys({Off()});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOn());
}

TEST_F(WlanSwitchTest, SwitchingOffIsNotRefusedInAirplaneMode) {
    m_machine.SetAirplaneMode(true);
    m_notebook.SetPhys({On()});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kRespectsAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_THAT(m_machine.log.At(kError), IsEmpty());
}

TEST_F(WlanSwitchTest, AirplaneModeIsAskedForEverySwitch) {
    m_notebook.SetPhys({Off()});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_machine.log.Lines(),
                Contains(TraceOut("ServiceUtils::CheckAirplaneMode", L"Airplane Mode Status: 0 ")));
}

TEST_F(WlanSwitchTest, FailedOpenGivesFalse) {
    m_notebook.SetPhys({On()});
    m_notebook.Fail(Call::WlanOpenHandle, 2, ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0"),
                                     Error(kSwitch, L"WlanOpenHandle failed with error: 1062"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 0")));
    EXPECT_TRUE(m_notebook.WlanIsOn());
}

TEST_F(WlanSwitchTest, FailedEnumerationGivesFalseAndClosesTheHandle) {
    m_notebook.SetPhys({On()});
    m_notebook.Fail(Call::WlanEnumInterfaces, 2, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0"),
                                     Error(kSwitch, L"WlanEnumInterfaces failed with error: 8"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 0")));
    EXPECT_EQ(m_notebook.Calls().back(), "WlanCloseHandle");
}

TEST_F(WlanSwitchTest, NoListGivesFalse) {
    m_notebook.SetPhys({Off()});
    m_notebook.GiveNothing(Call::WlanEnumInterfaces);
    EXPECT_FALSE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Error(kSwitch, L"Interface list is empty")));
}

TEST_F(WlanSwitchTest, ListWithoutEntriesSwitchesNobody) {
    m_notebook.Make({.wlanAdapters = 0});
    EXPECT_FALSE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(m_notebook.Calls(Call::WlanSetInterface), IsEmpty());
    EXPECT_THAT(Lines(), Contains(Error(kSwitch, L"WlanGetInterfaceCapability failed !err is 1168")));
}

TEST_F(WlanSwitchTest, FailedCapabilityGivesFalseAndLeavesTheFlagsAlone) {
    m_notebook.SetPhys({On()});
    m_notebook.Fail(Call::WlanGetInterfaceCapability, 1, ERROR_INVALID_STATE);
    my_service_turnonoff_wifi = kRadioOn;
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0"),
                                     Verbose(kSwitch, L"Linkvane set WIFI radio to dot11_radio_state_off"),
                                     Error(kSwitch, L"WlanGetInterfaceCapability failed !err is 5023"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 0")));
    EXPECT_THAT(m_notebook.Calls(Call::WlanSetInterface), IsEmpty());
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_FALSE(my_setwifitimeout);
}

TEST_F(WlanSwitchTest, NoCapabilityGivesFalse) {
    m_notebook.SetPhys({On()});
    m_notebook.GiveNothing(Call::WlanGetInterfaceCapability);
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Error(kSwitch, L"WlanGetInterfaceCapability failed !err is 0")));
}

TEST_F(WlanSwitchTest, AdapterWithoutPhysIsSwitchedAtOnce) {
    // It reads as on, so that only switching off comes to the PHYs.
    m_notebook.SetPhys({});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_notebook.Calls(Call::WlanSetInterface), IsEmpty());
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 1")));
}

TEST_F(WlanSwitchTest, All64PhysAreSwitched) {
    m_notebook.SetPhys(std::vector<Phy>(WLAN_MAX_PHY_INDEX, On()));
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_THAT(m_notebook.Calls(Call::WlanSetInterface), SizeIs(WLAN_MAX_PHY_INDEX));
}

TEST_F(WlanSwitchTest, CountBeyondWhatAnInterfaceCanHaveIsCut) {
    m_notebook.SetPhys(std::vector<Phy>(WLAN_MAX_PHY_INDEX, Off()));
    const Rig::ScopedImport<&::WlanGetInterfaceCapability> boasts{
        Rig::kWrapping, [](const auto& device, HANDLE client, const GUID* id, void* reserved,
                           WLAN_INTERFACE_CAPABILITY** capability) {
            const DWORD result = device.Original(client, id, reserved, capability);
            (*capability)->dwNumberOfSupportedPhys = 0xFFFFFFFF;
            return result;
        }};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Verbose(kSwitch, L"The number of supported PHY types : 4294967295")));
    EXPECT_THAT(m_notebook.Calls(Call::WlanSetInterface), SizeIs(WLAN_MAX_PHY_INDEX));
}

TEST_F(WlanSwitchTest, OfTwoAdaptersOnlyTheFirstIsSwitched) {
    m_notebook.Make({.wlanAdapters = 2});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOff(0));
    EXPECT_TRUE(m_notebook.WlanIsOn(1));
}

TEST_F(WlanSwitchTest, PhyThatRefusesForAWhileIsTriedAgainWithAllOthers) {
    m_notebook.SetPhys({On(), Refusing(On(), 2)});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOff());
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
    m_notebook.SetPhys({On(), Refusing(On())});
    my_service_turnonoff_wifi = kRadioOn;
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_notebook.Calls(Call::WlanSetInterface), SizeIs(2 * kPasses));
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
    m_notebook.SetPhys({On(), Refusing(On())});
    SwitchWlanStatus(kRadioOff, kIgnoresAirplane);
    m_notebook.ForgetCalls();
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
}

TEST_F(WlanSwitchTest, AfterRunningOutASwitchOffSucceedsWithoutAsking) {
    m_notebook.SetPhys({On(), Refusing(On())});
    SwitchWlanStatus(kRadioOff, kIgnoresAirplane);
    m_notebook.ForgetCalls();
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_TRUE(my_setwifitimeout);
}

TEST_F(WlanSwitchTest, AfterRunningOutASwitchOnThatSucceedsBringsTheQueryBack) {
    m_notebook.SetPhys({On(), Refusing(On(), kPasses)});
    SwitchWlanStatus(kRadioOff, kIgnoresAirplane);
    ASSERT_TRUE(my_setwifitimeout);
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_TRUE(CheckWlanStatus());
}

TEST_F(WlanSwitchTest, SuccessInTheLastPassCountsAsBothSuccessAndRunningOut) {
    m_notebook.SetPhys({Refusing(On(), kPasses - 1)});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_TRUE(my_setwifitimeout);
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOff);
    EXPECT_THAT(m_notebook.Calls(Call::WlanSetInterface), SizeIs(kPasses));
    EXPECT_THAT(m_machine.clock.Sleeps(), SizeIs(kPasses - 1));
    const auto lines = Lines();
    EXPECT_THAT(
        std::vector(lines.end() - 4, lines.end()),
        ElementsAre(Information(kSwitch, L"Set WLAN state 0 for PHY 0 success"),
                    Error(kSwitch, L"WlanSetInterface failed"), Information(kSwitch, L"New WIFI state : 0"),
                    TraceOut(kSwitch, L"WLAN switching Status = 1")));
}

TEST_F(WlanSwitchTest, QueryDoesNotWaitForASwitch) {
    m_notebook.SetPhys({Refusing(On(), 1)});
    bool asked = false;
    const DuringThePause query{m_machine.clock, [&asked] { asked = CheckWlanStatus(); }};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(query.WasDone());
    EXPECT_TRUE(asked);
    EXPECT_TRUE(m_notebook.WlanIsOff());
}

TEST_F(WlanSwitchTest, SecondSwitchDoesNotWaitForTheFirstOne) {
    m_notebook.SetPhys({Refusing(On(), 1)});
    bool switched = false;
    const DuringThePause second{m_machine.clock,
                                [&switched] { switched = SwitchWlanStatus(kRadioOff, kIgnoresAirplane); }};
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(second.WasDone());
    EXPECT_TRUE(switched);
    EXPECT_EQ(m_notebook.Count(Call::WlanSetInterface), 3) << "refused, the second switch's, the next pass";
}

TEST_F(WlanSwitchTest, SwitchOnInTheLastPassReadsAsOffAfterwards) {
    m_notebook.SetPhys({Refusing(Off(), kPasses - 1)});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 0")));
}

TEST_F(WlanSwitchTest, SuccessInTheLastPassButOneIsAPlainSuccess) {
    m_notebook.SetPhys({Refusing(On(), kPasses - 2)});
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_THAT(Lines(), Not(Contains(Error(kSwitch, L"WlanSetInterface failed"))));
}

TEST_F(WlanSwitchTest, FailedLookAfterwardsReadsAsOff) {
    m_notebook.SetPhys({Off()});
    m_notebook.Fail(Call::WlanQueryInterface, 2, ERROR_INVALID_STATE);
    EXPECT_TRUE(SwitchWlanStatus(kRadioOn, kIgnoresAirplane));
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 0")));
}

/// A call out of the switch itself: the queries before and after catch what they meet.
struct ThrowingCall {
    Call which;
    int nth;
};

void PrintTo(const ThrowingCall& tested, std::ostream* out) {
    *out << testing::PrintToString(tested.which) << tested.nth;
}

class WlanSwitchThrowsTest : public WlanSwitchTest, public testing::WithParamInterface<ThrowingCall> {};

TEST_P(WlanSwitchThrowsTest, ExceptionIsLoggedAndEverythingGivenBack) {
    m_notebook.SetPhys({On(), On()});
    m_notebook.At(GetParam().which, GetParam().nth,
                  []() -> DWORD { throw std::runtime_error("out of order"); });
    EXPECT_FALSE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_THAT(m_machine.log.At(kError), ElementsAre(Error(kSwitch, L"Exception in SwitchWlanStatus()")));
    EXPECT_EQ(Lines().back(), TraceOut(kSwitch, L"WLAN switching Status = 0"));
    EXPECT_FALSE(my_setwifitimeout);
}

INSTANTIATE_TEST_SUITE_P(EachCall, WlanSwitchThrowsTest,
                         testing::Values(ThrowingCall{Call::WlanOpenHandle, 2},
                                         ThrowingCall{Call::WlanEnumInterfaces, 2},
                                         ThrowingCall{Call::WlanGetInterfaceCapability, 1},
                                         ThrowingCall{Call::WlanSetInterface, 1},
                                         ThrowingCall{Call::WlanSetInterface, 2}));

TEST_F(WlanSwitchTest, ExceptionOutOfTheQueryReadsAsOff) {
    m_notebook.SetPhys({On()});
    m_notebook.At(Call::WlanQueryInterface, 1, []() -> DWORD { throw DWORD{ERROR_ACCESS_DENIED}; });
    EXPECT_TRUE(SwitchWlanStatus(kRadioOff, kIgnoresAirplane));
    EXPECT_TRUE(m_notebook.WlanIsOn()) << "it was taken for off already";
}

}  // namespace
}  // namespace RadioTests
