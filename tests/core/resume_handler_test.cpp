#include "core/resume_handler.h"

#include <algorithm>
#include <ostream>
#include <tuple>

#include "bios/bios_settings.h"
#include "radio/wwan_state.h"
#include "tests/core/core_test.h"

namespace CoreTests {
namespace {

using testing::HasSubstr;

constexpr char kResume[] = "NLMUtils::SystemResumeHandler";
constexpr int kMostPolls = 15;

const LogLine kStartingWlan = Information(kResume, L"Service resume handler starting WLAN service..");
const LogLine kWaitForWlan = Information(kResume, L"Wait for (WLAN AutoConfig) to start");
const LogLine kWlanWaitedAgain = Information(kResume, L"WLAN AutoConfig wait completed");
const LogLine kWaitForWwanAgain = Information(kResume, L"Wait for (WWAN AutoConfig) to start");
const LogLine kWwanWaitedAgain = Information(kResume, L"WWAN AutoConfig wait completed.");
const LogLine kStartingWwan =
    Information(kResume, L"Obtained Signal Service resume handler starting WWAN service..");
const LogLine kWwanSwitchFailed = Error(kResume, L"SwitchWwanStatusWithRetry failed");

class ResumeTest : public CoreTest {
  protected:
    ResumeTest() { MakeModemKnown(); }

    /// As it was found at the start of the service.
    void Set(bool isCableIn, bool hasModem) {
        CoreTest::Set(isCableIn ? Cable::kIn : Cable::kOut);
        SetRadios(isCableIn);
        if (!hasModem) {
            WwanState::devicePresent = false;
            WwanState::interfaceManager.store(nullptr);
        }
        notebook.ForgetCalls();
    }
};

/// Cable, both features and modem, in every combination.
class Resume : public ResumeTest, public testing::WithParamInterface<std::tuple<bool, bool, bool, bool>> {};

TEST_P(Resume, SwitchesAndWaitsAsTheSituationAsks) {
    const auto [isCableIn, wlanEnabled, wwanEnabled, hasModem] = GetParam();
    Set(isCableIn, hasModem);
    EnableSwitching(wlanEnabled, wwanEnabled);
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());

    std::vector<LogLine> expected{
        TraceIn(kResume), Information(kResume, isCableIn ? L"Ethernet Status = 1" : L"Ethernet Status = 0")};
    const auto add = [&expected](bool applies, std::initializer_list<LogLine> lines) {
        expected.insert(expected.end(), lines.begin(), applies ? lines.end() : lines.begin());
    };
    add(!isCableIn && wlanEnabled, {kStartingWlan, kWaitForWlan, kWlanWaitedAgain});
    add(wwanEnabled && hasModem, {kWaitForWwanAgain, kWwanWaitedAgain});
    add(!isCableIn && wwanEnabled, {kStartingWwan});
    add(isCableIn && wwanEnabled && !hasModem, {kWwanSwitchFailed});
    expected.push_back(TraceOut(kResume, L"Return = 1"));
    EXPECT_EQ(log.Of(kResume), expected);

    EXPECT_EQ(Opens("WlanSvc"), wlanEnabled && !isCableIn ? 1 : 0);
    EXPECT_EQ(Opens("WwanSvc"), wwanEnabled && hasModem ? 1 : 0);
    EXPECT_EQ(notebook.WlanIsOn(), isCableIn || wlanEnabled);
    EXPECT_EQ(ModemIsOn(), isCableIn != (wwanEnabled && hasModem));
    EXPECT_EQ(log.Count(TraceIn("ServiceUtils::StartWLANService")), !isCableIn && wlanEnabled ? 1 : 0);
    EXPECT_EQ(log.Count(TraceIn("ServiceUtils::StartWWANService")), !isCableIn && wwanEnabled ? 1 : 0);
    EXPECT_EQ(
        log.Count(TraceIn("ServiceUtils::SwitchWwanStatusWithRetry", L"NewStatus = 0, Retry Count = 5")),
        isCableIn && wwanEnabled ? 1 : 0);
    if (isCableIn) {
        EXPECT_EQ(notebook.Count(Call::WlanOpenHandle), 0);
        EXPECT_EQ(machine.RememberedWwan(), L"");
    }
}

INSTANTIATE_TEST_SUITE_P(Situations, Resume,
                         testing::Combine(testing::Bool(), testing::Bool(), testing::Bool(),
                                          testing::Bool()));

TEST_F(ResumeTest, ServiceThatIsLateOrAbsentCostsALineAndTheRadioIsTriedAllTheSame) {
    struct Missing {
        const wchar_t* service;
        bool isInstalled;
        bool isCableIn;
        const wchar_t* failure;
    };
    for (const Missing& missing :
         {Missing{L"WlanSvc", true, false,
                  L"WaitforServiceToStartRunning (WLAN AutoConfig) failed with running status = 1"},
          Missing{L"WwanSvc", true, true,
                  L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = 1"},
          Missing{L"WwanSvc", false, false,
                  L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = -1"},
          Missing{L"WwanSvc", false, true,
                  L"WaitforServiceToStartRunning (WWAN AutoConfig) failed with running status = -1"}}) {
        const bool isWlan = missing.service == std::wstring(L"WlanSvc");
        SCOPED_TRACE(testing::Message() << isWlan << missing.isInstalled << missing.isCableIn);
        machine.clock.ForgetRecords();
        log.Clear();
        EnableSwitching(isWlan, !isWlan);
        notebook.PullCable();
        Set(missing.isCableIn, true);
        notebook.Service(missing.service).state = SERVICE_START_PENDING;
        if (!missing.isInstalled) {
            notebook.Uninstall(missing.service);
        }
        EXPECT_TRUE(NLMUtils::SystemResumeHandler());
        EXPECT_THAT(LinesOf(kResume), Contains(Error(kResume, missing.failure)));
        EXPECT_THAT(LinesOf(kResume), Contains(isWlan ? kWlanWaitedAgain : kWwanWaitedAgain));
        const int polls = missing.isInstalled ? kMostPolls : 1;
        EXPECT_EQ(Opens(isWlan ? "WlanSvc" : "WwanSvc"), polls);
        EXPECT_THAT(machine.clock.SleepsAndWaits(), Contains(kPollInterval).Times(polls));
        EXPECT_THAT(isWlan ? WlanSwitches() : WwanSwitches(), ElementsAre(missing.isCableIn ? "off" : "on"));
    }
}

TEST_F(ResumeTest, FailedEthernetCheckEndsTheHandler) {
    EnableSwitching();
    machine.HideAdapters();
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_THAT(log.Of(kResume),
                ElementsAre(TraceIn(kResume), Error(kResume, L"CheckEthernetConnectionStatusEx failed"),
                            TraceOut(kResume, L"Return = 1")));
    EXPECT_EQ(notebook.Calls(), notebook.Calls(Call::GetAdaptersInfo));
}

TEST_F(ResumeTest, WlanServiceIsWaitedForBeforeItsRadioIsTouched) {
    EnableWlanSwitching();
    Set(false, true);
    NLMUtils::SystemResumeHandler();
    const std::vector<std::string> calls = notebook.Calls();
    const auto isOpenService = [](const std::string& call) {
        return call.starts_with("OpenServiceW WlanSvc");
    };
    EXPECT_LT(std::ranges::find_if(calls, isOpenService),
              std::ranges::find(calls, "WlanOpenHandle version 2"));
}

TEST_F(ResumeTest, RememberedChoiceDecidesWhetherARadioComesBackAndSwitchesNoneOff) {
    EnableSwitching();
    for (const wchar_t* const text : {L"True", L"", L"False"}) {
        const Switches wanted = std::wstring(text) != L"False" ? Switches{"on"} : Switches{};
        Set(false, true);
        machine.RememberWlan(text);
        machine.RememberWwan(text);
        NLMUtils::SystemResumeHandler();
        EXPECT_EQ(WlanSwitches(), wanted);
        EXPECT_EQ(WwanSwitches(), wanted);
    }
    SetRadios(true);
    NLMUtils::SystemResumeHandler();
    EXPECT_TRUE(notebook.WlanIsOn());
    EXPECT_TRUE(ModemIsOn());
}

TEST_F(ResumeTest, InAirplaneModeNothingIsSwitchedOn) {
    EnableSwitching();
    machine.SetAirplaneMode(true);
    Set(false, true);
    NLMUtils::SystemResumeHandler();
    EXPECT_THAT(WlanSwitches(), IsEmpty());
    EXPECT_THAT(WwanSwitches(), IsEmpty());
}

TEST_F(ResumeTest, WithCableAndStubbornModemTheFailureIsLoggedAfterSixAttempts) {
    EnableWwanSwitching();
    Set(true, true);
    MakeRadiosStubborn();
    EXPECT_TRUE(NLMUtils::SystemResumeHandler());
    EXPECT_THAT(LinesOf(kResume), ElementsAre(Information(kResume, L"Ethernet Status = 1"), kWaitForWwanAgain,
                                              kWwanWaitedAgain, kWwanSwitchFailed));
    EXPECT_EQ(
        log.Count(TraceIn("ServiceUtils::SwitchWwanStatus", L"OnOffValue = 0, bCheckAirplaneStatus = 1")), 6);
}

// --- OnContinue ------------------------------------------------------------------------------------

constexpr char kContinue[] = "CServiceBase::OnContinue";
constexpr wchar_t kWlanSetting[] = L"LAN / WLAN Auto Switching";
constexpr wchar_t kWwanSetting[] = L"LAN / WWAN Auto Switching";

class ContinueTest : public ResumeTest {
  protected:
    ContinueTest() { log.Clear(); }  // the construction of the service

    void Continue() {
        Rig::RunOnThread([this] { service.OnContinue(); }, Rig::Apartment::kNone);
    }

    OpenService service;
};

TEST_F(ContinueTest, ReadsBothSettingsInTheirOrderAndDecidesTheRadiosWithEitherFeature) {
    notebook.SetSetting(kWlanSetting, L"*Disable");
    notebook.SetSetting(kWwanSetting, L"*Disable");
    for (const unsigned features : {0U, 1U, 2U, 3U}) {
        EnableSwitching((features & 1U) != 0, (features & 2U) != 0);
        log.Clear();
        notebook.ForgetCalls();
        Continue();
        EXPECT_THAT(log.Of(kContinue), ElementsAre(TraceIn(kContinue), TraceOut(kContinue)));
        EXPECT_EQ(log.Lines().front(), TraceIn(kContinue));
        EXPECT_EQ(log.Lines().back(), TraceOut(kContinue));
        EXPECT_THAT(notebook.Calls(Call::WbemExecQuery), ElementsAre(HasSubstr("LAN / WLAN Auto Switching"),
                                                                     HasSubstr("LAN / WWAN Auto Switching")));
        EXPECT_EQ(log.Count(TraceIn(kResume)), features == 0 ? 0 : 1);
        EXPECT_EQ(notebook.Count(Call::GetAdaptersInfo) > 0, features != 0);
        // What was enabled once stays so.
        EXPECT_EQ(NLMUtils::lanWlanSwitchingEnabled, (features & 1U) != 0);
        EXPECT_EQ(NLMUtils::lanWwanSwitchingEnabled, (features & 2U) != 0);
    }
}

TEST_F(ContinueTest, FeatureThatWasEnabledMeanwhileCountsAtOnce) {
    notebook.SetSetting(kWlanSetting, L"Enable");
    SetRadios(false);
    Continue();
    EXPECT_TRUE(NLMUtils::lanWlanSwitchingEnabled);
    EXPECT_THAT(WlanSwitches(), ElementsAre("on"));
    EXPECT_THAT(WwanSwitches(), IsEmpty());
}

}  // namespace
}  // namespace CoreTests
