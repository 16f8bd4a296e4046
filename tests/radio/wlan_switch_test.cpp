#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <vector>

#include "radio/wlan_radio.h"
#include "tests/radio/machine.h"

namespace RadioTests {
namespace {

using namespace Rig::Lines;
using namespace std::chrono_literals;
using Orva::Shared::Level::kWarning;
using ServiceUtils::CheckWlanStatus;
using ServiceUtils::kIgnoreAirplaneMode;
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
constexpr int kPasses = 81;

Rig::LogLine RetryLine(int pass) {
    return Warning(kSwitch,
                   L"Could not Set WLAN state in all PHYs. So retrying in count = " + std::to_wstring(pass));
}

class WlanSwitchTest : public RadioTest {
  protected:
    static bool SwitchOn() { return SwitchWlanStatus(kRadioOn, kIgnoreAirplaneMode); }
    static bool SwitchOff() { return SwitchWlanStatus(kRadioOff, kIgnoreAirplaneMode); }

    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kSwitch); }
    [[nodiscard]] int Requests() const { return m_notebook.Count(Call::WlanSetInterface); }
};

TEST_F(WlanSwitchTest, SwitchingOffTurnsEveryPhyOff) {
    m_notebook.SetPhys({On(), On()});
    EXPECT_TRUE(SwitchOff());
    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOff);
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
    EXPECT_TRUE(SwitchOn());
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 1, bCheckAirplaneStatus = 0"),
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
    EXPECT_TRUE(SwitchOff());
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

TEST_F(WlanSwitchTest, CallThatFailsOrGivesNothingLeavesTheRadioAndTheFlagsAlone) {
    struct Case {
        Call call;
        int nth;     ///< the query before comes first
        LONG error;  ///< zero: it gives nothing
        const wchar_t* line;
    };
    my_service_turnonoff_wifi = kRadioOn;
    const auto prepares = Verbose(kSwitch, L"Linkvane set WIFI radio to dot11_radio_state_off");
    for (const Case& broken :
         {Case{Call::WlanOpenHandle, 2, ERROR_SERVICE_NOT_ACTIVE, L"WlanOpenHandle failed with error: 1062"},
          Case{Call::WlanEnumInterfaces, 2, ERROR_NOT_ENOUGH_MEMORY,
               L"WlanEnumInterfaces failed with error: 8"},
          Case{Call::WlanEnumInterfaces, 2, ERROR_SUCCESS, L"Interface list is empty"},
          Case{Call::WlanGetInterfaceCapability, 1, ERROR_INVALID_STATE,
               L"WlanGetInterfaceCapability failed !err is 5023"},
          Case{Call::WlanGetInterfaceCapability, 1, ERROR_SUCCESS,
               L"WlanGetInterfaceCapability failed !err is 0"}}) {
        SCOPED_TRACE(broken.line);
        m_machine.log.Clear();
        m_notebook.Fail(broken.call, broken.nth, broken.error);
        EXPECT_FALSE(SwitchOff());
        EXPECT_TRUE(m_notebook.WlanIsOn());
        std::vector<Rig::LogLine> lines{
            TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
            Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0")};
        if (broken.call == Call::WlanGetInterfaceCapability) {
            lines.push_back(prepares);
        }
        lines.push_back(Error(kSwitch, broken.line));
        lines.push_back(TraceOut(kSwitch, L"WLAN switching Status = 0"));
        EXPECT_EQ(Lines(), lines);
    }
    EXPECT_EQ(Requests(), 0);
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_FALSE(my_setwifitimeout);
}

TEST_F(WlanSwitchTest, ListWithoutEntriesSwitchesNobody) {
    m_notebook.Make({.wlanAdapters = 0});
    EXPECT_FALSE(SwitchOn());
    EXPECT_EQ(Requests(), 0);
    EXPECT_THAT(Lines(), Contains(Error(kSwitch, L"WlanGetInterfaceCapability failed !err is 1168")));
}

TEST_F(WlanSwitchTest, AdapterWithoutPhysIsSwitchedAtOnce) {
    // It reads as on, so that only switching off comes to the PHYs.
    m_notebook.SetPhys({});
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(Requests(), 0);
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 1")));
}

TEST_F(WlanSwitchTest, No65thPhyIsSwitchedWhateverTheCountIs) {
    m_notebook.SetPhys(std::vector<Phy>(WLAN_MAX_PHY_INDEX, Off()));
    const Rig::ScopedImport<&::WlanGetInterfaceCapability> boasts{
        Rig::kWrapping, [](const auto& device, HANDLE client, const GUID* id, void* reserved,
                           WLAN_INTERFACE_CAPABILITY** capability) {
            const DWORD result = device.Original(client, id, reserved, capability);
            (*capability)->dwNumberOfSupportedPhys = 0xFFFFFFFF;
            return result;
        }};
    EXPECT_TRUE(SwitchOn());
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_EQ(Requests(), WLAN_MAX_PHY_INDEX);
    EXPECT_THAT(Lines(), Contains(Verbose(kSwitch, L"The number of supported PHY types : 4294967295")));
}

TEST_F(WlanSwitchTest, OfTwoAdaptersOnlyTheFirstIsSwitched) {
    m_notebook.Make({.wlanAdapters = 2});
    EXPECT_TRUE(SwitchOff());
    EXPECT_TRUE(m_notebook.WlanIsOff(0));
    EXPECT_TRUE(m_notebook.WlanIsOn(1));
}

TEST_F(WlanSwitchTest, PhyThatRefusesForAWhileIsTriedAgainWithAllOthers) {
    m_notebook.SetPhys({On(), Refusing(On(), 2)});
    EXPECT_TRUE(SwitchOff());
    EXPECT_TRUE(m_notebook.WlanIsOff());
    const auto success = Information(kSwitch, L"Set WLAN state 0 for PHY 0 success");
    const auto failure = Error(kSwitch, L"Set WLAN state failed!err is 31");
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kSwitch, L"OnOffValue = 0, bCheckAirplaneStatus = 0"),
                                     Information(kSwitch, L"Current WLAN Status : 1, To Change Status = 0"),
                                     Verbose(kSwitch, L"Linkvane set WIFI radio to dot11_radio_state_off"),
                                     Verbose(kSwitch, L"The number of supported PHY types : 2"), success,
                                     failure, RetryLine(0), success, failure, RetryLine(1), success,
                                     Information(kSwitch, L"Set WLAN state 0 for PHY 1 success"),
                                     Information(kSwitch, L"New WIFI state : 0"),
                                     TraceOut(kSwitch, L"WLAN switching Status = 1")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(100, 100));
    EXPECT_FALSE(my_setwifitimeout);
}

TEST_F(WlanSwitchTest, PhyThatRefusesForEverEndsTheSwitchAfter81Passes) {
    m_notebook.SetPhys({On(), Refusing(On())});
    my_service_turnonoff_wifi = kRadioOn;
    EXPECT_FALSE(SwitchOff());
    EXPECT_EQ(Requests(), 2 * kPasses);
    EXPECT_THAT(m_machine.clock.Sleeps(), AllOf(SizeIs(kPasses), Each(100)));
    EXPECT_THAT(m_machine.log.At(kWarning), SizeIs(kPasses));
    const auto lines = Lines();
    EXPECT_THAT(std::vector(lines.end() - 3, lines.end()),
                ElementsAre(RetryLine(80), Error(kSwitch, L"WlanSetInterface failed"),
                            TraceOut(kSwitch, L"WLAN switching Status = 0")));
    EXPECT_TRUE(my_setwifitimeout);
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn) << "not every PHY took the new state";
}

TEST_F(WlanSwitchTest, AfterRunningOutTheRadioCountsAsOffWithoutAsking) {
    m_notebook.SetPhys({On(), Refusing(On())});
    SwitchOff();
    m_notebook.ForgetCalls();
    EXPECT_FALSE(CheckWlanStatus());
    EXPECT_TRUE(SwitchOff());
    ServiceUtils::StopWLANService();
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_TRUE(m_machine.RememberedWlan().empty());
    EXPECT_TRUE(my_setwifitimeout);
}

TEST_F(WlanSwitchTest, AfterRunningOutASwitchOnThatSucceedsBringsTheQueryBack) {
    m_notebook.SetPhys({On(), Refusing(On(), kPasses)});
    SwitchOff();
    ASSERT_TRUE(my_setwifitimeout);
    EXPECT_TRUE(SwitchOn());
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_TRUE(CheckWlanStatus());
}

TEST_F(WlanSwitchTest, StartWhoseFirstSwitchRanOutBringsTheRadioBackByItsSecond) {
    // Refuses the whole first run and the first pass of the second.
    m_notebook.SetPhys({Refusing(Off(), kPasses + 1)});
    ServiceUtils::StartWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_TRUE(m_machine.log.Contains(
        Information("ServiceUtils::SwitchWlanStatusWithRetry", L"SwitchWlanStatus Success")));
}

TEST_F(WlanSwitchTest, SuccessInTheLastPassCountsAsBothSuccessAndRunningOut) {
    m_notebook.SetPhys({Refusing(On(), kPasses - 1)});
    EXPECT_TRUE(SwitchOff());
    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_TRUE(my_setwifitimeout);
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOff);
    EXPECT_EQ(Requests(), kPasses);
    EXPECT_THAT(m_machine.clock.Sleeps(), SizeIs(kPasses - 1));
    const auto lines = Lines();
    EXPECT_THAT(
        std::vector(lines.end() - 4, lines.end()),
        ElementsAre(Information(kSwitch, L"Set WLAN state 0 for PHY 0 success"),
                    Error(kSwitch, L"WlanSetInterface failed"), Information(kSwitch, L"New WIFI state : 0"),
                    TraceOut(kSwitch, L"WLAN switching Status = 1")));
}

TEST_F(WlanSwitchTest, SwitchOnInTheLastPassReadsAsOffAfterwards) {
    m_notebook.SetPhys({Refusing(Off(), kPasses - 1)});
    EXPECT_TRUE(SwitchOn());
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_EQ(my_service_turnonoff_wifi, kRadioOn);
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 0")));
}

TEST_F(WlanSwitchTest, SuccessInTheLastPassButOneIsAPlainSuccess) {
    m_notebook.SetPhys({Refusing(On(), kPasses - 2)});
    EXPECT_TRUE(SwitchOff());
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_THAT(Lines(), Not(Contains(Error(kSwitch, L"WlanSetInterface failed"))));
}

TEST_F(WlanSwitchTest, FailedLookBeforeOrAfterwardsReadsAsOff) {
    m_notebook.SetPhys({Off()});
    m_notebook.Fail(Call::WlanQueryInterface, 2, ERROR_INVALID_STATE);
    EXPECT_TRUE(SwitchOn());
    EXPECT_THAT(Lines(), Contains(Information(kSwitch, L"New WIFI state : 0")));
    m_notebook.At(Call::WlanQueryInterface, 1, []() -> DWORD { throw DWORD{ERROR_ACCESS_DENIED}; });
    EXPECT_TRUE(SwitchOff());
    EXPECT_TRUE(m_notebook.WlanIsOn()) << "it was taken for off already";
}

TEST_F(WlanSwitchTest, NeitherQueryNorSecondSwitchWaitsForASwitch) {
    // Both come while the first switch pauses between two passes, which goes on when they have ended.
    m_notebook.SetPhys({Refusing(On(), 1)});
    std::optional<bool> asked;
    std::optional<bool> switched;
    m_machine.clock.AtOnOwnThread(50ms, [&] {
        asked = CheckWlanStatus();
        switched = SwitchOff();
    });
    EXPECT_TRUE(SwitchOff());
    EXPECT_EQ(asked, true);
    EXPECT_EQ(switched, true);
    EXPECT_EQ(Requests(), 3) << "refused, the second switch's, the next pass";
}

}  // namespace
}  // namespace RadioTests
