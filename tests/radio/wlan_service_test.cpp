#include <gmock/gmock.h>

#include <ostream>

#include "radio/wlan_radio.h"
#include "tests/radio/machine.h"
#include "tests/support/throw_from_log_line.h"

namespace RadioTests {
namespace {

using namespace Rig::Lines;
using namespace std::chrono_literals;
using Orva::Shared::Level::kError;
using Orva::Shared::Level::kInformation;
using Orva::Shared::Level::kWarning;
using Rig::ThrowFromLogLine;
using ServiceUtils::kRadioOff;
using ServiceUtils::kRadioOn;
using ServiceUtils::my_setwifitimeout;
using ServiceUtils::StartWLANService;
using ServiceUtils::StopWLANService;
using ServiceUtils::SwitchWlanStatusWithRetry;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kRetry[] = "ServiceUtils::SwitchWlanStatusWithRetry";
constexpr char kStart[] = "ServiceUtils::StartWLANService";
constexpr char kStop[] = "ServiceUtils::StopWLANService";

class WlanRetryTest : public RadioTest {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kRetry); }
};

TEST_F(WlanRetryTest, RadioThatFollowsIsSwitchedOnce) {
    m_notebook.SetPhys({Off()});
    EXPECT_TRUE(SwitchWlanStatusWithRetry(kRadioOn, 5));
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 1, Retry Count = 5"),
                                     Information(kRetry, L"SwitchWlanStatus Success"),
                                     TraceOut(kRetry, L"WLAN switching Status = 1")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(100));
}

TEST_F(WlanRetryTest, SwitchingOnInAirplaneModeSucceedsWithoutTouchingTheRadio) {
    m_machine.SetAirplaneMode(true);
    m_notebook.SetPhys({Off()});
    EXPECT_TRUE(SwitchWlanStatusWithRetry(kRadioOn, 5));
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 1, Retry Count = 5"),
                                     Information(kRetry, L"SwitchWlanStatus not needed for New status = 1"),
                                     TraceOut(kRetry, L"WLAN switching Status = 1")));
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
}

TEST_F(WlanRetryTest, SwitchingOffInAirplaneModeGoesOn) {
    m_machine.SetAirplaneMode(true);
    m_notebook.SetPhys({On()});
    EXPECT_TRUE(SwitchWlanStatusWithRetry(kRadioOff, 0));
    EXPECT_TRUE(m_notebook.WlanIsOff());
}

TEST_F(WlanRetryTest, AirplaneModeThatComesBetweenIsRespected) {
    m_notebook.SetPhys({Off()});
    // The first attempt finds nothing to switch; then airplane mode comes.
    m_notebook.At(Call::WlanGetInterfaceCapability, 1, [this] {
        m_machine.SetAirplaneMode(true);
        return ERROR_INVALID_STATE;
    });
    EXPECT_FALSE(SwitchWlanStatusWithRetry(kRadioOn, 1));
    EXPECT_TRUE(m_notebook.WlanIsOff());
}

TEST_F(WlanRetryTest, NRetriesAreNPlusOneAttempts) {
    m_notebook.SetPhys({Off()});
    for (int attempt = 1; attempt <= 3; ++attempt) {
        m_notebook.Fail(Call::WlanGetInterfaceCapability, attempt, ERROR_INVALID_STATE);
    }
    EXPECT_FALSE(SwitchWlanStatusWithRetry(kRadioOn, 2));
    EXPECT_EQ(m_notebook.Count(Call::WlanGetInterfaceCapability), 3);
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 1, Retry Count = 2"),
                                     Warning(kRetry, L"SwitchWlanStatus not Succeeded. Retrying to 0"),
                                     Warning(kRetry, L"SwitchWlanStatus not Succeeded. Retrying to 1"),
                                     Warning(kRetry, L"SwitchWlanStatus not Succeeded. Retrying to 2"),
                                     TraceOut(kRetry, L"WLAN switching Status = 0")));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(100, 400, 100, 400, 100, 400));
}

TEST_F(WlanRetryTest, SuccessAtTheLastAttemptIsASuccess) {
    m_notebook.SetPhys({Off()});
    m_notebook.Fail(Call::WlanGetInterfaceCapability, 1, ERROR_INVALID_STATE);
    m_notebook.Fail(Call::WlanGetInterfaceCapability, 2, ERROR_INVALID_STATE);
    EXPECT_TRUE(SwitchWlanStatusWithRetry(kRadioOn, 2));
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(100, 400, 100, 400, 100));
}

TEST_F(WlanRetryTest, WithoutRetriesThereIsOneAttempt) {
    for (const int retries : {0, -1, -2147483647 - 1}) {
        m_notebook.SetPhys({Off()});
        m_notebook.GiveNothing(Call::WlanGetInterfaceCapability);
        EXPECT_FALSE(SwitchWlanStatusWithRetry(kRadioOn, retries));
        EXPECT_EQ(m_notebook.Count(Call::WlanGetInterfaceCapability), 1);
        m_notebook.ForgetCalls();
    }
}

TEST_F(WlanRetryTest, OutcomeIsJudgedByReadingBackNotByTheSwitch) {
    m_notebook.SetPhys({Off()});
    // The switch fails, but somebody else turns the radio on meanwhile.
    m_notebook.At(Call::WlanGetInterfaceCapability, 1, [this] {
        m_notebook.SetPhys({On()});
        return ERROR_INVALID_STATE;
    });
    EXPECT_TRUE(SwitchWlanStatusWithRetry(kRadioOn, 5));
    EXPECT_THAT(m_machine.clock.Sleeps(), ElementsAre(100));
}

TEST_F(WlanRetryTest, ExceptionGivesFalse) {
    m_notebook.SetPhys({Off()});
    const Rig::ScopedImport<&::Sleep> throws{[](DWORD) { throw DWORD{ERROR_ACCESS_DENIED}; }};
    EXPECT_FALSE(SwitchWlanStatusWithRetry(kRadioOn, 5));
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kRetry, L"NewStatus = 1, Retry Count = 5"),
                                     Error(kRetry, L"Exception in SwitchWlanStatusWithRetry()"),
                                     TraceOut(kRetry, L"WLAN switching Status = 0")));
    EXPECT_EQ(throws.Calls(), 1);
}

class WlanStartTest : public RadioTest {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kStart); }
};

TEST_F(WlanStartTest, RadioThatWasOnComesBack) {
    m_machine.RememberWlan(L"True");
    m_notebook.SetPhys({Off(), Off()});
    StartWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kStart), Information(kStart, L"WLAN Registry Status = True"),
                                     Information(kStart, L"Switching ON Wifi"),
                                     Information(kStart, L"WlanPowerStatus value read from registry = True"),
                                     TraceOut(kStart)));
}

TEST_F(WlanStartTest, NothingRememberedCountsAsOn) {
    m_notebook.SetPhys({Off()});
    StartWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_THAT(Lines(), Contains(Information(kStart, L"WLAN Registry Status = True")));
}

TEST_F(WlanStartTest, RememberedNumberCountsAsOn) {
    m_machine.store.Write(L"WlanPowerStatus", L"PowerOnOff", Rig::RegistryNumber(0));
    m_notebook.SetPhys({Off()});
    StartWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOn());
}

struct OtherText {
    const char* name;
    const wchar_t* text;
};

void PrintTo(const OtherText& tested, std::ostream* out) {
    *out << tested.name;
}

class WlanStartOtherTextTest : public WlanStartTest, public testing::WithParamInterface<OtherText> {};

TEST_P(WlanStartOtherTextTest, AnyOtherTextLeavesTheRadioAlone) {
    m_machine.RememberWlan(GetParam().text);
    m_notebook.SetPhys({Off()});
    StartWLANService();
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    const std::wstring text = GetParam().text;
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kStart), Information(kStart, L"WLAN Registry Status = " + text),
                            Information(kStart, L"WlanPowerStatus value read from registry = " + text),
                            TraceOut(kStart)));
}

INSTANTIATE_TEST_SUITE_P(Texts, WlanStartOtherTextTest,
                         testing::Values(OtherText{"False", L"False"}, OtherText{"LowerCase", L"true"},
                                         OtherText{"UpperCase", L"TRUE"}, OtherText{"BlankBefore", L" True"},
                                         OtherText{"BlankBehind", L"True "}, OtherText{"One", L"1"},
                                         OtherText{"Longer", L"Truely"}));

TEST_F(WlanStartTest, AirplaneModeLeavesTheRadioOffWithoutAnError) {
    m_machine.SetAirplaneMode(true);
    m_machine.RememberWlan(L"True");
    m_notebook.SetPhys({Off()});
    StartWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_THAT(m_machine.log.At(kError), IsEmpty());
}

TEST_F(WlanStartTest, RadioThatRefusesForEverIsReportedAfterSixAttempts) {
    m_notebook.SetPhys({Refusing(Off())});
    StartWLANService();
    EXPECT_EQ(m_notebook.Count(Call::WlanSetInterface), 6 * 81);
    EXPECT_THAT(Lines(), Contains(Error(kStart, L"SwitchWlanStatusWithRetry (StartWLANService) failed")));
    EXPECT_EQ(m_machine.clock.Elapsed(), 6 * (81 * 100ms + 500ms));
    EXPECT_TRUE(my_setwifitimeout);
}

TEST_F(WlanStartTest, FullRunAfterOneThatRanOutBringsTheRadioBack) {
    // Refuses the whole first run and the first pass of the second.
    m_notebook.SetPhys({Refusing(Off(), 82)});
    StartWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOn());
    EXPECT_FALSE(my_setwifitimeout);
    EXPECT_THAT(m_machine.log.Of(kRetry), Contains(Information(kRetry, L"SwitchWlanStatus Success")));
}

TEST_F(WlanStartTest, ExceptionIsLogged) {
    m_notebook.SetPhys({Off()});
    const ThrowFromLogLine second{2, DWORD{ERROR_ACCESS_DENIED}};
    StartWLANService();
    EXPECT_THAT(
        m_machine.log.Lines(),
        ElementsAre(TraceIn(kStart), Error(kStart, L"Exception in StartWLANService()"), TraceOut(kStart)));
}

class WlanStopTest : public RadioTest {
  protected:
    [[nodiscard]] std::vector<Rig::LogLine> Lines() const { return m_machine.log.Of(kStop); }
};

TEST_F(WlanStopTest, RadioThatIsOnGoesOffAndIsRememberedAsOn) {
    m_machine.RememberWlan(L"False");
    m_notebook.SetPhys({On(), On()});
    StopWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_EQ(m_machine.RememberedWlan(), L"True");
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kStop), Information(kStop, L"WLAN Current Status = 1"),
                            Information(kStop, L"Setting WlanPowerStatus in registry."), TraceOut(kStop)));
    EXPECT_TRUE(m_machine.log.Contains(
        TraceIn("ServiceUtils::SwitchWlanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 0")));
    EXPECT_THAT(m_machine.clock.Sleeps(), IsEmpty());
}

TEST_F(WlanStopTest, RadioThatIsOffIsLeftAloneWithWhatIsRemembered) {
    for (const wchar_t* remembered : {L"False", L"True"}) {
        m_machine.RememberWlan(remembered);
        m_notebook.SetPhys({Off()});
        StopWLANService();
        EXPECT_EQ(m_machine.RememberedWlan(), remembered);
        EXPECT_EQ(m_notebook.Count(Call::WlanSetInterface), 0);
    }
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kStop), Information(kStop, L"WLAN Current Status = 0"), TraceOut(kStop),
                            TraceIn(kStop), Information(kStop, L"WLAN Current Status = 0"), TraceOut(kStop)));
}

TEST_F(WlanStopTest, RadioThatIsOffMakesNoKey) {
    m_notebook.SetPhys({Off()});
    StopWLANService();
    EXPECT_FALSE(m_machine.store.Exists(L"WlanPowerStatus"));
}

TEST_F(WlanStopTest, AirplaneModeDoesNotKeepTheRadioOn) {
    m_machine.SetAirplaneMode(true);
    m_notebook.SetPhys({On()});
    StopWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_EQ(m_machine.RememberedWlan(), L"True");
}

TEST_F(WlanStopTest, FailedSwitchRemembersNothing) {
    m_machine.RememberWlan(L"False");
    m_notebook.SetPhys({On()});
    m_notebook.GiveNothing(Call::WlanGetInterfaceCapability);
    StopWLANService();
    EXPECT_EQ(m_machine.RememberedWlan(), L"False");
    EXPECT_EQ(m_notebook.Count(Call::WlanGetInterfaceCapability), 1) << "the switch is not repeated";
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kStop), Information(kStop, L"WLAN Current Status = 1"),
                                     Error(kStop, L"SwitchWlanStatusWithRetry (StopWLANService) failed"),
                                     TraceOut(kStop)));
}

TEST_F(WlanStopTest, RadioGoesOffAlsoWhenThatCannotBeRemembered) {
    m_machine.RememberWlan(L"False");
    m_notebook.SetPhys({On()});
    const Rig::ScopedResult<&::RegSetValueExW> fails{ERROR_DISK_FULL, ERROR_CRC};
    StopWLANService();
    EXPECT_TRUE(m_notebook.WlanIsOff());
    EXPECT_EQ(m_machine.RememberedWlan(), L"False");
    EXPECT_THAT(m_machine.log.From(kWarning), ElementsAre(Error("ServiceUtils::SetPowerStatusInRegistry",
                                                                L"Registry::SetValue failed with error 23")));
    EXPECT_THAT(Lines(),
                ElementsAre(TraceIn(kStop), Information(kStop, L"WLAN Current Status = 1"),
                            Information(kStop, L"Setting WlanPowerStatus in registry."), TraceOut(kStop)));
}

TEST_F(WlanStopTest, AfterASwitchRanOutNothingIsDone) {
    my_setwifitimeout = true;
    m_notebook.SetPhys({On()});
    StopWLANService();
    EXPECT_THAT(m_notebook.Calls(), IsEmpty());
    EXPECT_TRUE(m_machine.RememberedWlan().empty());
}

TEST_F(WlanStopTest, ExceptionIsLogged) {
    // The second line of the operation itself comes after the query's: entry, eight lines, this one.
    m_notebook.SetPhys({});
    const ThrowFromLogLine line{10, DWORD{ERROR_ACCESS_DENIED}};
    StopWLANService();
    EXPECT_THAT(Lines(), ElementsAre(TraceIn(kStop), Error(kStop, L"Exception in StopWLANService()"),
                                     TraceOut(kStop)));
}

}  // namespace
}  // namespace RadioTests
