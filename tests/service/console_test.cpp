#include "service/console.h"

#include "tests/service/service_test.h"

namespace ServiceTests {
namespace {

TEST(Console, LongTextIsCut) {
    const std::wstring longText(512, L'x');
    EXPECT_EQ(PrintedBy([&] { Console::Print(L"%s", longText.c_str()); }), std::string(511, 'x'));
}

TEST(Console, PlainTextIsSeenAsItStandsBeforeItsLineEnds) {
    const CapturedOutput output;
    Console::PrintText(L"100%s");
    EXPECT_EQ(CapturedOutput::SoFar(), "100%s");
}

}  // namespace
}  // namespace ServiceTests
