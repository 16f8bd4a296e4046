#include "core/resume_handler.h"

#include <windows.h>

#include <wbemcli.h>

#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <vector>

#include "bios/bios_settings.h"
#include "radio/wwan_state.h"
#include "tests/core/core_world.h"
#include "tests/support/run_on_thread.h"
#include "tests/support/simulated_notebook.h"

namespace CoreTests {
namespace {

using Rig::Lines::Error;
using Rig::Lines::Information;
using Rig::Lines::TraceIn;
using Rig::Lines::TraceOut;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char kResume[] = "NLMUtils::SystemResumeHandler";
constexpr wchar_t kReturn[] = L"Return = 1";
constexpr DWORD kPollInterval = 1000;  // milliseconds, of a wait for a service

constexpr wchar_t kStartingWlan[] = L"Service resume handler starting WLAN service..";
constexpr wchar_t kWaitForWlan[] = L"Wait for (WLAN AutoConfig) to start";
constexpr wchar_t kWlanWaited[] = L"WLAN AutoConfig wait completed";
constexpr wchar_t kWaitForWwan[] = L"Wait for (WWAN AutoConfig) to start";
constexpr wchar_t kWwanWaited[] = L"WWAN AutoConfig wait completed.";
constexpr wchar_t kStartingWwan[] = L"Obtained Signal Service resume handler starting WWAN service..";

class ResumeHandlerTest : public CoreTest {
  protected:
    ResumeHandlerTest() { world.MakeModemKnown(); }

    void SwitchBothOff() {
        world.wlan.adapters[0].phys[0] = RadioTests::Off();
        world.wwanRadio.state = MBN_RADIO_OFF;
    }
    void RemoveModem() {
        WwanState::devicePresent = false;
        WwanState::interfaceManager.store(nullptr);
    }
};

TEST_F(ResumeHandlerTest, FailedEthernetCheckEndsTheHandler) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.machine.HideAdapters();
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_THAT(log.Of(kResume),
                ElementsAre(TraceIn(kResume), Error(kResume, L"CheckEthernetConnectionStatusEx failed"),
                            TraceOut(kResume, kReturn)));
    EXPECT_THAT(world.journal.Calls(), IsEmpty());
}

TEST_F(ResumeHandlerTest, WithoutCableBothRadiosComeBackAfterTheirServices) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.machine.RememberWlan(L"True");
    world.machine.RememberWwan(L"True");
    SwitchBothOff();
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_THAT(log.Of(kResume),
                ElementsAre(TraceIn(kResume), Information(kResume, L"Ethernet Status = 0"),
                            Information(kResume, kStartingWlan), Information(kResume, kWaitForWlan),
                            Information(kResume, kWlanWaited), Information(kResume, kWaitForWwan),
                            Information(kResume, kWwanWaited), Information(kResume, kStartingWwan),
                            TraceOut(kResume, kReturn)));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_ON));
    EXPECT_EQ(world.journal.Calls().front(), "OpenService WlanSvc");
}

TEST_F(ResumeHandlerTest, WithoutCableOnlyTheEnabledHalfComesBack) {
    world.EnableWlanSwitching();
    SwitchBothOff();
    NLMUtils::SystemResumeHandler();
    EXPECT_THAT(world.LinesOf(kResume),
                ElementsAre(Information(kResume, L"Ethernet Status = 0"), Information(kResume, kStartingWlan),
                            Information(kResume, kWaitForWlan), Information(kResume, kWlanWaited)));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
}

TEST_F(ResumeHandlerTest, WithoutCableOnlyWwanComesBackWhenThatIsEnabled) {
    world.EnableWwanSwitching();
    SwitchBothOff();
    NLMUtils::SystemResumeHandler();
    EXPECT_THAT(world.LinesOf(kResume),
                ElementsAre(Information(kResume, L"Ethernet Status = 0"), Information(kResume, kWaitForWwan),
                            Information(kResume, kWwanWaited), Information(kResume, kStartingWwan)));
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_ON));
}

TEST_F(ResumeHandlerTest, RememberedOffStaysOffWithoutBeingSwitched) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.machine.RememberWlan(L"False");
    world.machine.RememberWwan(L"False");
    NLMUtils::SystemResumeHandler();
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
}

TEST_F(ResumeHandlerTest, EmptyTextRememberedBringsBothRadiosBack) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.machine.RememberWlan(L"");
    world.machine.RememberWwan(L"");
    SwitchBothOff();
    NLMUtils::SystemResumeHandler();
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_ON));
}

TEST_F(ResumeHandlerTest, WithoutModemThereIsNoWaitButTheRestIsTheSame) {
    world.EnableWwanSwitching();
    RemoveModem();
    NLMUtils::SystemResumeHandler();
    EXPECT_THAT(world.LinesOf(kResume), ElementsAre(Information(kResume, L"Ethernet Status = 0"),
                                                    Information(kResume, kStartingWwan)));
    EXPECT_THAT(log.Lines(), Contains(TraceIn("ServiceUtils::StartWWANService")));
    EXPECT_THAT(log.Lines(), Not(Contains(TraceIn("Utils::WaitforServiceToStartRunning"))));
}

TEST_F(ResumeHandlerTest, LateWlanServiceCostsALineAndTheRadioIsTriedAllTheSame) {
    world.EnableWlanSwitching();
    world.services.states[L"WlanSvc"] = FakeServices::State::kStarting;
    SwitchBothOff();
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_THAT(world.LinesOf(kResume),
                ElementsAre(Information(kResume, L"Ethernet Status = 0"), Information(kResume, kStartingWlan),
                            Information(kResume, kWaitForWlan),
                            Error(kResume,
                                  L"WaitforServiceToStartRunning (WLAN AutoConfig) failed with running "
                                  L"status = 1"),
                            Information(kResume, kWlanWaited)));
    EXPECT_EQ(world.journal.Count("OpenService WlanSvc"), 15);
    EXPECT_THAT(world.machine.clock.SleepsAndWaits(), Contains(kPollInterval).Times(15));
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
}

TEST_F(ResumeHandlerTest, LateWwanServiceIsWaitedForBesideTheCable) {
    world.EnableWwanSwitching();
    world.machine.PlugCableIn();
    world.services.states[L"WwanSvc"] = FakeServices::State::kStarting;
    NLMUtils::SystemResumeHandler();
    EXPECT_EQ(world.journal.Count("OpenService WwanSvc"), 15);
    EXPECT_THAT(world.machine.clock.SleepsAndWaits(), Contains(kPollInterval).Times(15));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
}

TEST_F(ResumeHandlerTest, AbsentWwanServiceCostsALineAndTheRadioIsTriedAllTheSame) {
    world.EnableWwanSwitching();
    world.services.states[L"WwanSvc"] = FakeServices::State::kAbsent;
    SwitchBothOff();
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_THAT(world.LinesOf(kResume),
                ElementsAre(Information(kResume, L"Ethernet Status = 0"), Information(kResume, kWaitForWwan),
                            Error(kResume,
                                  L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running "
                                  L"status = -1"),
                            Information(kResume, kWwanWaited), Information(kResume, kStartingWwan)));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_ON));
}

TEST_F(ResumeHandlerTest, WithCableOnlyWwanIsSwitchedOff) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.machine.PlugCableIn();
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_THAT(log.Of(kResume), ElementsAre(TraceIn(kResume), Information(kResume, L"Ethernet Status = 1"),
                                             Information(kResume, kWaitForWwan),
                                             Information(kResume, kWwanWaited), TraceOut(kResume, kReturn)));
    EXPECT_THAT(world.wlan.Calls(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
    EXPECT_TRUE(
        log.Contains(TraceIn("ServiceUtils::SwitchWwanStatusWithRetry", L"NewStatus = 0, Retry Count = 5")));
    EXPECT_EQ(world.machine.RememberedWwan(), L"");
}

TEST_F(ResumeHandlerTest, WithCableAndStubbornModemTheFailureIsLoggedAfterSixAttempts) {
    world.EnableWwanSwitching();
    world.machine.PlugCableIn();
    world.MakeWwanStubborn();
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_THAT(
        world.LinesOf(kResume),
        ElementsAre(Information(kResume, L"Ethernet Status = 1"), Information(kResume, kWaitForWwan),
                    Information(kResume, kWwanWaited), Error(kResume, L"SwitchWwanStatusWithRetry failed")));
    EXPECT_EQ(
        log.Count(TraceIn("ServiceUtils::SwitchWwanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 1")), 6);
}

TEST_F(ResumeHandlerTest, WithCableAndLateWwanServiceTheSwitchIsTriedAllTheSame) {
    world.EnableWwanSwitching();
    world.machine.PlugCableIn();
    world.services.states[L"WwanSvc"] = FakeServices::State::kAbsent;
    NLMUtils::SystemResumeHandler();
    EXPECT_THAT(world.LinesOf(kResume),
                ElementsAre(Information(kResume, L"Ethernet Status = 1"), Information(kResume, kWaitForWwan),
                            Error(kResume,
                                  L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running "
                                  L"status = -1"),
                            Information(kResume, kWwanWaited)));
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
}

TEST_F(ResumeHandlerTest, WithCableAndWithoutModemTheSwitchFails) {
    world.EnableWwanSwitching();
    world.machine.PlugCableIn();
    RemoveModem();
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_THAT(world.LinesOf(kResume), ElementsAre(Information(kResume, L"Ethernet Status = 1"),
                                                    Error(kResume, L"SwitchWwanStatusWithRetry failed")));
}

TEST_F(ResumeHandlerTest, WithCableAndOnlyWlanEnabledNothingIsDone) {
    world.EnableWlanSwitching();
    world.machine.PlugCableIn();
    NLMUtils::SystemResumeHandler();
    EXPECT_THAT(world.LinesOf(kResume), ElementsAre(Information(kResume, L"Ethernet Status = 1")));
    EXPECT_THAT(world.journal.Calls(), IsEmpty());
    EXPECT_THAT(world.wlan.Calls(), IsEmpty());
}

TEST_F(ResumeHandlerTest, InAirplaneModeNothingIsSwitchedOn) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    world.machine.SetAirplaneMode(true);
    SwitchBothOff();
    NLMUtils::SystemResumeHandler();
    EXPECT_THAT(world.WlanSwitches(), IsEmpty());
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
}

/// Cable, both features and modem, in every combination.
class Resume : public ResumeHandlerTest,
               public testing::WithParamInterface<std::tuple<bool, bool, bool, bool>> {};

TEST_P(Resume, SwitchesAndWaitsAsTheSituationAsks) {
    const auto [isCableIn, wlanEnabled, wwanEnabled, hasModem] = GetParam();
    if (isCableIn) {
        world.machine.PlugCableIn();
    } else {
        SwitchBothOff();
    }
    NLMUtils::lanWlanSwitchingEnabled = wlanEnabled;
    NLMUtils::lanWwanSwitchingEnabled = wwanEnabled;
    if (!hasModem) {
        RemoveModem();
    }
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_EQ(world.journal.Count("OpenService WlanSvc"), wlanEnabled && !isCableIn ? 1 : 0);
    EXPECT_EQ(world.journal.Count("OpenService WwanSvc"), wwanEnabled && hasModem ? 1 : 0);
    EXPECT_EQ(world.wlan.IsOn(), isCableIn || wlanEnabled);
    EXPECT_EQ(world.wwanRadio.state == MBN_RADIO_ON, isCableIn != (wwanEnabled && hasModem));
    EXPECT_EQ(log.Count(Information(kResume, kStartingWwan)), wwanEnabled && !isCableIn ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Situations, Resume,
                         testing::Combine(testing::Bool(), testing::Bool(), testing::Bool(),
                                          testing::Bool()));

// --- OnContinue ------------------------------------------------------------------------------------

class ContinueTest : public ResumeHandlerTest {
  protected:
    void Continue() {
        Rig::RunOnThread([this] { service.OnContinue(); }, Rig::Apartment::kNone);
    }
    /// Which of the operations that a resume is made of were entered.
    [[nodiscard]] std::vector<std::string> Entered() const {
        std::vector<std::string> entered;
        for (const Rig::LogLine& line : log.At(Orva::Shared::Level::kTraceIn)) {
            if (line.function == kResume || line.function.find("AutoSwitchingEnabled") != std::string::npos) {
                entered.push_back(line.function);
            }
        }
        return entered;
    }

    OpenService service;
};

TEST_F(ContinueTest, WithBothFeaturesDisabledOnlyTheSettingsAreReadAgain) {
    log.Clear();  // the construction of the service
    Continue();
    EXPECT_THAT(log.Of("CServiceBase::OnContinue"),
                ElementsAre(TraceIn("CServiceBase::OnContinue"), TraceOut("CServiceBase::OnContinue")));
    EXPECT_EQ(log.Lines().front(), TraceIn("CServiceBase::OnContinue"));
    EXPECT_EQ(log.Lines().back(), TraceOut("CServiceBase::OnContinue"));
    EXPECT_THAT(Entered(), ElementsAre("NLMUtils::IsLanWlanAutoSwitchingEnabled",
                                       "NLMUtils::IsLanWwanAutoSwitchingEnabled"));
    EXPECT_THAT(world.wlan.Calls(), IsEmpty());
    EXPECT_EQ(world.machine.adapters.Calls(), 0);
}

TEST_F(ContinueTest, WithEitherFeatureEnabledTheRadiosAreDecided) {
    for (const bool isWlan : {true, false}) {
        NLMUtils::lanWlanSwitchingEnabled = isWlan;
        NLMUtils::lanWwanSwitchingEnabled = !isWlan;
        log.Clear();
        Continue();
        EXPECT_THAT(Entered(), ElementsAre("NLMUtils::IsLanWlanAutoSwitchingEnabled",
                                           "NLMUtils::IsLanWwanAutoSwitchingEnabled", kResume));
    }
}

TEST_F(ContinueTest, WithBothFeaturesEnabledTheRadiosAreDecidedOnce) {
    world.EnableWlanSwitching();
    world.EnableWwanSwitching();
    Continue();
    EXPECT_EQ(log.Count(TraceIn(kResume)), 1);
}

class ContinueWithBiosTest : public ContinueTest {
  protected:
    ContinueWithBiosTest() {
        world.com.creators["other class"] = [this](REFIID interfaceId, void** object) {
            return bios.CreateObject(CLSID_WbemLocator, interfaceId, object);
        };
        bios.RemoveSettings();
    }

    Rig::SimulatedNotebook bios{world.machine.clock, {}, Rig::SimulatedNotebook::Imports::kKept};
};

TEST_F(ContinueWithBiosTest, FeatureThatWasEnabledMeanwhileCountsAtOnce) {
    bios.SetSetting(L"LAN / WLAN Auto Switching", L"Enable");
    SwitchBothOff();
    Continue();
    EXPECT_TRUE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_THAT(world.WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(world.WwanSwitches(), IsEmpty());
}

TEST_F(ContinueWithBiosTest, FeatureThatWasDisabledMeanwhileStaysEnabled) {
    world.EnableWwanSwitching();
    bios.SetSetting(L"LAN / WWAN Auto Switching", L"*Disable");
    world.machine.PlugCableIn();
    Continue();
    EXPECT_TRUE(NLMUtils::lanWwanSwitchingEnabled);
    EXPECT_THAT(world.WwanSwitches(), ElementsAre(MBN_RADIO_OFF));
}

TEST_F(ContinueWithBiosTest, BothSettingsAreAskedInTheirOrder) {
    bios.SetSetting(L"LAN / WLAN Auto Switching", L"*Disable");
    bios.SetSetting(L"LAN / WWAN Auto Switching", L"*Disable");
    Continue();
    EXPECT_THAT(bios.Calls(Rig::Call::WbemExecQuery),
                ElementsAre(testing::HasSubstr("LAN / WLAN Auto Switching"),
                            testing::HasSubstr("LAN / WWAN Auto Switching")));
    EXPECT_EQ(log.Count(TraceIn(kResume)), 0);
}

}  // namespace
}  // namespace CoreTests
