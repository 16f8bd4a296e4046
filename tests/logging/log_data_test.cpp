#include <gmock/gmock.h>

#include <array>
#include <string>

#include "logging/listener.h"
#include "tests/logging/failing_memory.h"
#include "tests/logging/log_entries.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
using Orva::Shared::LevelFromName;
using LogData = Orva::Shared::CorvaLogListener::LogData;
using testing::EndsWith;

TEST(LogLine, HasTimeThreadLevelFunctionAndMessage) {
    EXPECT_EQ(Entry(L"Started").GetLogLine(),
              L"2019/04/05 13:07:09.042|00001A2C|Information|CMainService::OnStart|Started");
}

TEST(LogLine, PadsShortLevelNamesToEleven) {
    EXPECT_EQ(Entry(L"x", Level::kDiag, "A::B").GetLogLine(),
              L"2019/04/05 13:07:09.042|00001A2C|Diag       |A::B|x");
}

TEST(LogLine, WithoutMessageEndsInABar) {
    EXPECT_EQ(Entry(L"", Level::kTraceIn, "A::B").GetLogLine(),
              L"2019/04/05 13:07:09.042|00001A2C|TraceIn    |A::B|");
}

TEST(LogLine, WritesEveryDigitOfItsNumbers) {
    const SYSTEMTIME time{1, 12, 0, 31, 23, 59, 58, 999};
    EXPECT_EQ(LogData("A", L"", Level::kError, time, 0xFEDCBA98).GetLogLine(),
              L"0001/12/31 23:59:58.999|FEDCBA98|Error      |A|");
    EXPECT_EQ(LogData("A", L"", Level::kError, SYSTEMTIME{}, 0).GetLogLine(),
              L"0000/00/00 00:00:00.000|00000000|Error      |A|");
}

TEST(LogLine, WritesNumbersThatNoTimeHasWhole) {
    constexpr WORD kMost = 65535;
    const SYSTEMTIME time{kMost, kMost, kMost, kMost, kMost, kMost, kMost, kMost};
    EXPECT_EQ(LogData("A", L"", Level::kInformation, time, 0xFFFFFFFF).GetLogLine(),
              L"65535/65535/65535 65535:65535:65535.65535|FFFFFFFF|Information|A|");
}

TEST(LogLine, DoesNotShowTheDayOfTheWeek) {
    SYSTEMTIME other = kSomeTime;
    other.wDayOfWeek = 1;
    EXPECT_EQ(LogData("A", L"b", Level::kError, other, 1).GetLogLine(),
              LogData("A", L"b", Level::kError, kSomeTime, 1).GetLogLine());
}

TEST(LogLine, KeepsMessagesOfEveryLengthAndCharacter) {
    const std::wstring message = std::wstring(3000, L'm') + L"\x00e4\x20ac\xd83d\xde00|%s\r\n";
    EXPECT_EQ(Entry(message, Level::kError, "A::B").GetLogLine(),
              L"2019/04/05 13:07:09.042|00001A2C|Error      |A::B|" + message);
}

TEST(LogLine, KeepsNamesOfEveryLength) {
    const std::string name(1000, 'n');
    EXPECT_THAT(Entry(L"x", Level::kError, name).GetLogLine(),
                EndsWith(L"|Error      |" + std::wstring(1000, L'n') + L"|x"));
}

TEST(LogLine, TakesAMissingNameAndMessageForEmptyOnes) {
    EXPECT_EQ(LogData(nullptr, nullptr, Level::kError, kSomeTime, 1).GetLogLine(),
              L"2019/04/05 13:07:09.042|00000001|Error      ||");
}

TEST(LogLine, WidensForeignCharactersOfANameAsTheRuntimeDoes) {
    std::array<wchar_t, 100> expected{};
    _snwprintf(expected.data(), expected.size() - 1, L"2019/04/05 13:07:09.042|00001A2C|Error      |%S|%s",
               "A::\xe4", L"x");
    EXPECT_EQ(Entry(L"x", Level::kError, "A::\xe4").GetLogLine(), expected.data());
}

TEST(LogLine, IsBuiltOnceAndKept) {
    const LogData entry = Entry(L"text");
    const std::wstring* const first = &entry.GetLogLine();
    const wchar_t* const characters = first->c_str();
    EXPECT_EQ(&entry.GetLogLine(), first);
    EXPECT_EQ(entry.GetLogLine().c_str(), characters);
}

TEST(LogLine, IsTheHeaderAloneWhenMemoryIsShort) {
    const LogData entry = Entry(std::wstring(400, L'x'));
    {
        const ScopedMemoryShortage shortage(600);
        EXPECT_EQ(entry.GetLogLine(), L"2019/04/05 13:07:09.042|00001A2C|Information|");
    }
}

TEST(LogLine, IsEmptyWhenThereIsNoMemoryAtAll) {
    const LogData entry = Entry(L"x");
    {
        const ScopedMemoryShortage shortage(1);
        EXPECT_EQ(entry.GetLogLine(), L"");
    }
    EXPECT_THAT(entry.GetLogLine(), EndsWith(L"|x"));
}

TEST(LevelName, IsTheLevelsOwn) {
    EXPECT_EQ(Entry(L"", 0).GetLevelName(), L"TraceIn");
    EXPECT_EQ(Entry(L"", 1).GetLevelName(), L"TraceOut");
    EXPECT_EQ(Entry(L"", 2).GetLevelName(), L"Verbose");
    EXPECT_EQ(Entry(L"", 3).GetLevelName(), L"Information");
    EXPECT_EQ(Entry(L"", 4).GetLevelName(), L"Warning");
    EXPECT_EQ(Entry(L"", 5).GetLevelName(), L"Error");
    EXPECT_EQ(Entry(L"", 6).GetLevelName(), L"Diag");
}

TEST(LevelName, OfOtherNumbersIsUndefined) {
    for (const int level : {7, 98, 99, 100, -1}) {
        EXPECT_EQ(Entry(L"", level).GetLevelName(), L"Undefined") << level;
    }
}

TEST(LogData, CopiesCarryEverything) {
    const LogData entry = Entry(L"text", Level::kWarning, "A::B");
    const std::wstring line = entry.GetLogLine();
    const LogData copy(entry);
    LogData assigned = Entry(L"other");
    assigned = entry;
    for (const LogData* other : {&copy, static_cast<const LogData*>(&assigned)}) {
        EXPECT_EQ(other->FunctionName(), "A::B");
        EXPECT_EQ(other->Message(), L"text");
        EXPECT_EQ(other->GetLevel(), Level::kWarning);
        EXPECT_EQ(other->ThreadId(), kSomeThread);
        EXPECT_EQ(other->Time().wMilliseconds, kSomeTime.wMilliseconds);
        EXPECT_EQ(other->GetLogLine(), line);
    }
}

TEST(LogData, CopiesOfLongTextsAreWholeAndTheirOwn) {
    const std::wstring message(2000, L'm');
    const std::string name(300, 'n');
    LogData copy = Entry(L"short");
    {
        const LogData entry = Entry(message, Level::kError, name);
        copy = entry;
    }
    EXPECT_EQ(copy.Message(), message);
    EXPECT_EQ(copy.FunctionName(), name);
    copy = Entry(L"short again");
    EXPECT_EQ(copy.Message(), L"short again");
}

TEST(LogData, CopiesCarryTheLineThatWasBuilt) {
    const LogData entry = Entry(L"text");
    const std::wstring line = entry.GetLogLine();
    const LogData copy(entry);
    // Were the line not copied, it could not be built now.
    const ScopedMemoryShortage shortage(1);
    EXPECT_EQ(copy.GetLogLine(), line);
}

TEST(LogData, BecomesAnotherEntryWithoutTracesOfTheFormer) {
    LogData entry = Entry(L"text", Level::kWarning, "A::B");
    EXPECT_THAT(entry.GetLogLine(), EndsWith(L"|Warning    |A::B|text"));
    entry.Assign("C::D", L"more", Level::kError, kSomeTime, 7);
    EXPECT_EQ(entry.GetLogLine(), L"2019/04/05 13:07:09.042|00000007|Error      |C::D|more");
}

TEST(LevelFromName, KnowsEveryName) {
    EXPECT_EQ(LevelFromName(L"TraceIn"), 0);
    EXPECT_EQ(LevelFromName(L"TraceOut"), 1);
    EXPECT_EQ(LevelFromName(L"Verbose"), 2);
    EXPECT_EQ(LevelFromName(L"Information"), 3);
    EXPECT_EQ(LevelFromName(L"Warning"), 4);
    EXPECT_EQ(LevelFromName(L"Error"), 5);
    EXPECT_EQ(LevelFromName(L"Diag"), 6);
    EXPECT_EQ(LevelFromName(L"Never"), 99);
}

TEST(LevelFromName, DoesNotRegardCase) {
    EXPECT_EQ(LevelFromName(L"tracein"), 0);
    EXPECT_EQ(LevelFromName(L"TRACEOUT"), 1);
    EXPECT_EQ(LevelFromName(L"vErBoSe"), 2);
    EXPECT_EQ(LevelFromName(L"dIAG"), 6);
}

TEST(LevelFromName, TakesEverythingElseForNever) {
    EXPECT_EQ(LevelFromName(nullptr), Level::kNever);
    for (const wchar_t* name : {L"", L"Undefined", L" Error", L"Error ", L"5", L"Err"}) {
        EXPECT_EQ(LevelFromName(name), Level::kNever) << testing::PrintToString(std::wstring(name));
    }
}

}  // namespace
}  // namespace LoggingTests
