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
    EXPECT_EQ(Harmless("\xC3\xA9"), "\xC3\xA9");
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

}  // namespace
}  // namespace Doctor
