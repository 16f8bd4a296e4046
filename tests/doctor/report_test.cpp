#include "doctor/analysis/report.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/doctor/written_log.h"

namespace Doctor {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(Harmless, LeavesOutWhatSteersATerminal) {
    EXPECT_EQ(Harmless("a\x1B[2J\r\nb\x7F\xC2\x9B"), "a [2J  b  ");
    EXPECT_EQ(Harmless("\xC3\xA9\xF0\x9F\x98\x80"), "\xC3\xA9\xF0\x9F\x98\x80");
}

TEST(Harmless, PutsASignForWhatIsNoUtf8) {
    const std::string sign = "\xEF\xBF\xBD";
    EXPECT_EQ(Harmless("\xFFz"), sign + "z");
    EXPECT_EQ(Harmless("\xC3"), sign);
    EXPECT_EQ(Harmless("\xC0\x80"), sign + sign);
    EXPECT_EQ(Harmless("\xED\xA0\x80"), sign + sign + sign);
    EXPECT_EQ(Harmless("\xF4\x90\x80\x80"), sign + sign + sign + sign);
}

TEST(TextReport, BeginsWithTheVerdictAndProvesIt) {
    const ScratchFolder folder;
    const auto path = folder.Write("LinkvaneService.log", WrittenLog().Started().Text());
    const std::string text = TextReport(Analyse({path}, {}));
    EXPECT_THAT(text, ::testing::StartsWith("Wi-Fi is on since 2026/11/20 20:00:"));
    EXPECT_THAT(text, HasSubstr("LinkvaneService.log:10  2026/11/20"));
}

TEST(JsonReport, HoldsAllLanesWithoutGaps) {
    const nlohmann::json report = nlohmann::json::parse(
        JsonReport({Analysed(WrittenLog().Started().CableIn().SwitchesWifi(false).EventEnds().Text())}));
    std::vector<std::string> ids;
    for (const nlohmann::json& lane : report["machines"][0]["lanes"]) {
        ids.push_back(lane["id"]);
        EXPECT_EQ(lane["intervals"].front()["from"], report["machines"][0]["from"]) << lane;
        EXPECT_EQ(lane["intervals"].back()["until"], report["machines"][0]["until"]) << lane;
    }
    EXPECT_THAT(
        ids, ::testing::ElementsAre("runs", "cable", "cable:{C0AA3C70-5E1F-4B2C-9AD3-C0DE00000001}", "wifi",
                                    "remembered-wlan", "wwan", "remembered-wwan", "airplane", "sleep"));
}

TEST(JsonReport, IsWholeWhateverANameHolds) {
    WrittenLog log = WrittenLog().Started();
    log.On(0x30, "NLMUtils::PrintAdapterInfo").Information("Description   : \xFF\xFE</script>\"\x01");
    const std::string text = JsonReport({Analysed(log.Text())});
    EXPECT_FALSE(nlohmann::json::parse(text, nullptr, false).is_discarded());
    EXPECT_THAT(text, Not(HasSubstr("\x01")));
}

TEST(PictureReport, HasEveryLaneALegendAndBothColourSets) {
    const std::string picture =
        PictureReport({Analysed(WrittenLog().Started().CableIn().SwitchesWifi(false).EventEnds().Text())});
    for (const char* const title :
         {">Service<", ">Cable<", ">Wi-Fi<", ">Wi-Fi remembered<", ">Mobile broadband<",
          ">Mobile remembered<", ">Airplane mode<", ">Sleep<", ">not known<", ">the user<",
          "prefers-color-scheme: dark", ">The service starts ("}) {
        EXPECT_THAT(picture, HasSubstr(title));
    }
    EXPECT_THAT(picture, HasSubstr("<title>Wi-Fi: off from 2026/11/20"));
}

TEST(PictureReport, TakesNoMarkupFromNames) {
    constexpr std::string_view kName = "Brook Gigabit Ethernet Controller 1";
    std::string text = WrittenLog().Started().CableIn().EventEnds().Text();
    text.replace(text.find(kName), kName.size(), "\xFF</text><script>&\"");
    const std::string picture = PictureReport({Analysed(text)});
    EXPECT_THAT(picture, HasSubstr("&lt;script>&amp;&quot;"));
    EXPECT_THAT(picture, Not(HasSubstr("<script")));
    EXPECT_THAT(picture, Not(HasSubstr("\xFF")));
}

TEST(PictureReport, StaysSmallWhateverHappened) {
    WrittenLog log = WrittenLog().Started();
    for (int i = 0; i < 5000; ++i) {
        log.SwitchesWifi(i % 2 == 0);
    }
    EXPECT_LT(PictureReport({Analysed(log.Text())}).size(), 1000000U);
    EXPECT_THAT(PictureReport({Analysed("no log")}), ::testing::EndsWith("</svg>\n"));
}

}  // namespace
}  // namespace Doctor
