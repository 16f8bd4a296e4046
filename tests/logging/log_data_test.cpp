#include <gmock/gmock.h>

#include <array>
#include <memory>
#include <memory_resource>
#include <string>
#include <utility>

#include "logging/log_data.h"
#include "tests/logging/failing_memory.h"
#include "tests/logging/log_entries.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
using Orva::Shared::LevelFromName;
using LogData = Orva::Shared::CorvaLogListener::LogData;

TEST(LogLine, HasTimeThreadPaddedLevelFunctionAndMessage) {
    constexpr WORD kMost = 65535;
    const SYSTEMTIME early{1, 12, 0, 31, 23, 59, 58, 999};
    // No time has such numbers.
    const SYSTEMTIME late{kMost, kMost, kMost, kMost, kMost, kMost, kMost, kMost};
    SYSTEMTIME otherDayOfWeek = kSomeTime;
    otherDayOfWeek.wDayOfWeek = 1;
    struct Case {
        LogData entry;
        const wchar_t* line;
    };
    for (const Case& one : {
             Case{Entry(L"Started"),
                  L"2019/04/05 13:07:09.042|00001A2C|Information|CMainService::OnStart|Started"},
             Case{Entry(L"x", Level::kDiag, "A::B"), L"2019/04/05 13:07:09.042|00001A2C|Diag       |A::B|x"},
             Case{Entry(L"", Level::kTraceIn, "A::B"), L"2019/04/05 13:07:09.042|00001A2C|TraceIn    |A::B|"},
             Case{LogData("A", L"", Level::kError, early, 0xFEDCBA98),
                  L"0001/12/31 23:59:58.999|FEDCBA98|Error      |A|"},
             Case{LogData("A", L"", Level::kError, SYSTEMTIME{}, 0),
                  L"0000/00/00 00:00:00.000|00000000|Error      |A|"},
             Case{LogData("A", L"", Level::kInformation, late, 0xFFFFFFFF),
                  L"65535/65535/65535 65535:65535:65535.65535|FFFFFFFF|Information|A|"},
             Case{LogData("A", L"b", Level::kError, otherDayOfWeek, 1),
                  L"2019/04/05 13:07:09.042|00000001|Error      |A|b"},
             Case{LogData(nullptr, nullptr, Level::kError, kSomeTime, 1),
                  L"2019/04/05 13:07:09.042|00000001|Error      ||"},
         }) {
        EXPECT_EQ(one.entry.GetLogLine(), one.line);
    }
}

TEST(LogLine, KeepsNamesAndMessagesOfEveryLengthAndCharacter) {
    const std::wstring message = std::wstring(3000, L'm') + L"\x00e4\x20ac\xd83d\xde00|%s\r\n";
    EXPECT_EQ(Entry(message, Level::kError, std::string(1000, 'n')).GetLogLine(),
              L"2019/04/05 13:07:09.042|00001A2C|Error      |" + std::wstring(1000, L'n') + L"|" + message);
}

TEST(LogLine, WidensForeignCharactersOfANameAsTheRuntimeDoes) {
    std::array<wchar_t, 100> expected{};
    _snwprintf(expected.data(), expected.size() - 1, L"2019/04/05 13:07:09.042|00001A2C|Error      |%S|%s",
               "A::\xe4", L"x");
    EXPECT_EQ(Entry(L"x", Level::kError, "A::\xe4").GetLogLine(), expected.data());
}

TEST(LogLine, IsBuiltOnceAndKept) {
    const LogData entry = Entry(L"text");
    EXPECT_EQ(entry.GetLogLine().data(), entry.GetLogLine().data());
}

TEST(LogLine, IsTheHeaderAloneWhenMemoryIsShort) {
    const LogData entry = Entry(std::wstring(400, L'x'));
    const ScopedMemoryShortage shortage(600);
    EXPECT_EQ(entry.GetLogLine(), L"2019/04/05 13:07:09.042|00001A2C|Information|");
}

TEST(LogLine, IsEmptyWhenThereIsNoMemoryAtAll) {
    const LogData entry = Entry(L"x");
    {
        const ScopedMemoryShortage shortage(1);
        EXPECT_EQ(entry.GetLogLine(), L"");
    }
    EXPECT_TRUE(entry.GetLogLine().ends_with(L"|x"));
}

TEST(Level, HasANumberAndANameThatIsReadInAnyCase) {
    struct Case {
        int level;
        const wchar_t* name;
        const wchar_t* otherCase;
    };
    for (const Case& one :
         {Case{0, L"TraceIn", L"tracein"}, Case{1, L"TraceOut", L"TRACEOUT"}, Case{2, L"Verbose", L"vErBoSe"},
          Case{3, L"Information", L"iNFORMATION"}, Case{4, L"Warning", L"warninG"},
          Case{5, L"Error", L"eRROR"}, Case{6, L"Diag", L"dIAG"}}) {
        EXPECT_EQ(Entry(L"", one.level).GetLevelName(), one.name);
        EXPECT_EQ(LevelFromName(one.name), one.level);
        EXPECT_EQ(LevelFromName(one.otherCase), one.level);
    }
}

TEST(Level, OfEveryOtherNumberIsUndefinedAndOfEveryOtherNameNever) {
    for (const int level : {7, 98, 99, 100, -1}) {
        EXPECT_EQ(Entry(L"", level).GetLevelName(), L"Undefined") << level;
    }
    EXPECT_EQ(LevelFromName(nullptr), 99);
    for (const wchar_t* name : {L"", L"Never", L"Undefined", L" Error", L"Error ", L"5", L"Err"}) {
        EXPECT_EQ(LevelFromName(name), 99) << testing::PrintToString(std::wstring(name));
    }
}

TEST(LogData, CopiesCarryEverythingAndAreTheirOwn) {
    std::pmr::monotonic_buffer_resource memory;
    for (const auto& [name, message] : {std::pair(std::string("A::B"), std::wstring(L"text")),
                                        std::pair(std::string(300, 'n'), std::wstring(5000, L'm'))}) {
        auto entry = std::make_unique<LogData>(Entry(message, Level::kWarning, name));
        const std::wstring line(entry->GetLogLine());
        const LogData copy(*entry);
        const LogData elsewhere(*entry, &memory);
        LogData assigned = Entry(L"other");
        assigned = *entry;
        entry.reset();
        // Were the line not copied, it could not be built now.
        const ScopedMemoryShortage shortage(1);
        for (const LogData* other : {&copy, &elsewhere, static_cast<const LogData*>(&assigned)}) {
            EXPECT_EQ(other->FunctionName(), name);
            EXPECT_EQ(other->Message(), message);
            EXPECT_EQ(other->GetLevel(), Level::kWarning);
            EXPECT_EQ(other->ThreadId(), kSomeThread);
            EXPECT_EQ(other->Time().wMilliseconds, kSomeTime.wMilliseconds);
            EXPECT_EQ(other->GetLogLine(), line);
        }
    }
}

}  // namespace
}  // namespace LoggingTests
