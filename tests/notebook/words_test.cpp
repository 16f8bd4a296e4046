#include "notebook/controller/words.h"

#include <gtest/gtest.h>

#include "notebook/controller/status.h"
#include "notebook/state/calls.h"

namespace Notebook::Tests {

namespace {

TEST(WordsTest, LineSplitsAtBlanksAndKeepsQuotedOnes) {
    Words words("bios \"LAN / WLAN\"   text\tOn");
    EXPECT_EQ("bios", words.Take("a"));
    EXPECT_EQ("LAN / WLAN", words.Take("b"));
    EXPECT_EQ("text", words.Take("c"));
    EXPECT_EQ("On", words.Take("d"));
    EXPECT_TRUE(words.Empty());
}

TEST(WordsTest, EscapesStandForAnyByte) {
    EXPECT_EQ("\x01\xff\"\\\n", Words(R"("\x01\xff\"\\\n")").Take("text"));
}

TEST(WordsTest, EmptyTextIsAWord) {
    Words words("stored wlan \"\"");
    words.Take("a");
    words.Take("b");
    EXPECT_FALSE(words.Empty());
    EXPECT_EQ("", words.Take("c"));
}

TEST(WordsTest, CommentAndEmptyLineHaveNoWords) {
    EXPECT_TRUE(Words("   # nothing").Empty());
    EXPECT_TRUE(Words("").Empty());
}

TEST(WordsTest, MissingQuoteIsAnError) {
    EXPECT_THROW(Words("plug \"cable"), CommandError);
    EXPECT_THROW(Words("\"\\x1\""), CommandError);
}

TEST(WordsTest, NumbersAreDecimalOrHexadecimal) {
    EXPECT_EQ(12U, Words("12").TakeNumber("n"));
    EXPECT_EQ(0x80041003U, Words("0x80041003").TakeNumber("n"));
    EXPECT_EQ(-5, Words("-5").TakeInteger("n"));
    EXPECT_THROW(Words("12x").TakeNumber("n"), CommandError);
    EXPECT_THROW(Words("-1").TakeNumber("n"), CommandError);
    EXPECT_THROW(Words("").TakeNumber("n"), CommandError);
}

TEST(WordsTest, WordsLeftOverAreAnError) {
    Words words("plug now");
    words.Take("command");
    EXPECT_THROW(words.End(), CommandError);
}

TEST(WordsTest, RestSplitsIntoTheSameWords) {
    Words words(R"(background bios "a \"b\" c" text "")");
    words.Take("background");
    Words again(words.Rest());
    EXPECT_EQ("bios", again.Take("1"));
    EXPECT_EQ("a \"b\" c", again.Take("2"));
    EXPECT_EQ("text", again.Take("3"));
    EXPECT_EQ("", again.Take("4"));
    EXPECT_TRUE(again.Empty());
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
