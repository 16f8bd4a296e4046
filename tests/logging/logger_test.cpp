#include "logging/logger.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <limits>
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#include "logging/local_clock.h"
#include "tests/logging/failing_memory.h"
#include "tests/logging/log_directory.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/recording_listener.h"
#include "tests/support/scoped_import.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using LogData = Orva::Shared::CorvaLogListener::LogData;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::GetLogger;
using Orva::Shared::LoggerHolder;
using Rig::ScopedImport;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// A logger of these listeners, which takes them over.
std::unique_ptr<CorvaLogger> MakeLogger(std::vector<CorvaLogListener*> listeners) {
    return std::make_unique<CorvaLogger>(listeners.data(), static_cast<int>(listeners.size()));
}

CorvaLogListener* MakeListener(const ListenerSettings& settings) {
    return new RecordingListener(settings, [](const LogData&) {});
}

static_assert(std::has_virtual_destructor_v<LogData>);
static_assert(!std::is_polymorphic_v<CorvaLogger>);

#if defined(__GNUC__)
TEST(Listener, SlotsAreDestructorLogAndType) {
    int logged = 0;
    auto* const listener =
        new RecordingListener({.type = ListenerType::kConsole}, [&](const LogData&) { ++logged; });
    bool ended = false;
    listener->onDestruction = [&] { ended = true; };
    void** const slots = *reinterpret_cast<void***>(static_cast<CorvaLogListener*>(listener));
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

TEST(Logger, TakesTheWidestRangeOfItsListenersButNeverEndsBelowError) {
    struct Case {
        std::vector<CorvaLogListener*> listeners;
        int minLevel;
        int maxLevel;
    };
    for (const Case& one :
         {Case{{}, Level::kNever, Level::kError}, Case{{nullptr, nullptr}, Level::kNever, Level::kError},
          Case{{MakeListener({.minLevel = 4, .maxLevel = 5}), MakeListener({.minLevel = 2, .maxLevel = 8})},
               2,
               8},
          Case{{MakeListener({.minLevel = 1, .maxLevel = 2})}, 1, Level::kError}}) {
        const auto logger = MakeLogger(one.listeners);
        EXPECT_EQ(logger->MinLevel(), one.minLevel);
        EXPECT_EQ(logger->MaxLevel(), one.maxLevel);
        EXPECT_FALSE(logger->TimingEnabled());
        EXPECT_EQ(logger->PrimaryFileListener(), nullptr);
        const bool takesAny = one.minLevel != Level::kNever;
        EXPECT_FALSE(logger->Takes(one.minLevel - 1));
        EXPECT_EQ(logger->Takes(one.minLevel), takesAny);
        EXPECT_EQ(logger->Takes(one.maxLevel), takesAny);
        EXPECT_FALSE(logger->Takes(one.maxLevel + 1));
    }
}

TEST(Logger, SilentListenerLeavesTheRangeEmpty) {
    const RecordingLogger logger({{.minLevel = Level::kNever, .maxLevel = Level::kError}});
    for (int level = Level::kTraceIn; level <= Level::kDiag; ++level) {
        logger->Write(level, "A::B", L"text");
    }
    EXPECT_THAT(logger.Messages(), IsEmpty());
}

TEST(Logger, KeepsTenListenersAndEndsTheOthers) {
    int ended = 0;
    std::vector<CorvaLogListener*> listeners;
    int written = 0;
    for (int i = 0; i < 12; ++i) {
        auto* const listener = new RecordingListener({}, [&](const LogData&) { ++written; });
        listener->onDestruction = [&] { ++ended; };
        listeners.push_back(listener);
    }
    auto logger = MakeLogger(listeners);
    EXPECT_EQ(ended, 2);
    logger->Write(Level::kError, "A::B", L"text");
    EXPECT_EQ(written, 10);
    logger.reset();
    EXPECT_EQ(ended, 12);
}

TEST(Logger, EndsEveryListenerWhateverOneThrows) {
    int ended = 0;
    std::vector<CorvaLogListener*> listeners;
    for (int i = 0; i < 3; ++i) {
        auto* const listener = new RecordingListener({}, [](const LogData&) {});
        listener->onDestruction = [&, i] {
            ++ended;
            if (i == 1) {
                throw std::runtime_error("cannot end");
            }
        };
        listeners.push_back(listener);
    }
    MakeLogger(listeners).reset();
    EXPECT_EQ(ended, 3);
}

TEST(Logger, HandsEntriesToListenersInTheirOrder) {
    const RecordingLogger logger({{}, {}, {}});
    logger->Write(Level::kError, "A::B", L"text");
    EXPECT_THAT(logger.Messages(), ElementsAre(L"0:text", L"1:text", L"2:text"));
}

TEST(Logger, ReadyTextIsWrittenAsItIs) {
    const RecordingLogger logger({ListenerSettings{.minLevel = Level::kInformation}});
    SetLastError(ERROR_CRC);
    logger->WriteText(Level::kError, "A::B", L"100%d");
    logger->WriteText(Level::kTraceOut, "A::B", L"not taken");
    EXPECT_THAT(logger.Messages(), ElementsAre(L"0:100%d"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CRC});
}

TEST(Logger, EntryWrittenWhileAListenerEndsGoesToTheOthers) {
    std::vector<std::wstring> messages;
    CorvaLogger* logger = nullptr;
    auto* const ending = new RecordingListener({}, [&](const LogData&) { messages.emplace_back(L"ending"); });
    ending->onDestruction = [&] { logger->Write(Level::kError, "A::B", L"meanwhile"); };
    auto* const other =
        new RecordingListener({}, [&](const LogData& entry) { messages.emplace_back(entry.Message()); });
    const auto owner = MakeLogger({ending, other});
    logger = owner.get();

    logger->EndListeners();
    logger->Write(Level::kError, "A::B", L"afterwards");

    EXPECT_THAT(messages, ElementsAre(L"meanwhile"));
}

TEST(Logger, ListenerThatAThreadIsInsideOutlivesTheLogsEnd) {
    bool isDeleted = false;
    bool wasDeletedInside = false;
    CorvaLogger* logger = nullptr;
    auto listener = std::make_unique<RecordingListener>(ListenerSettings{}, [&](const LogData&) {
        std::thread([&] { logger->EndListeners(); }).join();
        wasDeletedInside = isDeleted;
    });
    listener->onDestruction = [&] { isDeleted = true; };
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
        auto* const listener = new RecordingListener({}, [&](const LogData&) {
            EXPECT_TRUE(isAlive);
            ++written;
        });
        listener->onDestruction = [&] { isAlive = false; };
        const auto logger = MakeLogger({listener});
        std::vector<std::thread> threads;
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
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}

TEST(Logger, ListenerShortOfMemoryLosesItsEntryOnly) {
    bool isShort = true;
    std::vector<std::wstring> messages;
    const auto note = [&](const LogData& entry) { messages.emplace_back(entry.Message()); };
    const auto logger = MakeLogger({new RecordingListener({},
                                                          [&](const LogData& entry) {
                                                              if (isShort) {
                                                                  throw std::bad_alloc();
                                                              }
                                                              note(entry);
                                                          }),
                                    new RecordingListener({}, note)});
    logger->Write(Level::kError, "A::B", L"one");
    isShort = false;
    logger->Write(Level::kError, "A::B", L"two");
    EXPECT_THAT(messages, ElementsAre(L"one", L"two", L"two"));
}

TEST(Logger, EachListenerFiltersForItself) {
    const RecordingLogger logger({{.minLevel = 0, .maxLevel = 3}, {.minLevel = 3, .maxLevel = 5}});
    logger->Write(2, "A::B", L"two");
    logger->Write(3, "A::B", L"three");
    logger->Write(5, "A::B", L"five");
    logger->Write(4, "A::B", L"four");
    EXPECT_THAT(logger.Messages(), ElementsAre(L"0:two", L"0:three", L"1:three", L"1:five", L"1:four"));
}

TEST(Logger, DefaultRangeTakesTraceInToErrorOnly) {
    const RecordingLogger logger;
    for (const int level : {-1, 0, 1, 2, 3, 4, 5, 6, 99}) {
        logger->Write(level, "A::B", L"%d", level);
    }
    EXPECT_THAT(logger.Messages(), ElementsAre(L"0:0", L"0:1", L"0:2", L"0:3", L"0:4", L"0:5"));
}

TEST(Logger, LevelNeverPassesARangeThatReachesIt) {
    std::wstring line;
    const auto logger = MakeLogger({new RecordingListener(
        {.maxLevel = Level::kNever}, [&](const LogData& entry) { line = entry.GetLogLine(); })});
    logger->Write(Level::kNever, "A::B", L"text");
    EXPECT_EQ(line.substr(line.find(L"|") + 9), L"|Undefined  |A::B|text");
}

TEST(Logger, ListenersShareOneLine) {
    std::vector<const wchar_t*> lines;
    const auto note = [&](const LogData& entry) { lines.push_back(entry.GetLogLine().c_str()); };
    const auto logger = MakeLogger({new RecordingListener({}, note), new RecordingListener({}, note)});
    logger->Write(Level::kError, "A::B", L"text");
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0], lines[1]);
}

std::wstring Written(const std::function<void(CorvaLogger&)>& write) {
    std::wstring message = L"nothing written";
    const auto logger = MakeLogger(
        {new RecordingListener({}, [&](const LogData& entry) { message = std::wstring(entry.Message()); })});
    write(*logger);
    return message;
}

TEST(Logger, FormatsTheMessageAndCutsItAt511Characters) {
    const auto write = [](const wchar_t* format, const auto&... arguments) {
        return Written(
            [&](CorvaLogger& logger) { logger.Write(Level::kError, "A::B", format, arguments...); });
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

TEST(Logger, StampsEntriesWithThreadAndLocalTime) {
    SYSTEMTIME time{};
    DWORD thread = 0;
    const auto logger = MakeLogger({new RecordingListener({}, [&](const LogData& entry) {
        time = entry.Time();
        thread = entry.ThreadId();
    })});
    const auto ticks = [](const SYSTEMTIME& when) {
        FILETIME file{};
        EXPECT_NE(SystemTimeToFileTime(&when, &file), FALSE);
        return (static_cast<std::int64_t>(file.dwHighDateTime) << 32) | file.dwLowDateTime;
    };
    SYSTEMTIME before{};
    GetLocalTime(&before);
    logger->Write(Level::kError, "A::B", L"text");
    SYSTEMTIME after{};
    GetLocalTime(&after);
    EXPECT_EQ(thread, GetCurrentThreadId());
    // The clocks that the two read need not tick together.
    constexpr std::int64_t kTick = 20 * 10'000;
    EXPECT_GE(ticks(time), ticks(before) - kTick);
    EXPECT_LE(ticks(time), ticks(after) + kTick);
}

TEST(LocalClock, AddsWhatLocalTimeIsAhead) {
    constexpr std::int64_t kFiveAndAHalfHours = (5 * 60 + 30) * 60LL * 10'000'000LL;
    const ScopedImport<&::FileTimeToLocalFileTime> zone{[&](const FILETIME* system, FILETIME* local) {
        const std::int64_t ticks =
            ((static_cast<std::int64_t>(system->dwHighDateTime) << 32) | system->dwLowDateTime) +
            kFiveAndAHalfHours;
        local->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
        local->dwLowDateTime = static_cast<DWORD>(ticks);
        return TRUE;
    }};
    // Looked up at most once a second.
    SYSTEMTIME local{};
    EXPECT_TRUE(Eventually([&] {
        local = Orva::Shared::LocalNow();
        return zone.Calls() != 0;
    }));
    SYSTEMTIME utc{};
    GetSystemTime(&utc);
    const int minutes = (local.wHour * 60 + local.wMinute) - (utc.wHour * 60 + utc.wMinute);
    EXPECT_THAT((minutes + 24 * 60) % (24 * 60), testing::AllOf(testing::Ge(329), testing::Le(330)));
    for (int i = 0; i < 1000; ++i) {
        static_cast<void>(Orva::Shared::LocalNow());
    }
    EXPECT_LE(zone.Calls(), 2);
}

TEST(Logger, KeepsTheThreadsLastErrorWhateverListenersDo) {
    const auto logger =
        MakeLogger({new RecordingListener({}, [](const LogData&) { SetLastError(ERROR_DISK_FULL); })});
    SetLastError(ERROR_FILE_NOT_FOUND);
    logger->Write(Level::kError, "A::B", L"%d", 1);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST(Logger, EntryThatIsNotTakenIsNeitherFormattedNorStampedNorAllocatedFor) {
    const auto logger = MakeLogger({MakeListener({.minLevel = Level::kInformation})});
    SetLastError(ERROR_FILE_NOT_FOUND);
    // Formatting would read it.
    const auto* const unreadable = reinterpret_cast<const wchar_t*>(std::size_t{16});
    const long long before = AllocationsSoFar();
    logger->Write(Level::kTraceIn, "A::B", L"%s", unreadable);
    logger->Write(Level::kDiag, "A::B", L"%s", unreadable);
    EXPECT_EQ(AllocationsSoFar(), before);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST(Logger, AnOrdinaryEntryNeedsNoMemory) {
    const auto logger = MakeLogger({MakeListener({})});
    const long long before = AllocationsSoFar();
    logger->Write(Level::kError, "ServiceUtils::GetServiceStatus", L"Service Name = %s", L"WlanSvc");
    EXPECT_EQ(AllocationsSoFar(), before);
}

TEST(Logger, LastFileListenerIsThePrimaryOne) {
    CorvaLogListener* const first = MakeListener({.type = ListenerType::kFile});
    CorvaLogListener* const second = MakeListener({.type = ListenerType::kQueuedFile});
    CorvaLogListener* const event = MakeListener({.type = ListenerType::kEvent});
    const auto logger = MakeLogger({first, second, event});
    EXPECT_EQ(logger->PrimaryFileListener(), second);
}

TEST(Logger, TimingIsDecidedByTheLastFileListener) {
    const ListenerSettings takesDiag{.maxLevel = Level::kDiag, .type = ListenerType::kFile};
    const ListenerSettings takesNoDiag{.type = ListenerType::kQueuedFile};
    EXPECT_FALSE(MakeLogger({MakeListener(takesDiag), MakeListener(takesNoDiag)})->TimingEnabled());
    EXPECT_TRUE(MakeLogger({MakeListener(takesNoDiag), MakeListener(takesDiag)})->TimingEnabled());
}

struct TimingCase {
    ListenerSettings settings;
    bool enabled;
};

void PrintTo(const TimingCase& one, std::ostream* out) {
    *out << "type " << one.settings.type << " from " << one.settings.minLevel << " to "
         << one.settings.maxLevel;
}

class Timing : public testing::TestWithParam<TimingCase> {};

TEST_P(Timing, IsEnabledWhenTheFileTakesDiag) {
    EXPECT_EQ(MakeLogger({MakeListener(GetParam().settings)})->TimingEnabled(), GetParam().enabled);
}

INSTANTIATE_TEST_SUITE_P(
    Ranges, Timing,
    testing::Values(TimingCase{{.minLevel = 0, .maxLevel = 5, .type = ListenerType::kQueuedFile}, false},
                    TimingCase{{.minLevel = 0, .maxLevel = 6, .type = ListenerType::kQueuedFile}, true},
                    TimingCase{{.minLevel = 0, .maxLevel = 6, .type = ListenerType::kFile}, true},
                    TimingCase{{.minLevel = 6, .maxLevel = 6, .type = ListenerType::kFile}, true},
                    TimingCase{{.minLevel = 6, .maxLevel = 99, .type = ListenerType::kFile}, true},
                    TimingCase{{.minLevel = 7, .maxLevel = 99, .type = ListenerType::kFile}, false},
                    TimingCase{{.minLevel = 99, .maxLevel = 99, .type = ListenerType::kFile}, false},
                    TimingCase{{.minLevel = 0, .maxLevel = 99, .type = ListenerType::kEvent}, false},
                    TimingCase{{.minLevel = 0, .maxLevel = 99, .type = ListenerType::kDebug}, false},
                    TimingCase{{.minLevel = 0, .maxLevel = 99, .type = ListenerType::kConsole}, false}));

TEST(Logger, ManyThreadsWriteAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kLines = 2000;
    std::atomic<int> whole = 0;
    const auto logger = MakeLogger({new RecordingListener({}, [&](const LogData& entry) {
        whole += entry.Message() == L"thread " + std::to_wstring(entry.ThreadId()) ? 1 : 0;
    })});
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int line = 0; line < kLines; ++line) {
                logger->Write(Level::kError, "A::B", L"thread %lu", GetCurrentThreadId());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(whole, kThreads * kLines);
}

TEST(GetLogger, KeepsTheLoggerThatItMade) {
    const AppData appData;
    LoggerHolder().reset();
    CorvaLogger* const logger = &GetLogger();
    EXPECT_EQ(&GetLogger(), logger);
    EXPECT_EQ(LoggerHolder().get(), logger);
    EXPECT_TRUE(Exists(appData.Log()));
    LoggerHolder().reset();
}

TEST(GetLogger, MakesALoggerAnewWhenTheHolderIsEmpty) {
    const AppData appData;
    LoggerHolder().reset();
    GetLogger().Write(Level::kError, "A::B", L"after");
    EXPECT_NE(LoggerHolder(), nullptr);
    LoggerHolder().reset();
    EXPECT_THAT(ReadMessages(appData.Log()), ElementsAre("after"));
}

}  // namespace
}  // namespace LoggingTests
