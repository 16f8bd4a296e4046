#include "service/console.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/service/captured_output.h"

namespace {

using ServiceTests::CapturedOutput;

TEST(Console, WideTextIsPrintedWhole) {
    CapturedOutput output;
    Console::Print(L"%s is installed.\n", L"LinkvaneService");
    EXPECT_EQ(output.Take(), "LinkvaneService is installed.\n");
}

TEST(Console, ErrorsArePrintedInEightDigits) {
    CapturedOutput output;
    Console::Print(L"w/err 0x%08lx\n", DWORD{ERROR_SERVICE_EXISTS});
    EXPECT_EQ(output.Take(), "w/err 0x00000431\n");
}

TEST(Console, PercentSignsOfPlainTextAreNoConversions) {
    CapturedOutput output;
    Console::PrintText(L"100%s\n");
    EXPECT_EQ(output.Take(), "100%s\n");
}

TEST(Console, TextIsSeenBeforeItsLineEnds) {
    const CapturedOutput output;
    Console::PrintText(L".");
    EXPECT_EQ(CapturedOutput::SoFar(), ".");
}

TEST(Console, LongTextIsCut) {
    const std::wstring text(Console::kTextCharacters, L'x');
    CapturedOutput output;
    Console::Print(L"%s", text.c_str());
    EXPECT_EQ(output.Take(), std::string(Console::kTextCharacters - 1, 'x'));
}

}  // namespace
