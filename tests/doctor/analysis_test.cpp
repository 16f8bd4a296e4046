#include "doctor/analysis/analysis.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "tests/doctor/written_log.h"

namespace Doctor {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

const char kPhyRefused[] = "Set WLAN state failed!err is 31";

std::vector<std::string> CausesOf(const Machine& machine) {
    std::vector<std::string> causes;
    for (const Finding& finding : machine.findings) {
        causes.emplace_back(InfoOf(finding.cause).id);
    }
    return causes;
}

WrittenLog RadioChange(WrittenLog log, bool on) {
    log.On(0x40, "CMainService::WlanNotificationCallback").TraceIn();
    log.In("CMainService::HandleWlanNotificationMsmRadioStateChange").LooksAtWifi(on);
    return log;
}

/// Without a cable: the change is stored.
WrittenLog UserSwitches(WrittenLog log, bool on) {
    log = RadioChange(std::move(log), on);
    log.In("ServiceUtils::SetWlanPowerStatusInRegistry");
    log.Information(on ? "SetWlanPowerStatusInRegistry. Value = True"
                       : "SetWlanPowerStatusInRegistry. Value = False");
    log.TraceOut("Return Status = 0").In("CMainService::WlanNotificationCallback").TraceOut();
    return log;
}

WrittenLog CableSwitchesOff(WrittenLog log) {
    log.CableIn().Information("Connecting to Ethernet. Stop WLAN service...").SwitchesWifi(false).EventEnds();
    return log;
}

TEST(Verdict, OfAStartWithoutACableIsThatWifiIsOn) {
    EXPECT_EQ(VerdictOf(WrittenLog().Started().Text()), "wifi-on");
}

TEST(Verdict, WithTheCableInNamesItsAdapter) {
    const Machine machine = Analysed(CableSwitchesOff(WrittenLog().Started()).Text());
    EXPECT_EQ(CausesOf(machine).front(), "cable-in");
    EXPECT_THAT(machine.findings.front().sentence, HasSubstr("Brook Gigabit Ethernet Controller 1"));
    EXPECT_EQ(machine.findings.front().proof.front().text, "Ethernet is not VPN and IP is valid");
}

TEST(Verdict, WithAnotherCableStillInSaysSo) {
    WrittenLog log = CableSwitchesOff(WrittenLog().Started());
    log.CableOut(true).EventEnds();
    EXPECT_EQ(VerdictOf(log.Text()), "other-cable");
}

TEST(Verdict, OfADriverThatRefusesCountsItsRefusals) {
    WrittenLog log = CableSwitchesOff(WrittenLog().Started());
    log.CableOut().Information("The disconnecting connection was Ethernet. Start WLAN service...");
    log.In("ServiceUtils::SwitchWlanStatus").TraceIn("OnOffValue = 1, bCheckAirplaneStatus = 1");
    log.Information("Current WLAN Status : 0, To Change Status = 1");
    for (int i = 0; i < 486; ++i) {
        log.Error(kPhyRefused);
    }
    log.TraceOut("WLAN switching Status = 0").EventEnds();
    const Machine machine = Analysed(log.Text());
    EXPECT_EQ(CausesOf(machine).front(), "driver-refuses");
    EXPECT_THAT(machine.findings.front().sentence, HasSubstr("486 times in 4 s with error 31"));
    std::vector<std::uint64_t> folded;
    for (const StoryEvent& event : machine.history.story) {
        if (event.text == kPhyRefused) {
            folded.push_back(event.times);
        }
    }
    EXPECT_THAT(folded, ElementsAre(486));
    // The first refusal and the last prove it.
    const std::vector<Proof>& proof = machine.findings.front().proof;
    ASSERT_EQ(proof.size(), 2U);
    EXPECT_EQ(proof[1].place.line - proof[0].place.line, 485U);
}

TEST(Verdict, OfACableThatNoEventToldOfIsThatTheyComeNoMore) {
    const auto looksByTheWay = [](WrittenLog& log) -> WrittenLog& {
        log.On(0x70, "CMainService::WlanNotificationCallback").TraceIn();
        log.LooksAtAdaptersBy("CMainService::WlanNotificationCallback", true);
        return log.TraceOut();
    };
    WrittenLog lost = WrittenLog().Started();
    looksByTheWay(lost).Later(200).LooksAtWifi(true);
    EXPECT_EQ(VerdictOf(lost.Text()), "subscription-lost");

    WrittenLog last = WrittenLog().Started();
    EXPECT_EQ(VerdictOf(looksByTheWay(last).Text()), "subscription-lost") << "nothing comes behind the look";
    const Time look = *Analysed(last.Text()).findings.front().time;
    const auto verdictAfter = [&last, look](Time later) {
        return VerdictOf(last.Text(), {.time = TimeText(look + later), .since = "", .until = ""});
    };
    EXPECT_NE(verdictAfter(99), "subscription-lost") << "the event may be on its way";
    EXPECT_EQ(verdictAfter(100), "subscription-lost") << "the event would have come";

    WrittenLog told = WrittenLog().Started();
    looksByTheWay(told).Later(200).CableIn().EventEnds();
    EXPECT_NE(VerdictOf(told.Text()), "subscription-lost") << "the event came behind the look";

    WrittenLog before = WrittenLog().Started().CableIn().EventEnds();
    looksByTheWay(before).Later(200).LooksAtWifi(true);
    EXPECT_NE(VerdictOf(before.Text()), "subscription-lost") << "the event came before the look";

    WrittenLog slept = WrittenLog().Started();
    slept.Later(3600000).On(0x71, "CServiceBase::OnContinue").TraceIn().TraceOut();
    looksByTheWay(slept).Later(200).LooksAtWifi(true);
    EXPECT_NE(VerdictOf(slept.Text()), "subscription-lost") << "moved in a sleep";
}

TEST(Story, FoldsTriesThatDifferInTheirNumber) {
    WrittenLog log = WrittenLog().Started().On(0x20, "ServiceUtils::SwitchWlanStatus");
    for (int i = 0; i < 5; ++i) {
        log.Warning("Could not Set WLAN state in all PHYs. So retrying in count = " + std::to_string(i));
    }
    log.Warning("Could not Set WLAN state in all PHYs. Giving up");
    const Machine machine = Analysed(log.Text());
    const auto count = std::count_if(
        machine.history.story.begin(), machine.history.story.end(),
        [](const StoryEvent& event) { return event.text.find("in all PHYs. So") != std::string::npos; });
    EXPECT_EQ(count, 1);
    EXPECT_EQ(std::count_if(machine.history.story.begin(), machine.history.story.end(),
                            [](const StoryEvent& event) { return event.times == 5; }),
              1);
}

TEST(Story, FoldsTriesToListModems) {
    WrittenLog log = WrittenLog().Started().On(0x20, "ServiceUtils::EnumerateWwanInterfaces");
    for (int i = 0; i < 5; ++i) {
        log.Warning(fmt::format("GetInterfaces failed in try {} with !err is 0x80070426", i)).Later(500);
    }
    log.Error("GetInterfaces failed with error: HRESULT : 0x80070426");
    const Machine machine = Analysed(log.Text());
    std::vector<std::uint64_t> folded;
    for (const StoryEvent& event : machine.history.story) {
        if (event.text.starts_with("GetInterfaces failed")) {
            folded.push_back(event.times);
        }
    }
    EXPECT_THAT(folded, ElementsAre(5, 1));
}

TEST(Verdict, OfAUsersSwitchIsTheUser) {
    EXPECT_EQ(VerdictOf(UserSwitches(WrittenLog().Started(), false).Text()), "user-off");
}

TEST(Verdict, OfTheEchoOfTheServicesOwnSwitchIsNotTheUser) {
    WrittenLog log = WrittenLog().Started();
    log.On(0x20, "CMainService::ServiceWorkerThread").SwitchesWifi(false);
    const Machine machine = Analysed(UserSwitches(std::move(log), false).Text());
    EXPECT_EQ(CausesOf(machine).front(), "remembered-off");
    EXPECT_EQ(machine.history.wifi.Last().who, Who::kService);
    EXPECT_EQ(machine.history.rememberedWlan.Last().who, Who::kService);
}

TEST(Verdict, AfterASwitchOnThatWorkedLooksElsewhere) {
    WrittenLog log = CableSwitchesOff(WrittenLog().Started());
    log.CableOut().Information("The disconnecting connection was Ethernet. Start WLAN service...");
    log.SwitchesWifi(true).EventEnds();
    EXPECT_EQ(VerdictOf(log.Text()), "wifi-on");
    log.Later(60000);
    const Machine machine = Analysed(RadioChange(std::move(log), false).Text());
    EXPECT_EQ(CausesOf(machine).front(), "turned-off-elsewhere");
}

TEST(Verdict, OfADisabledHalfSaysWhatTheFirmwareSays) {
    const Machine machine = Analysed(WrittenLog().Started("*Disabled").Text());
    EXPECT_EQ(CausesOf(machine).front(), "half-disabled");
    EXPECT_THAT(machine.findings.front().sentence, HasSubstr("*Disabled"));
}

TEST(Verdict, AboutATimeLeavesOutWhatCameLater) {
    WrittenLog log = CableSwitchesOff(WrittenLog().Started());
    const Time between = log.Now();
    log.Later(120000);
    log.CableOut().SwitchesWifi(true).EventEnds();
    EXPECT_EQ(VerdictOf(log.Text(), {.time = TimeText(between + 60000), .since = "", .until = ""}),
              "cable-in");
    EXPECT_EQ(VerdictOf(log.Text()), "wifi-on");
}

TEST(Verdict, BeforeTheLogBeginsIsThatItDoesNotReach) {
    EXPECT_EQ(
        VerdictOf(WrittenLog().Started().Text(), {.time = "2026/11/19 08:00", .since = "", .until = ""}),
        "log-does-not-reach");
}

TEST(Verdict, OfAStoppedServiceIsThatItDoesNotRun) {
    WrittenLog log = WrittenLog().Started();
    log.On(0x11, "CMainService::OnStop").Information("Linkvane Service in OnStop");
    EXPECT_EQ(VerdictOf(log.Text()), "service-not-running");
}

TEST(Verdict, BetweenTwoStartsWithoutAStopIsThatTheServiceEnded) {
    WrittenLog log = WrittenLog().Started();
    const Time end = log.Now();
    log.Later(600000).Started();
    EXPECT_EQ(VerdictOf(log.Text(), {.time = TimeText(end + 60000), .since = "", .until = ""}),
              "service-ended");
    EXPECT_EQ(VerdictOf(log.Text()), "wifi-on");
}

TEST(Verdict, OfFilesThatAreNoLogSaysSo) {
    EXPECT_EQ(VerdictOf(""), "log-empty");
    EXPECT_EQ(VerdictOf(std::string(5000, '\0')), "log-empty");
    EXPECT_EQ(VerdictOf("2026/11/20 20:37:06.860|00000120|Error      |Other::Program|text\r\n"),
              "not-this-log");
}

TEST(Verdict, OfWarningsAndErrorsAloneIsThatLevelsAreHidden) {
    WrittenLog log;
    log.On(0x20, "ServiceUtils::GetRadioInterface");
    log.Warning("GetInterface failed in try 0 with !err is 0x80070426");
    EXPECT_EQ(VerdictOf(log.Text()), "levels-hidden");
}

TEST(Analysis, ReadsALogWithoutTracesLikeTheWholeOne) {
    const std::string whole = UserSwitches(CableSwitchesOff(WrittenLog().Started()), true).Text();
    std::string bare;
    for (std::size_t begin = 0; begin < whole.size();) {
        const std::size_t end = whole.find('\n', begin) + 1;
        const std::string line = whole.substr(begin, end - begin);
        if (line.find("|Trace") == std::string::npos) {
            bare += line;
        }
        begin = end;
    }
    EXPECT_EQ(VerdictOf(bare), VerdictOf(whole));
}

TEST(Analysis, LeavesOutALineThatANameHolds) {
    WrittenLog log = WrittenLog().Started();
    log.On(0x30, "NLMUtils::PrintAdapterInfo");
    log.Information(
        "Description   : Brook\r\n2026/11/01 08:00:00.000|00000077|Information|CMainService::OnStop|Linkvane "
        "Service "
        "in OnStop");
    log.Information("Friendly Name : Ethernet");
    const Machine machine = Analysed(log.Text());
    EXPECT_THAT(CausesOf(machine), Contains("lines-doubtful"));
    EXPECT_THAT(CausesOf(machine), Not(Contains("service-not-running")));
    EXPECT_EQ(machine.files.front().doubtful, 1U);
}

TEST(Analysis, KeepsLinesOfOtherThreadsBehindAName) {
    WrittenLog log = WrittenLog().Started();
    log.On(0x30, "NLMUtils::PrintAdapterInfo").Information("Description   : Brook");
    log.On(0x11, "CMainService::OnStop").TraceIn();
    log.Information("Linkvane Service in OnStop");
    EXPECT_EQ(VerdictOf(log.Text()), "service-not-running");
}

TEST(Analysis, TellsOfAClockThatWasSetBack) {
    WrittenLog log = WrittenLog().Started();
    log.At(log.Now() - 3600000);
    const Machine machine = Analysed(CableSwitchesOff(std::move(log)).Text());
    EXPECT_EQ(CausesOf(machine).front(), "cable-in");
    EXPECT_THAT(CausesOf(machine), Contains("clock-set-back"));
}

TEST(Analysis, JoinsRotatedFilesWhateverTheirOrder) {
    const std::string older = WrittenLog().Started().Text();
    WrittenLog log;
    log.Later(60000);
    const std::string newer = CableSwitchesOff(std::move(log)).Text();
    const ScratchFolder folder;
    const auto numbered = folder.Write("LinkvaneService_0001.log", older);
    const auto current = folder.Write("LinkvaneService.log", newer);
    for (const auto& paths : {std::vector{current, numbered}, std::vector{numbered, current}}) {
        const std::vector<Machine> machines = Analyse(paths, {});
        ASSERT_EQ(machines.size(), 1U);
        EXPECT_EQ(machines.front().files.front().path, numbered);
        EXPECT_EQ(CausesOf(machines.front()).front(), "cable-in");
    }
    const auto first = folder.Write("copies/b.txt", older);
    const auto second = folder.Write("copies/a.txt", newer);
    EXPECT_EQ(Analyse({second, first}, {}).front().files.front().path, first);
}

TEST(Analysis, TakesFoldersForMachines) {
    const ScratchFolder folder;
    folder.Write("one/LinkvaneService.log", WrittenLog().Started().Text());
    folder.Write("two/LinkvaneService.log", CableSwitchesOff(WrittenLog().Started()).Text());
    const std::vector<Machine> machines = Analyse({folder.Path() / "one", folder.Path() / "two"}, {});
    ASSERT_EQ(machines.size(), 2U);
    EXPECT_EQ(CausesOf(machines[0]).front(), "wifi-on");
    EXPECT_EQ(CausesOf(machines[1]).front(), "cable-in");
}

TEST(Analysis, RefusesATimeThatIsNone) {
    EXPECT_THROW(Analysed(WrittenLog().Started().Text(), {.time = "soon", .since = "", .until = ""}),
                 BadQuestion);
}

TEST(Causes, HaveEachAnIdOfItsOwn) {
    std::vector<std::string_view> ids;
    for (const CauseInfo& info : AllCauses()) {
        EXPECT_THAT(ids, Not(Contains(info.id)));
        EXPECT_EQ(InfoOf(info.cause).id, info.id);
        ids.push_back(info.id);
    }
}

TEST(Causes, AreAllExplainedInTheDocuments) {
    std::ifstream file(std::filesystem::path(DOCTOR_SOURCES) / "docs/doctor.md");
    const std::string document{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    for (const CauseInfo& info : AllCauses()) {
        EXPECT_THAT(document, HasSubstr("`" + std::string(info.id) + "`"));
    }
}

}  // namespace
}  // namespace Doctor
