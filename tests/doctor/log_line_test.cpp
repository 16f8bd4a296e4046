#include "doctor/analysis/log_line.h"

#include <gtest/gtest.h>

namespace Doctor {
namespace {

constexpr const char kLine[] = "2026/11/20 20:37:06.860|00000120|Error      |A::B|some | text";

TEST(ParseLine, GivesTheParts) {
    const std::optional<LogLine> line = ParseLine(kLine);
    ASSERT_TRUE(line);
    EXPECT_EQ(TimeText(line->time), "2026/11/20 20:37:06.860");
    EXPECT_EQ(line->thread, 0x120U);
    EXPECT_EQ(line->level, Level::kError);
    EXPECT_EQ(line->operation, "A::B");
    EXPECT_EQ(line->text, "some | text");
}

TEST(ParseLine, TakesNothingButLinesOfALog) {
    EXPECT_FALSE(ParseLine(""));
    EXPECT_FALSE(ParseLine("some text"));
    EXPECT_FALSE(ParseLine("2026/13/20 20:37:06.860|00000120|Error      |A::B|"));
    EXPECT_FALSE(ParseLine("2026/02/30 20:37:06.860|00000120|Error      |A::B|"));
    EXPECT_FALSE(ParseLine("2026/11/20 24:37:06.860|00000120|Error      |A::B|"));
    EXPECT_FALSE(ParseLine("2026/11/20 20:37:06.860|0000012g|Error      |A::B|"));
    EXPECT_FALSE(ParseLine("2026/11/20 20:37:06.860|00000120|Mistake    |A::B|"));
    EXPECT_FALSE(ParseLine("2026/11/20 20:37:06.860|00000120|Error      |A::B"));
}

TEST(ParseLine, TakesNoPartOfALine) {
    const std::string line = kLine;
    for (std::size_t length = 0; length < line.find("some"); ++length) {
        EXPECT_FALSE(ParseLine(line.substr(0, length))) << length;
    }
}

TEST(TimeFromUser, TakesADateAndAClock) {
    EXPECT_EQ(TimeText(*TimeFromUser("2026/11/20 20:37", 0)), "2026/11/20 20:37:00.000");
    EXPECT_EQ(TimeText(*TimeFromUser("2026-11-20T20:37:06.860", 0)), "2026/11/20 20:37:06.860");
    EXPECT_EQ(TimeText(*TimeFromUser("2026/11/20", 0)), "2026/11/20 00:00:00.000");
}

TEST(TimeFromUser, PutsAClockOnTheLastDayThatHadIt) {
    const Time latest = *TimeFromUser("2026/11/20 20:37", 0);
    EXPECT_EQ(TimeText(*TimeFromUser("20:36", latest)), "2026/11/20 20:36:00.000");
    EXPECT_EQ(TimeText(*TimeFromUser("20:38", latest)), "2026/11/19 20:38:00.000");
}

TEST(TimeFromUser, TakesNothingElse) {
    for (const char* const text :
         {"", "soon", "25:00", "20", "20:3", "2026/11", "2026/11/20 8:00", "20:37x"}) {
        EXPECT_FALSE(TimeFromUser(text, 0)) << text;
    }
}

}  // namespace
}  // namespace Doctor
