#include "doctor/analysis/line_reader.h"

#include <gmock/gmock.h>

#include "tests/doctor/written_log.h"

namespace Doctor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using namespace std::string_literals;

std::vector<std::string> LinesOf(std::string_view bytes) {
    const ScratchFolder folder;
    LineReader reader(folder.Write("file", bytes));
    std::vector<std::string> lines;
    for (std::string_view line; reader.Next(line);) {
        lines.emplace_back(line);
        EXPECT_EQ(reader.Number(), lines.size());
    }
    return lines;
}

TEST(LineReader, TakesBothKindsOfLineEndsAndALastLineWithout) {
    EXPECT_THAT(LinesOf("one\r\ntwo\n\nthree"), ElementsAre("one", "two", "", "three"));
    EXPECT_THAT(LinesOf(""), IsEmpty());
}

TEST(LineReader, LeavesTheByteOrderMarkOut) {
    EXPECT_THAT(LinesOf("\xEF\xBB\xBFone\n"), ElementsAre("one"));
}

TEST(LineReader, ReadsUtf16) {
    EXPECT_THAT(LinesOf("\xFF\xFEo\0\xE9\0\r\0\n\0\x3D\xD8\x00\xDE\n\0"s),
                ElementsAre("o\xC3\xA9", "\xF0\x9F\x98\x80"));
    EXPECT_THAT(LinesOf("\xFE\xFF\0o\0n\0\n"s), ElementsAre("on"));
}

TEST(LineReader, KnowsUtf16WithoutAMark) {
    std::string little;
    std::string big;
    for (const char c : "a line that is long enough to be looked at\n"s) {
        little += {c, '\0'};
        big += {'\0', c};
    }
    EXPECT_THAT(LinesOf(little), ElementsAre("a line that is long enough to be looked at"));
    EXPECT_THAT(LinesOf(big), ElementsAre("a line that is long enough to be looked at"));
}

TEST(LineReader, PutsAMarkInPlaceOfHalfACharacter) {
    EXPECT_THAT(LinesOf("\xFF\xFE\x3D\xD8o\0\x00\xDEn\0\n\0"s), ElementsAre("\xEF\xBF\xBDo\xEF\xBF\xBDn"));
}

TEST(LineReader, CutsALineThatIsTooLong) {
    const std::string longLine(3 * LineReader::kLongestLine, 'x');
    EXPECT_THAT(LinesOf(longLine + "\ntwo\n"),
                ElementsAre(longLine.substr(0, LineReader::kLongestLine), "two"));
    EXPECT_THAT(LinesOf(longLine), ElementsAre(longLine.substr(0, LineReader::kLongestLine)));
}

TEST(LineReader, ReadsLinesThatLieAcrossItsBlocks) {
    std::string bytes;
    std::vector<std::string> expected;
    for (int i = 0; i < 20000; ++i) {
        expected.push_back("a line with the number " + std::to_string(i));
        bytes += expected.back() + "\r\n";
    }
    EXPECT_EQ(LinesOf(bytes), expected);
}

TEST(LineReader, GivesNothingOfAFileThatIsNotThere) {
    LineReader reader("no/such/file");
    std::string_view line;
    EXPECT_FALSE(reader.IsOpen());
    EXPECT_FALSE(reader.Next(line));
}

}  // namespace
}  // namespace Doctor
