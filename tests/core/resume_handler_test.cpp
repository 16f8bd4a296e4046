#include "core/resume_handler.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "bios/bios_settings.h"
#include "radio/wwan_state.h"
#include "tests/core/core_test.h"

namespace CoreTests {
namespace {

constexpr char kResume[] = "NLMUtils::SystemResumeHandler";

const LogLine kStartingWlan = Information(kResume, L"Service resume handler starting WLAN service..");
const LogLine kWaitForWlan = Information(kResume, L"Wait for (WLAN AutoConfig) to start");
const LogLine kWlanWaitedAgain = Information(kResume, L"WLAN AutoConfig wait completed");
const LogLine kWaitForWwanAgain = Information(kResume, L"Wait for (WWAN AutoConfig) to start");
const LogLine kWwanWaitedAgain = Information(kResume, L"WWAN AutoConfig wait completed.");
const LogLine kStartingWwan =
    Information(kResume, L"Obtained Signal Service resume handler starting WWAN service..");
const LogLine kWwanSwitchFailed = Error(kResume, L"SwitchWwanStatusWithRetry failed");

// What it calls, by the lines of that.
const LogLine kWlanRuns = TraceOut(kWait, L"WlanSvc Running Status = 0");
const LogLine kWwanRuns = TraceOut(kWait, L"WwanSvc Running Status = 0");
const LogLine kStartsWlan = TraceIn("ServiceUtils::StartWLANService");
const LogLine kStartsWwan = TraceIn("ServiceUtils::StartWWANService");
const LogLine kSwitchesWwanOff =
    TraceIn("ServiceUtils::SwitchWwanStatusWithRetry", L"NewStatus = 0, Retry Count = 5");

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
    add(!isCableIn && wlanEnabled, {kStartingWlan, kWaitForWlan, kWlanRuns, kWlanWaitedAgain, kStartsWlan});
    add(wwanEnabled && hasModem, {kWaitForWwanAgain, kWwanRuns, kWwanWaitedAgain});
    add(!isCableIn && wwanEnabled, {kStartingWwan, kStartsWwan});
    add(isCableIn && wwanEnabled, {kSwitchesWwanOff});
    add(isCableIn && wwanEnabled && !hasModem, {kWwanSwitchFailed});
    expected.push_back(TraceOut(kResume, L"Return = 1"));
    std::vector<LogLine> lines = log.Lines();
    std::erase_if(lines, [](const LogLine& line) {
        return line.function != kResume &&
               std::ranges::none_of(
                   std::array{kWlanRuns, kWwanRuns, kStartsWlan, kStartsWwan, kSwitchesWwanOff},
                   [&line](const LogLine& call) { return line == call; });
    });
    EXPECT_EQ(lines, expected);

    EXPECT_EQ(notebook.WlanIsOn(), isCableIn || wlanEnabled);
    EXPECT_EQ(ModemIsOn(), isCableIn != (wwanEnabled && hasModem));
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
        bool isWlan;
        bool isInstalled;
        bool isCableIn;
    };
    for (const Missing& missing : {Missing{true, true, false}, Missing{false, true, true},
                                   Missing{false, false, false}, Missing{false, false, true}}) {
        SCOPED_TRACE(testing::Message() << missing.isWlan << missing.isInstalled << missing.isCableIn);
        log.Clear();
        EnableSwitching(missing.isWlan, !missing.isWlan);
        notebook.PullCable();
        Set(missing.isCableIn, true);
        const wchar_t* const service = missing.isWlan ? L"WlanSvc" : L"WwanSvc";
        notebook.Service(service).state = SERVICE_START_PENDING;
        if (!missing.isInstalled) {
            notebook.Uninstall(service);
        }
        EXPECT_TRUE(NLMUtils::SystemResumeHandler());
        const LogLine failed =
            Error(kResume,
                  std::wstring(L"WaitforServiceToStartRunning (") + (missing.isWlan ? L"WLAN" : L"WWAN") +
                      L" AutoConfig) failed with running status = " + (missing.isInstalled ? L"1" : L"-1"));
        EXPECT_THAT(LinesOf(kResume),
                    AllOf(Contains(failed), Contains(missing.isWlan ? kWlanWaitedAgain : kWwanWaitedAgain)));
        EXPECT_THAT(missing.isWlan ? WlanSwitches() : WwanSwitches(),
                    ElementsAre(missing.isCableIn ? "off" : "on"));
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
