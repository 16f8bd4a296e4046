#include "logging/logger.h"

#include <gmock/gmock.h>

#include <atomic>
#include <bit>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/logging/failing_memory.h"
#include "tests/logging/log_directory.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/recording_listener.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using LogData = Orva::Shared::CorvaLogListener::LogData;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::GetLogger;
using Orva::Shared::LoggerHolder;

static_assert(std::has_virtual_destructor_v<LogData>);
static_assert(!std::is_polymorphic_v<CorvaLogger>);

#if defined(__GNUC__)
TEST(Listener, SlotsAreDestructorLogAndType) {
    int logged = 0;
    bool ended = false;
    CorvaLogListener* const listener = new RecordingListener(
        {.type = ListenerType::kConsole}, [&](const LogData&) { ++logged; }, [&] { ended = true; });
    void** const slots = *reinterpret_cast<void***>(listener);
    const LogData entry = Entry(L"text");
    // With this compiler the destructor has two: without and with giving the memory back.
    reinterpret_cast<void (*)(CorvaLogListener*, const LogData*)>(slots[2])(listener, &entry);
    EXPECT_EQ(logged, 1);
    EXPECT_EQ(reinterpret_cast<int (*)(const CorvaLogListener*)>(slots[3])(listener), ListenerType::kConsole);
    EXPECT_FALSE(ended);
    reinterpret_cast<void (*)(CorvaLogListener*)>(slots[1])(listener);
    EXPECT_TRUE(ended);
}
#endif

// --- Which listeners get an entry -------------------------------------------------------------

TEST(Logger, TakesTheWidestRangeOfItsListenersButNeverEndsBelowError) {
    struct Case {
        std::vector<CorvaLogListener*> listeners;
        int minLevel;  ///< Never: takes nothing
        int maxLevel;
    };
    const auto listener = [](int minLevel, int maxLevel) {
        return new RecordingListener({.minLevel = minLevel, .maxLevel = maxLevel});
    };
    for (const Case& one :
         {Case{{}, Level::kNever, Level::kError}, Case{{nullptr, nullptr}, Level::kNever, Level::kError},
          Case{{listener(Level::kNever, 5)}, Level::kNever, Level::kError},
          Case{{listener(4, 5), listener(2, 8)}, 2, 8}, Case{{nullptr, listener(1, 2)}, 1, Level::kError}}) {
        const auto logger = MakeLogger(one.listeners);
        EXPECT_FALSE(logger->TimingEnabled());
        EXPECT_EQ(logger->PrimaryFileListener(), nullptr);
        for (int level = -1; level <= 100; ++level) {
            EXPECT_EQ(logger->Takes(level), level >= one.minLevel && level <= one.maxLevel) << level;
        }
    }
}

TEST(Logger, HandsEntriesToListenersInTheirOrderAndEachFiltersForItself) {
    const RecordingLogger logger({{.minLevel = 0, .maxLevel = 3}, {.minLevel = 3, .maxLevel = 5}, {}});
    logger->Write(2, "A::B", L"two");
    logger->Write(3, "A::B", L"three");
    logger->Write(5, "A::B", L"five");
    EXPECT_THAT(logger.Messages(),
                ElementsAre(L"0:two", L"2:two", L"0:three", L"1:three", L"2:three", L"1:five", L"2:five"));
}

TEST(Logger, LevelNeverPassesARangeThatReachesIt) {
    std::wstring line;
    const auto logger = MakeLogger({new RecordingListener(
        {.maxLevel = Level::kNever}, [&](const LogData& entry) { line = entry.GetLogLine(); })});
    logger->Write(Level::kNever, "A::B", L"text");
    EXPECT_EQ(line.substr(line.find(L"|") + 9), L"|Undefined  |A::B|text");
}

TEST(Logger, TimingIsDecidedByTheLastFileListener) {
    struct Case {
        std::vector<ListenerSettings> listeners;
        bool isTimed;
    };
    constexpr int kFile = ListenerType::kFile;
    constexpr int kQueuedFile = ListenerType::kQueuedFile;
    for (const Case& one :
         {Case{{{0, 5, kQueuedFile}}, false}, Case{{{0, 6, kQueuedFile}}, true}, Case{{{0, 6, kFile}}, true},
          Case{{{6, 6, kFile}}, true}, Case{{{6, 99, kFile}}, true}, Case{{{7, 99, kFile}}, false},
          Case{{{99, 99, kFile}}, false}, Case{{{0, 99, ListenerType::kEvent}}, false},
          Case{{{0, 99, ListenerType::kDebug}}, false}, Case{{{0, 99, ListenerType::kConsole}}, false},
          Case{{{0, 6, kFile}, {0, 5, kQueuedFile}}, false},
          Case{{{0, 5, kQueuedFile}, {0, 6, kFile}, {0, 5, ListenerType::kEvent}}, true}}) {
        SCOPED_TRACE(testing::PrintToString(one.listeners.size()) + " listeners, first of type " +
                     std::to_string(one.listeners.front().type) + " from " +
                     std::to_string(one.listeners.front().minLevel));
        EXPECT_EQ(RecordingLogger(one.listeners)->TimingEnabled(), one.isTimed);
    }
}

// --- What an entry is -------------------------------------------------------------------------

TEST(Logger, FormatsTheMessageAndCutsItAt511Characters) {
    const RecordingLogger logger;
    const auto write = [&](const wchar_t* format, const auto&... arguments) {
        logger->Write(Level::kError, "A::B", format, arguments...);
        return logger.Messages().back().substr(2);
    };
    const std::wstring text(511, L'x');
    const std::wstring more = text + L"y";
    const std::wstring huge(100'000, L'z');
    EXPECT_EQ(write(L"%s %S %d %08lx", L"wide", "narrow", -1, 5UL), L"wide narrow -1 00000005");
    EXPECT_EQ(write(nullptr), L"");
    EXPECT_EQ(write(L""), L"");
    EXPECT_EQ(write(L"%s", text.c_str()), text);
    EXPECT_EQ(write(L"%s", more.c_str()), text);
    EXPECT_EQ(write(L"<%s>", huge.c_str()), L"<" + std::wstring(510, L'z'));
    // A message ends at its first terminator.
    EXPECT_EQ(write(L"ab%ccd", 0), L"ab");
}

TEST(Logger, ListenersShareOneLine) {
    std::vector<const wchar_t*> lines;
    const auto note = [&](const LogData& entry) { lines.push_back(entry.GetLogLine().data()); };
    const auto logger = MakeLogger({new RecordingListener({}, note), new RecordingListener({}, note)});
    logger->Write(Level::kError, "A::B", L"text");
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0], lines[1]);
}

TEST(Logger, StampsEntriesWithThreadAndLocalTimeWhoseOffsetIsLookedUpOnceASecond) {
    constexpr std::int64_t kTicksPerMinute = 60 * 10'000'000LL;
    constexpr std::int64_t kFiveAndAHalfHours = (5 * 60 + 30) * kTicksPerMinute;
    const ScopedImport<&::FileTimeToLocalFileTime> zone{[&](const FILETIME* system, FILETIME* local) {
        *local = std::bit_cast<FILETIME>(std::bit_cast<std::int64_t>(*system) + kFiveAndAHalfHours);
        return TRUE;
    }};
    SYSTEMTIME time{};
    DWORD thread = 0;
    const auto logger = MakeLogger({new RecordingListener({}, [&](const LogData& entry) {
        time = entry.Time();
        thread = entry.ThreadId();
    })});
    const auto write = [&] { logger->Write(Level::kError, "A::B", L"text"); };
    EXPECT_TRUE(Eventually([&] {
        write();
        return zone.Calls() != 0;
    }));
    EXPECT_EQ(thread, GetCurrentThreadId());
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    FILETIME stamped{};
    EXPECT_NE(SystemTimeToFileTime(&time, &stamped), FALSE);
    const std::int64_t age =
        std::bit_cast<std::int64_t>(now) + kFiveAndAHalfHours - std::bit_cast<std::int64_t>(stamped);
    EXPECT_GE(age, 0);
    EXPECT_LE(age, kTicksPerMinute);
    const ULONGLONG start = GetTickCount64();
    for (int i = 0; i < 1000; ++i) {
        write();
    }
    EXPECT_LE(static_cast<ULONGLONG>(zone.Calls()), 2 + (GetTickCount64() - start) / 1000);
}

TEST(Logger, OffsetIsLookedUpAnewAfterASecondAndWhenTheClockIsSetBack) {
    constexpr std::int64_t kTicksPerSecond = 10'000'000;
    std::int64_t now = 0x1D00000'00000000;
    const ScopedImport<&::GetSystemTimeAsFileTime> clock{
        [&now](FILETIME* time) { *time = std::bit_cast<FILETIME>(now); }};
    const ScopedWatch<&::FileTimeToLocalFileTime> zone;
    const auto logger = MakeLogger({new RecordingListener({})});
    int expected = 0;
    for (const auto& [passed, lookUps] :
         {std::pair(std::int64_t{0}, 1), std::pair(kTicksPerSecond - 1, 0), std::pair(std::int64_t{1}, 1),
          std::pair(std::int64_t{-1}, 1), std::pair(std::int64_t{1}, 0)}) {
        now += passed;
        logger->Write(Level::kError, "A::B", L"text");
        expected += lookUps;
        EXPECT_EQ(zone.Calls(), expected) << passed;
    }
}

// --- What an entry costs its caller -----------------------------------------------------------

TEST(Logger, KeepsTheThreadsLastErrorWhateverListenersDo) {
    const auto logger =
        MakeLogger({new RecordingListener({}, [](const LogData&) { SetLastError(ERROR_DISK_FULL); })});
    SetLastError(ERROR_FILE_NOT_FOUND);
    logger->Write(Level::kError, "A::B", L"%d", 1);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST(Logger, EntryThatIsNotTakenIsNeitherFormattedNorStampedNorAllocatedFor) {
    const auto logger = MakeLogger({new RecordingListener({.minLevel = Level::kInformation})});
    SetLastError(ERROR_FILE_NOT_FOUND);
    // Formatting would read it.
    const auto* const unreadable = reinterpret_cast<const wchar_t*>(std::size_t{16});
    const long long before = AllocationsSoFar();
    logger->Write(Level::kTraceIn, "A::B", L"%s", unreadable);
    logger->Write(Level::kDiag, "A::B", L"%s", unreadable);
    EXPECT_EQ(AllocationsSoFar(), before);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST(Logger, AnOrdinaryEntryAndItsLineNeedNoMemory) {
    const auto logger = MakeLogger(
        {new RecordingListener({}, [](const LogData& entry) { EXPECT_NE(entry.GetLogLine(), L""); })});
    const long long before = AllocationsSoFar();
    logger->Write(Level::kError, "Utils::IsServicePresent", L"Service Name = %s", L"WlanSvc");
    EXPECT_EQ(AllocationsSoFar(), before);
}

TEST(Logger, ListenerShortOfMemoryLosesItsEntryOnly) {
    bool isShort = true;
    std::vector<std::wstring> messages;
    const auto note = [&](const LogData& entry) { messages.emplace_back(entry.Message()); };
    const auto noteIfPossible = [&](const LogData& entry) { isShort ? throw std::bad_alloc() : note(entry); };
    const auto logger =
        MakeLogger({new RecordingListener({}, noteIfPossible), new RecordingListener({}, note)});
    logger->Write(Level::kError, "A::B", L"one");
    isShort = false;
    logger->Write(Level::kError, "A::B", L"two");
    EXPECT_THAT(messages, ElementsAre(L"one", L"two", L"two"));
}

// --- The end ----------------------------------------------------------------------------------

TEST(Logger, KeepsTenListenersAndEndsEachWhateverOneThrows) {
    int ended = 0;
    int written = 0;
    std::vector<CorvaLogListener*> listeners;
    for (int i = 0; i < 12; ++i) {
        listeners.push_back(new RecordingListener(
            {}, [&](const LogData&) { ++written; },
            [&ended, i] {
                ++ended;
                if (i == 1) {
                    throw std::runtime_error("cannot end");
                }
            }));
    }
    auto logger = MakeLogger(listeners);
    EXPECT_EQ(ended, 2);
    logger->Write(Level::kError, "A::B", L"text");
    EXPECT_EQ(written, 10);
    logger.reset();
    EXPECT_EQ(ended, 12);
}

TEST(Logger, EntryWrittenWhileAListenerEndsGoesToTheOthers) {
    std::vector<std::wstring> messages;
    CorvaLogger* logger = nullptr;
    const auto owner = MakeLogger(
        {new RecordingListener(
             {}, [&](const LogData&) { messages.emplace_back(L"ending"); },
             [&] { logger->Write(Level::kError, "A::B", L"meanwhile"); }),
         new RecordingListener({}, [&](const LogData& entry) { messages.emplace_back(entry.Message()); })});
    logger = owner.get();
    logger->EndListeners();
    logger->Write(Level::kError, "A::B", L"afterwards");
    EXPECT_THAT(messages, ElementsAre(L"meanwhile"));
}

TEST(Logger, ListenerThatAThreadIsInsideOutlivesTheLogsEnd) {
    bool isDeleted = false;
    bool wasDeletedInside = false;
    CorvaLogger* logger = nullptr;
    const auto end = [&](const LogData&) {
        std::thread([&] { logger->EndListeners(); }).join();
        wasDeletedInside = isDeleted;
    };
    const auto listener =
        std::make_unique<RecordingListener>(ListenerSettings{}, end, [&] { isDeleted = true; });
    const auto owner = MakeLogger({listener.get()});
    logger = owner.get();
    logger->Write(Level::kError, "A::B", L"one");
    EXPECT_FALSE(wasDeletedInside);
    // Nobody knows when the last thread that has looked it up is out of it.
    EXPECT_FALSE(isDeleted);
}

TEST(Logger, EndsWhileManyThreadsWrite) {
    for (int round = 0; round < 200; ++round) {
        std::atomic<bool> isOver = false;
        std::atomic<int> written = 0;
        std::atomic<bool> isAlive = true;
        const auto write = [&](const LogData&) {
            EXPECT_TRUE(isAlive);
            ++written;
        };
        const auto logger = MakeLogger({new RecordingListener({}, write, [&] { isAlive = false; })});
        std::vector<std::jthread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&] {
                while (!isOver) {
                    logger->Write(Level::kError, "A::B", L"text");
                }
            });
        }
        EXPECT_TRUE(Eventually([&] { return written > 0; }));
        logger->EndListeners();
        isOver = true;
    }
}

// --- The process's log ------------------------------------------------------------------------

TEST(GetLogger, MakesALoggerWhenTheHolderIsEmptyAndKeepsIt) {
    const AppData appData;
    LoggerHolder().reset();
    CorvaLogger* const logger = &GetLogger();
    EXPECT_EQ(&GetLogger(), logger);
    EXPECT_EQ(LoggerHolder().get(), logger);
    logger->Write(Level::kError, "A::B", L"after");
    LoggerHolder().reset();
    EXPECT_THAT(ReadMessages(appData.Log()), ElementsAre("after"));
}

}  // namespace
}  // namespace LoggingTests
