#include "notebook/controller/words.h"

#include <gmock/gmock.h>

#include "notebook/controller/status.h"
#include "notebook/state/calls.h"
#include "notebook/state/layout.h"

namespace Notebook::Tests {

namespace {

using testing::ElementsAre;

TEST(WordsTest, LineSplitsAtBlanksAndKeepsQuotedOnes) {
    EXPECT_THAT(SplitWords("bios \"LAN / WLAN\"   text\tOn # nothing"),
                ElementsAre("bios", "LAN / WLAN", "text", "On"));
    EXPECT_THAT(SplitWords(R"("\x01\xff\"\\\n" "")"), ElementsAre("\x01\xff\"\\\n", ""));
    EXPECT_THAT(SplitWords("   # nothing"), ElementsAre());
    EXPECT_THROW(SplitWords("plug \"cable"), CommandError);
    EXPECT_THROW(SplitWords("\"\\x1\""), CommandError);
}

TEST(WordsTest, QuotedWordSplitsIntoItself) {
    for (const char* const word : {"text", "", "a \"b\" c", "#", "a\nb\\"}) {
        EXPECT_THAT(SplitWords(Quoted(word)), ElementsAre(word));
    }
}

constexpr char kUsage[] =
    "add NAME [type N] [up] | fill COUNT | NUMBER (confirm MS|never | follows on|off [after LATER])...";

Arguments Given(const std::string& words) {
    return {"modem", kUsage, SplitWords(words)};
}

TEST(ArgumentsTest, WordsAreReadAsTheUsageSays) {
    const Arguments adapter = Given("add vpn up type 0x18");
    EXPECT_EQ("vpn", adapter.Text("NAME"));
    EXPECT_EQ(24U, adapter.Number("type", 6));
    EXPECT_TRUE(adapter.Has("up"));
    EXPECT_EQ(6U, Given("add fill").Number("type", 6));
    EXPECT_EQ("fill", Given("add fill").Text("NAME"));

    const Arguments modem = Given("2 follows off after 5 confirm never");
    EXPECT_EQ(2U, modem.Number("NUMBER"));
    EXPECT_EQ(kForEver, modem.Count("confirm", "never"));
    EXPECT_EQ(30U, Given("2 confirm 30").Count("confirm", "never"));
    EXPECT_FALSE(modem.IsOn("follows"));
    EXPECT_EQ(5U, modem.Number("after"));

    const Arguments wait("wait", "CONDITION... [within MS]", {"a=b", "c=d", "within", "5"});
    EXPECT_THAT(wait.All("CONDITION"), ElementsAre("a=b", "c=d"));
    EXPECT_EQ(5U, wait.Number("within"));
}

TEST(ArgumentsTest, WordsThatAreNotAsTheUsageSaysAreRefused) {
    for (const char* const words :
         {"", "add", "add a b", "add a type", "add a up up", "fill", "fill 1 2", "2", "2 confirm",
          "2 follows maybe", "2 after 5", "2 follows on after", "2 confirm 5 6"}) {
        SCOPED_TRACE(words);
        EXPECT_THROW(Given(words), CommandError);
    }
    for (const char* const number : {"", "12x", "-1", "0x", "4294967296", "on"}) {
        SCOPED_TRACE(number);
        EXPECT_THROW((void)Arguments("sleep", "MS", {number}).Number("MS"), CommandError);
    }
}

TEST(ConditionTest, KeyAndValueAreSplitAtTheFirstSign) {
    const Condition equal = ParseCondition("wifi=off");
    EXPECT_EQ("wifi", equal.key);
    EXPECT_EQ("off", equal.value);
    EXPECT_TRUE(equal.equal);
    const Condition different = ParseCondition("service!=running");
    EXPECT_EQ("service", different.key);
    EXPECT_EQ("running", different.value);
    EXPECT_FALSE(different.equal);
    EXPECT_THROW(ParseCondition("wifi"), CommandError);
    EXPECT_THROW(ParseCondition("=off"), CommandError);
}

TEST(CallNameTest, EveryCallIsFoundByItsName) {
    for (std::size_t i = 0; i < kCommandCallCount; ++i) {
        const Call call = static_cast<Call>(i);
        EXPECT_FALSE(CallName(call).empty());
        EXPECT_EQ(call, CallFromName(CallName(call)));
    }
}

TEST(CallNameTest, MethodAloneIsEnoughUnlessTwoHaveIt) {
    EXPECT_EQ(Call::NetworkConnectionGetAdapterId, CallFromName("getadapterid"));
    EXPECT_EQ(std::nullopt, CallFromName("Next"));
    EXPECT_EQ(Call::WbemNext, CallFromName("IEnumWbemClassObject::Next"));
    EXPECT_EQ(std::nullopt, CallFromName("Teleport"));
    EXPECT_EQ(std::nullopt, CallFromName("OpenServiceW")) << "Wine answers it";
}

}  // namespace

}  // namespace Notebook::Tests
