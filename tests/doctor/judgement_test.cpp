#include "doctor/inspection/judgement.h"

#include <gmock/gmock.h>

#include <functional>
#include <nlohmann/json.hpp>

#include "doctor/inspection/report.h"

namespace {

using namespace Inspection;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

Service RunningService(const char* name) {
    Service service;
    service.name = name;
    service.state = "running";
    return service;
}

/// A notebook on which nothing is amiss: the service runs, no cable is in, the radios are on.
State GoodState() {
    State state;
    state.isElevated = true;
    Service& service = state.service = RunningService("LinkvaneService");
    service.isConfigKnown = true;
    service.executable = "C:\\Program Files\\Orva\\LinkvaneService.exe";
    service.isExecutableThere = true;
    service.isQuoted = true;
    service.type = "own-process";
    service.start = "automatic";
    service.account = "LocalSystem";
    service.dependencies = service.expectedDependencies = {"WlanSvc", "WwanSvc"};
    service.isRecoveryKnown = true;
    service.restartMinutes = service.expectedRestartMinutes = {2, 4, 6};
    service.forgetsAfterSeconds = service.expectedForgetsAfterSeconds = 3600;
    service.restartsAfterErrors = true;
    state.wlanService = RunningService("WlanSvc");
    state.wwanService = RunningService("WwanSvc");
    state.lanWlan = {"LAN / WLAN Auto Switching", 0, "Enabled", true};
    state.lanWwan = {"LAN / WWAN Auto Switching", 0, "Enabled", true};
    Adapter port;
    port.description = "Brook Gigabit";
    port.address = "0.0.0.0";
    port.verdict = "no-address";
    state.network.adapters = {port};
    state.wlan.isApiThere = true;
    state.wlan.isOn = true;
    state.wlan.interfaces = {{"Brook Wireless", "{1}", "connected", 0, {{"on", "on"}}}};
    state.wwan.modems = {{"{2}", 0, "on", "on"}};
    state.airplane.isNumber = true;
    state.policies.maxLevel = 5;
    state.policies.outputs = {"file"};
    state.logFolders = {{"C:\\log", true, 0, {{"C:\\log\\LinkvaneService.log", 1, ""}}}};
    return state;
}

void PutCableIn(State& state) {
    state.network.adapters.front().address = "192.168.1.2";
    state.network.adapters.front().verdict = "cable";
    state.wlan.isOn = false;
    state.wwan.modems.front().software = "off";
}

Policy OddPolicy(const char* name, const char* oddity) {
    return {true, {name, "REG_SZ", "text"}, oddity, {}};
}

std::vector<std::string> Ids(const std::vector<Finding>& findings) {
    std::vector<std::string> ids;
    for (const Finding& finding : findings) {
        ids.push_back(finding.id);
    }
    return ids;
}

struct Case {
    const char* situation;
    std::function<void(State&)> arrange;
    std::vector<std::string> ids;
    int exitCode;
};

void PrintTo(const Case& each, std::ostream* stream) {
    *stream << each.situation;
}

class JudgementTest : public testing::TestWithParam<Case> {};

TEST_P(JudgementTest, SituationHasItsFindingsAndExitCode) {
    State state = GoodState();
    GetParam().arrange(state);
    const std::vector<Finding> findings = Judge(state);
    EXPECT_EQ(Ids(findings), GetParam().ids);
    EXPECT_EQ(ExitCode(findings), GetParam().exitCode);
    for (const Finding& finding : findings) {
        EXPECT_THAT(finding.sentence, testing::EndsWith("."));
        // What is wrong has a way out of it.
        EXPECT_FALSE(finding.severity == Severity::kFault && finding.remedy.empty()) << finding.id;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Service, JudgementTest,
    testing::Values(
        Case{"nothing amiss", [](State&) {}, {"well"}, kAllWell},
        Case{"not installed",
             [](State& s) {
                 s.service = {};
                 s.service.state = "absent";
             },
             {"service-not-installed"},
             kCannotWork},
        Case{"stopped", [](State& s) { s.service.state = "stopped"; }, {"service-not-running"}, kCannotWork},
        Case{
            "stopping", [](State& s) { s.service.state = "stopping"; }, {"service-not-running"}, kCannotWork},
        Case{"starting", [](State& s) { s.service.state = "starting"; }, {"service-busy"}, kWarnings},
        Case{"paused", [](State& s) { s.service.state = "paused"; }, {"service-busy"}, kWarnings},
        Case{"not told",
             [](State& s) {
                 s.service = {};
                 s.service.error = kErrorAccessDenied;
             },
             {"service-unknown"},
             kCannotBeTold},
        Case{"file deleted",
             [](State& s) { s.service.isExecutableThere = false; },
             {"service-file-missing"},
             kCannotWork},
        Case{"no quotes", [](State& s) { s.service.isQuoted = false; }, {"service-path-unquoted"}, kWarnings},
        Case{"disabled", [](State& s) { s.service.start = "disabled"; }, {"service-disabled"}, kCannotWork},
        Case{"manual", [](State& s) { s.service.start = "manual"; }, {"service-not-automatic"}, kWarnings},
        Case{
            "other account", [](State& s) { s.service.account = ".\\anna"; }, {"service-account"}, kWarnings},
        Case{
            "account in other case", [](State& s) { s.service.account = "LOCALSYSTEM"; }, {"well"}, kAllWell},
        Case{"other type", [](State& s) { s.service.type = "other"; }, {"service-type"}, kWarnings},
        Case{"no dependencies",
             [](State& s) { s.service.dependencies.clear(); },
             {"service-dependencies"},
             kWarnings},
        Case{"no restarts",
             [](State& s) { s.service.restartMinutes.clear(); },
             {"service-recovery"},
             kWarnings},
        Case{"no restarts after errors",
             [](State& s) { s.service.restartsAfterErrors = false; },
             {"service-recovery"},
             kWarnings},
        Case{"recovery not told", [](State& s) { s.service.isRecoveryKnown = false; }, {"well"}, kAllWell},
        Case{"never started, so no restarts yet",
             [](State& s) {
                 s.service.state = "stopped";
                 s.service.restartMinutes.clear();
             },
             {"service-not-running"},
             kCannotWork},
        Case{"WLAN AutoConfig absent",
             [](State& s) { s.wlanService.state = "absent"; },
             {"wlansvc-absent"},
             kCannotWork},
        Case{"WLAN AutoConfig stopped",
             [](State& s) {
                 s.wlanService.state = "stopped";
                 s.wlan.error = kErrorServiceNotActive;
             },
             {"wlansvc-not-running"},
             kCannotWork},
        Case{"WWAN AutoConfig absent",
             [](State& s) { s.wwanService.state = "absent"; },
             {"wwansvc-absent"},
             kCannotWork},
        Case{"WWAN AutoConfig stopped, with a modem",
             [](State& s) { s.wwanService.state = "stopped"; },
             {"wwansvc-not-running"},
             kCannotWork},
        Case{"WWAN AutoConfig stopped, without one",
             [](State& s) {
                 s.wwanService.state = "stopped";
                 s.wwan.modems.clear();
             },
             {"well", "wwansvc-not-running", "wwan-no-modem"},
             kAllWell}));

INSTANTIATE_TEST_SUITE_P(
    Firmware, JudgementTest,
    testing::Values(Case{"one half disabled",
                         [](State& s) {
                             s.lanWlan = {"LAN / WLAN Auto Switching", 0, "*Disabled", false};
                         },
                         {"well", "wifi-half-disabled"},
                         kAllWell},
                    Case{"both disabled",
                         [](State& s) {
                             s.lanWlan = {"a", 0, "*Disabled", false};
                             s.lanWwan = {"b", 0, "*Disabled", false};
                         },
                         {"both-halves-disabled", "wifi-half-disabled", "wwan-half-disabled"},
                         kCannotWork},
                    Case{"one absent",
                         [](State& s) {
                             s.lanWwan = {"b", kWmiNoSuchSetting, "", false};
                         },
                         {"well", "wwan-half-absent"},
                         kAllWell},
                    Case{"no provider",
                         [](State& s) {
                             s.lanWlan = {"a", kWmiInvalidNamespace, "", false};
                             s.lanWwan = {"b", kWmiInvalidNamespace, "", false};
                         },
                         {"provider-missing"},
                         kCannotWork},
                    Case{"for administrators alone",
                         [](State& s) {
                             s.isElevated = false;
                             s.lanWlan = {"a", kWmiAccessDenied, "", false};
                             s.lanWwan = {"b", kWmiAccessDenied, "", false};
                         },
                         {"wifi-half-unreadable", "wwan-half-unreadable"},
                         kCannotBeTold},
                    Case{"no answer in time",
                         [](State& s) {
                             s.lanWlan = {"a", kWmiTimedOut, "", false};
                         },
                         {"wifi-half-unreadable"},
                         kCannotBeTold}));

INSTANTIATE_TEST_SUITE_P(
    CableAndRadios, JudgementTest,
    testing::Values(Case{"cable in", &PutCableIn, {"well", "cable-in"}, kAllWell},
                    Case{"cable in, radios on",
                         [](State& s) {
                             PutCableIn(s);
                             s.wlan.isOn = true;
                             s.wwan.modems.front().software = "on";
                         },
                         {"wifi-on-beside-cable", "wwan-on-beside-cable", "cable-in"},
                         kWarnings},
                    Case{"cable in, Wi-Fi on, its half disabled",
                         [](State& s) {
                             PutCableIn(s);
                             s.wlan.isOn = true;
                             s.lanWlan = {"a", 0, "*Disabled", false};
                         },
                         {"well", "wifi-half-disabled", "cable-in"},
                         kAllWell},
                    Case{"cable out, Wi-Fi off",
                         [](State& s) { s.wlan.isOn = false; },
                         {"wifi-off-without-cable"},
                         kWarnings},
                    Case{"cable out, Wi-Fi off, remembered off",
                         [](State& s) {
                             s.wlan.isOn = false;
                             s.rememberedWlan = {0, Value{"PowerOnOff", "REG_SZ", "False"}, "off", "none"};
                         },
                         {"well", "remembered-off"},
                         kAllWell},
                    Case{"airplane mode, Wi-Fi off",
                         [](State& s) {
                             s.wlan.isOn = false;
                             s.airplane.isOn = true;
                             s.wwan.modems.front().software = "off";
                         },
                         {"well", "airplane-mode"},
                         kAllWell},
                    Case{"stopped with Wi-Fi off: said once",
                         [](State& s) {
                             s.service.state = "stopped";
                             s.wlan.isOn = false;
                         },
                         {"service-not-running"},
                         kCannotWork},
                    Case{"VPN adapter that counts as a cable",
                         [](State& s) {
                             PutCableIn(s);
                             s.network.adapters.front().description = "TAP-Windows Adapter V9";
                         },
                         {"odd-cable", "cable-in"},
                         kWarnings},
                    Case{"adapters not told",
                         [](State& s) {
                             s.network = {kErrorAccessDenied, {}};
                         },
                         {"cable-unreadable"},
                         kCannotBeTold},
                    Case{"no adapter at all",
                         [](State& s) {
                             s.network = {kErrorNoData, {}};
                         },
                         {"cable-no-adapters"},
                         kWarnings},
                    Case{"no wlanapi.dll", [](State& s) { s.wlan = {}; }, {"wlanapi-missing"}, kCannotWork},
                    Case{"two Wi-Fi adapters",
                         [](State& s) { s.wlan.interfaces.push_back(s.wlan.interfaces.front()); },
                         {"wifi-only-first"},
                         kWarnings},
                    Case{"Wi-Fi for administrators alone",
                         [](State& s) { s.wlan.interfaces.front().error = kErrorAccessDenied; },
                         {"wifi-unreadable"},
                         kCannotBeTold},
                    Case{"wireless switch off",
                         [](State& s) { s.wlan.interfaces.front().phys.front().hardware = "off"; },
                         {"well", "wifi-hardware-off"},
                         kAllWell},
                    Case{"two modems",
                         [](State& s) { s.wwan.modems.push_back(s.wwan.modems.front()); },
                         {"wwan-only-last"},
                         kWarnings},
                    Case{"modem that does not answer",
                         [](State& s) { s.wwan.modems.front().error = 0x80004005; },
                         {"wwan-unreadable"},
                         kWarnings}));

INSTANTIATE_TEST_SUITE_P(
    RegistryAndLog, JudgementTest,
    testing::Values(
        Case{"airplane mode missing",
             [](State& s) { s.airplane.error = kErrorFileNotFound; },
             {"well", "airplane-missing"},
             kAllWell},
        Case{"airplane mode of another type",
             [](State& s) { s.airplane.isNumber = false; },
             {"airplane-type"},
             kWarnings},
        Case{"another text remembered",
             [](State& s) {
                 s.rememberedWlan = {0, Value{"PowerOnOff", "REG_SZ", "no"}, "off", "other-text"};
             },
             {"remembered-odd"},
             kWarnings},
        Case{"another type remembered",
             [](State& s) {
                 s.rememberedWwan = {0, Value{"PowerOnOff", "REG_DWORD", "0"}, "on", "wrong-type"};
             },
             {"remembered-type"},
             kWarnings},
        Case{"remembered, but not for us",
             [](State& s) { s.rememberedWlan.error = kErrorAccessDenied; },
             {"remembered-unreadable"},
             kCannotBeTold},
        Case{"misspelt level",
             [](State& s) {
                 s.policies.policies = {OddPolicy("MinLogLevel", "unknown-word")};
                 s.policies.minLevel = 99;
             },
             {"policy-unknown-word", "log-silenced"},
             kWarnings},
        Case{"log of levels that cross",
             [](State& s) { s.policies.minLevel = 6; },
             {"log-silenced"},
             kWarnings},
        Case{"no log", [](State& s) { s.logFolders.front().files.clear(); }, {"log-missing"}, kWarnings},
        Case{"log for administrators alone",
             [](State& s) {
                 s.logFolders.front() = {"C:\\log", true, kErrorAccessDenied, {}};
             },
             {"well", "log-not-readable"},
             kAllWell},
        Case{"log to the event log alone",
             [](State& s) {
                 s.logFolders.front().files.clear();
                 s.policies.outputs = {"event"};
             },
             {"well"},
             kAllWell}));

TEST(JudgementTest, FaultOutweighsWhatCannotBeToldAndThatAWarning) {
    const auto with = [](Severity severity) { return Finding{"x", severity, "", "", ""}; };
    EXPECT_EQ(ExitCode({with(Severity::kWarning), with(Severity::kUnknown)}), kCannotBeTold);
    EXPECT_EQ(ExitCode({with(Severity::kUnknown), with(Severity::kFault)}), kCannotWork);
    EXPECT_EQ(ExitCode({with(Severity::kNote)}), kAllWell);
}

TEST(JudgementTest, GravestComesFirst) {
    State state = GoodState();
    state.service.start = "manual";
    state.lanWlan = {"a", kWmiTimedOut, "", false};
    state.wlanService.state = "absent";
    const std::vector<Finding> findings = Judge(state);
    EXPECT_EQ(findings.front().id, "wlansvc-absent");
    EXPECT_EQ(findings.front().severity, Severity::kFault);
}

TEST(JudgementTest, RegistrationIsMendedByThePackageWhichKeepsWhatUsersChose) {
    const auto missing = [](Service& service) { service.isExecutableThere = false; };
    const auto unquoted = [](Service& service) { service.isQuoted = false; };
    const auto otherType = [](Service& service) { service.type = "other"; };
    for (const std::function<void(Service&)>& spoil :
         {std::function<void(Service&)>(missing), std::function<void(Service&)>(unquoted),
          std::function<void(Service&)>(otherType)}) {
        State state = GoodState();
        spoil(state.service);
        const Finding finding = Judge(state).front();
        EXPECT_EQ(finding.subject, "service");
        EXPECT_THAT(finding.remedy, HasSubstr("msiexec /i LinkvaneService.msi REINSTALL=ALL")) << finding.id;
        EXPECT_THAT(finding.remedy, Not(HasSubstr("LinkvaneService.exe -"))) << finding.id;
    }
}

TEST(StateReportTest, NamesFromOutsideCannotForgeLinesOrBreakTheJson) {
    State state = GoodState();
    PutCableIn(state);
    state.network.adapters.front().description = "evil\r\n 1. fault  \x1b[2J\"<b>\xff";
    EXPECT_THAT(StateAsText(state), Not(HasSubstr("evil\r")));
    EXPECT_THAT(StateAsText(state), Not(HasSubstr("\x1b")));
    EXPECT_THAT(FindingsAsText(Judge(state)), Not(HasSubstr("\x1b")));
    const nlohmann::json json = nlohmann::json::parse(StateAsJson(state));
    EXPECT_THAT(json["network"]["adapters"][0]["description"].get<std::string>(), HasSubstr("\"<b>"));
    EXPECT_TRUE(nlohmann::json::accept(FindingsAsJson(Judge(state), state)));
}

TEST(StateReportTest, JsonOfFindingsHasNumbersAndTheExitCode) {
    State state = GoodState();
    state.service.state = "stopped";
    const nlohmann::json json = nlohmann::json::parse(FindingsAsJson(Judge(state), state));
    EXPECT_EQ(json["exit_code"], kCannotWork);
    EXPECT_EQ(json["findings"][0]["number"], 1);
    EXPECT_EQ(json["findings"][0]["cause"], "service-not-running");
    EXPECT_EQ(json["findings"][0]["severity"], "fault");
}

TEST(StateReportTest, TextSaysWhyAnAdapterCountsOrNot) {
    State state = GoodState();
    EXPECT_THAT(StateAsText(state), HasSubstr("no cable: has no IPv4 address"));
    PutCableIn(state);
    EXPECT_THAT(StateAsText(state), HasSubstr("a cable: Ethernet"));
    state.network.adapters.front().verdict = "virtual";
    EXPECT_THAT(StateAsText(state), HasSubstr("no cable: VPN or Virtual"));
    state.network.adapters.front().verdict = "not-ethernet";
    EXPECT_THAT(StateAsText(state), HasSubstr("no cable: is not Ethernet"));
}

}  // namespace
