#include <windows.h>

#include <gmock/gmock.h>

#include <string>

#include "tests/core/core_world.h"

namespace CoreTests {
namespace {

using Rig::Lines::Information;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUpdateWlan[] = "CMainService::UpdateWlanPowerStatus";
constexpr char kUpdateWwan[] = "CMainService::UpdateWwanPowerStatus";

class PowerStatusRestoreTest : public CoreTest {
  protected:
    PowerStatusRestoreTest() { world.MakeModemKnown(); }
    /// A radio is switched once; what comes of it is not looked at.
    ~PowerStatusRestoreTest() override {
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWlanStatusWithRetry"), IsEmpty());
        EXPECT_THAT(log.Of("ServiceUtils::SwitchWwanStatusWithRetry"), IsEmpty());
    }

    void SwitchBothOff() {
        world.wlan.adapters[0].phys[0] = RadioTests::Off();
        world.wwanRadio.state = MBN_RADIO_OFF;
    }

    OpenService service;
};

TEST_F(PowerStatusRestoreTest, NothingRememberedForWlanMeansOn) {
    SwitchBothOff();
    service.UpdateWlanPowerStatus();
    EXPECT_THAT(
        log.Of(kUpdateWlan),
        ElementsAre(TraceIn(kUpdateWlan),
                    Information(kUpdateWlan, L"Registry read is empty : WLAN. Setting Default Value as TRUE"),
                    Information(kUpdateWlan, L"Registry read is 1, WLAN Switch = 1"), TraceOut(kUpdateWlan)));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
    EXPECT_FALSE(world.machine.store.Exists(L"WlanPowerStatus"));
}

TEST_F(PowerStatusRestoreTest, NothingRememberedForWwanMeansOn) {
    SwitchBothOff();
    service.UpdateWwanPowerStatus();
    EXPECT_THAT(
        log.Of(kUpdateWwan),
        ElementsAre(TraceIn(kUpdateWwan),
                    Information(kUpdateWwan, L"Registry read is empty : WWAN. Setting Default Value as TRUE"),
                    Information(kUpdateWwan, L"Registry read is 1, WWAN Switch = 1"), TraceOut(kUpdateWwan)));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_ON));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_FALSE(world.machine.store.Exists(L"WwanPowerStatus"));
}

TEST_F(PowerStatusRestoreTest, EmptyTextRememberedMeansOn) {
    SwitchBothOff();
    world.machine.RememberWlan(L"");
    world.machine.RememberWwan(L"");
    service.UpdateWlanPowerStatus();
    service.UpdateWwanPowerStatus();
    EXPECT_THAT(
        world.LinesOf(kUpdateWlan),
        ElementsAre(Information(kUpdateWlan, L"Registry read is empty : WLAN. Setting Default Value as TRUE"),
                    Information(kUpdateWlan, L"Registry read is 1, WLAN Switch = 1")));
    EXPECT_THAT(
        world.LinesOf(kUpdateWwan),
        ElementsAre(Information(kUpdateWwan, L"Registry read is empty : WWAN. Setting Default Value as TRUE"),
                    Information(kUpdateWwan, L"Registry read is 1, WWAN Switch = 1")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_ON));
    EXPECT_TRUE(world.machine.store.Exists(L"WlanPowerStatus"));
    EXPECT_EQ(world.machine.RememberedWlan(), L"");
}

TEST_F(PowerStatusRestoreTest, RefusedSwitchIsNotTriedAgain) {
    world.machine.RememberWwan(L"False");
    world.MakeWwanStubborn();
    service.UpdateWwanPowerStatus();
    EXPECT_THAT(world.LinesOf(kUpdateWwan),
                ElementsAre(Information(kUpdateWwan, L"Registry read is 0, WWAN Switch = 0")));
    EXPECT_EQ(
        log.Count(TraceIn("ServiceUtils::SwitchWwanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 1")), 1);
}

TEST_F(PowerStatusRestoreTest, RememberedTrueSwitchesOn) {
    SwitchBothOff();
    world.machine.RememberWlan(L"True");
    world.machine.RememberWwan(L"True");
    service.UpdateWlanPowerStatus();
    service.UpdateWwanPowerStatus();
    EXPECT_THAT(
        log.Of(kUpdateWlan),
        ElementsAre(TraceIn(kUpdateWlan), Information(kUpdateWlan, L"Registry read is 1, WLAN Switch = 1"),
                    TraceOut(kUpdateWlan)));
    EXPECT_THAT(
        log.Of(kUpdateWwan),
        ElementsAre(TraceIn(kUpdateWwan), Information(kUpdateWwan, L"Registry read is 1, WWAN Switch = 1"),
                    TraceOut(kUpdateWwan)));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_ON));
}

class AnyOtherText : public PowerStatusRestoreTest, public testing::WithParamInterface<const wchar_t*> {};

TEST_P(AnyOtherText, SwitchesOffActively) {
    world.machine.RememberWlan(GetParam());
    world.machine.RememberWwan(GetParam());
    service.UpdateWlanPowerStatus();
    service.UpdateWwanPowerStatus();
    EXPECT_THAT(world.LinesOf(kUpdateWlan),
                ElementsAre(Information(kUpdateWlan, L"Registry read is 0, WLAN Switch = 0")));
    EXPECT_THAT(world.LinesOf(kUpdateWwan),
                ElementsAre(Information(kUpdateWwan, L"Registry read is 0, WWAN Switch = 0")));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
    EXPECT_EQ(world.machine.RememberedWlan(), GetParam());
    EXPECT_EQ(world.machine.RememberedWwan(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Texts, AnyOtherText,
                         testing::Values(L"False", L"true", L"TRUE", L" True", L"True ", L"1", L"Tru", L"?"));

TEST_F(PowerStatusRestoreTest, ValueOfAnotherTypeReadsAsNothing) {
    SwitchBothOff();
    world.machine.store.Write(L"WlanPowerStatus", L"PowerOnOff", Rig::RegistryNumber(0));
    service.UpdateWlanPowerStatus();
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
}

TEST_F(PowerStatusRestoreTest, AirplaneModeForbidsSwitchingOn) {
    SwitchBothOff();
    world.machine.SetAirplaneMode(true);
    service.UpdateWlanPowerStatus();
    service.UpdateWwanPowerStatus();
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWlanStatus", L"OnOffValue = 1, bCheckAirplaneStatus = 1")));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWwanStatus", L"OnOffValue = 1, bCheckAirplaneStatus = 1")));
}

TEST_F(PowerStatusRestoreTest, AirplaneModeDoesNotKeepARadioOn) {
    world.machine.SetAirplaneMode(true);
    world.machine.RememberWlan(L"False");
    world.machine.RememberWwan(L"False");
    service.UpdateWlanPowerStatus();
    service.UpdateWwanPowerStatus();
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("off"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
}

}  // namespace
}  // namespace CoreTests
