#include <gtest/gtest.h>
#include <realtimeapiset.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "logging/logger.h"
#include "logging/scope_timer.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/recording_listener.h"
#include "tests/support/scoped_import.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
namespace ListenerType = Orva::Shared::ListenerType;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::LogScopeTimer;
using Orva::Shared::TimingStatistics;
using LogData = CorvaLogListener::LogData;

/// A plain field of an object whose fields are its own affair.
template <class Field>
Field FieldAt(const void* object, std::size_t offset) {
    Field field;
    std::memcpy(&field, static_cast<const std::byte*>(object) + offset, sizeof(field));
    return field;
}

std::ptrdiff_t OffsetOf(const void* part, const void* whole) {
    return static_cast<const std::byte*>(part) - static_cast<const std::byte*>(whole);
}

TEST(Layout, EntryIsNameMessageLevelTimeThreadAndTheTwoCaches) {
    struct Fields {
        void* virtualTable;
        Orva::Shared::InlineText<char, Orva::Shared::kInlineNameCharacters> functionName;
        Orva::Shared::InlineText<wchar_t, Orva::Shared::kMessageCharacters> message;
        int level;
        SYSTEMTIME time;
        DWORD thread;
        std::wstring_view levelName;
        std::wstring line;
    };
    static_assert(sizeof(LogData) == sizeof(Fields));
    static_assert(std::has_virtual_destructor_v<LogData>);
    const LogData entry = Entry(L"text", Level::kWarning, "A::B");
    const auto name = OffsetOf(entry.FunctionName().data(), &entry);
    EXPECT_GT(name, static_cast<std::ptrdiff_t>(offsetof(Fields, functionName)));
    EXPECT_LT(name, static_cast<std::ptrdiff_t>(offsetof(Fields, message)));
    const auto message = OffsetOf(entry.Message().data(), &entry);
    EXPECT_GT(message, static_cast<std::ptrdiff_t>(offsetof(Fields, message)));
    EXPECT_LT(message, static_cast<std::ptrdiff_t>(offsetof(Fields, level)));
    EXPECT_EQ(FieldAt<int>(&entry, offsetof(Fields, level)), Level::kWarning);
    EXPECT_EQ(OffsetOf(&entry.Time(), &entry), static_cast<std::ptrdiff_t>(offsetof(Fields, time)));
    EXPECT_EQ(FieldAt<DWORD>(&entry, offsetof(Fields, thread)), kSomeThread);
    EXPECT_EQ(FieldAt<std::wstring_view>(&entry, offsetof(Fields, levelName)), L"");
    EXPECT_EQ(entry.GetLevelName(), L"Warning");
    EXPECT_EQ(FieldAt<std::wstring_view>(&entry, offsetof(Fields, levelName)), L"Warning");
    EXPECT_EQ(OffsetOf(&entry.GetLogLine(), &entry), static_cast<std::ptrdiff_t>(offsetof(Fields, line)));
}

TEST(Layout, ListenerIsLowestAndHighestLevelAndItsIgnorance) {
    struct Fields {
        void* virtualTable;
        int minLogLevel;
        int maxLogLevel;
        bool ignoresPolicy;
    };
    static_assert(sizeof(CorvaLogListener) == sizeof(Fields));
    const RecordingListener listener({.minLevel = 3, .maxLevel = 7}, [](const LogData&) {});
    EXPECT_EQ(FieldAt<int>(&listener, offsetof(Fields, minLogLevel)), 3);
    EXPECT_EQ(FieldAt<int>(&listener, offsetof(Fields, maxLogLevel)), 7);
    EXPECT_TRUE(FieldAt<bool>(&listener, offsetof(Fields, ignoresPolicy)));
}

#if defined(__GNUC__)
TEST(Layout, ListenersTableIsDestructorLogAndType) {
    int logged = 0;
    bool destroyed = false;
    auto* const listener =
        new RecordingListener({.type = ListenerType::kConsole}, [&](const LogData&) { ++logged; });
    listener->onDestruction = [&] { destroyed = true; };
    void** const table = *reinterpret_cast<void***>(static_cast<CorvaLogListener*>(listener));
    const LogData entry = Entry(L"text");
    // With this compiler the destructor has two entries: without and with giving the memory back.
    reinterpret_cast<void (*)(CorvaLogListener*, const LogData*)>(table[2])(listener, &entry);
    EXPECT_EQ(logged, 1);
    EXPECT_EQ(reinterpret_cast<int (*)(const CorvaLogListener*)>(table[3])(listener), ListenerType::kConsole);
    EXPECT_FALSE(destroyed);
    reinterpret_cast<void (*)(CorvaLogListener*)>(table[1])(listener);
    EXPECT_TRUE(destroyed);
}
#endif

TEST(Layout, LoggerBeginsWithItsBufferSizeAndEndsWithItsStatistics) {
    struct Fields {
        unsigned messageCharacters;
        std::array<CorvaLogListener*, 10> listeners;
        int listenerCount;
        int minLevel;
        int maxLevel;
        bool timingEnabled;
        const CorvaLogListener* primaryFileListener;
        alignas(TimingStatistics) std::byte statistics[sizeof(TimingStatistics)];
    };
    static_assert(sizeof(CorvaLogger) == sizeof(Fields));
    static_assert(!std::is_polymorphic_v<CorvaLogger>);
    static_assert(CorvaLogger::kMostMessageCharacters == 8096);
    CorvaLogListener* const listeners[] = {
        new RecordingListener({.minLevel = 2, .maxLevel = 8, .type = ListenerType::kFile},
                              [](const LogData&) {}),
        new RecordingListener({.minLevel = 3}, [](const LogData&) {})};
    CorvaLogger logger(listeners, 2);
    EXPECT_EQ(FieldAt<unsigned>(&logger, offsetof(Fields, messageCharacters)), 512U);
    const auto held = FieldAt<std::array<CorvaLogListener*, 10>>(&logger, offsetof(Fields, listeners));
    EXPECT_EQ(held[0], listeners[0]);
    EXPECT_EQ(held[1], listeners[1]);
    EXPECT_EQ(held[2], nullptr);
    EXPECT_EQ(FieldAt<int>(&logger, offsetof(Fields, listenerCount)), 2);
    EXPECT_EQ(FieldAt<int>(&logger, offsetof(Fields, minLevel)), 2);
    EXPECT_EQ(FieldAt<int>(&logger, offsetof(Fields, maxLevel)), 8);
    EXPECT_TRUE(FieldAt<bool>(&logger, offsetof(Fields, timingEnabled)));
    EXPECT_EQ(FieldAt<const void*>(&logger, offsetof(Fields, primaryFileListener)), listeners[0]);
    EXPECT_EQ(OffsetOf(&logger.Statistics(), &logger),
              static_cast<std::ptrdiff_t>(offsetof(Fields, statistics)));
}

TEST(Layout, StatisticsAreRecordsThenTheLongestNameThenTheLock) {
    using Records = std::map<std::string, TimingStatistics::Record>;
    struct Fields {
        alignas(Records) std::byte records[sizeof(Records)];
        std::uint32_t longestName;
        CRITICAL_SECTION lock;
    };
    static_assert(sizeof(TimingStatistics) == sizeof(Fields));
    static_assert(offsetof(TimingStatistics::Record, totalMilliseconds) == 0);
    static_assert(offsetof(TimingStatistics::Record, count) == sizeof(double));
    TimingStatistics statistics;
    statistics.Add("Eleven::One", 1.0);
    EXPECT_EQ(FieldAt<std::uint32_t>(&statistics, offsetof(Fields, longestName)), 11U);
}

TEST(Layout, TimerIsLoggerStartElapsedAndName) {
    struct Fields {
        CorvaLogger* logger;
        std::uint64_t start;
        double elapsedMilliseconds;
        const char* functionName;
    };
    static_assert(sizeof(LogScopeTimer) == sizeof(Fields));
    const Rig::ScopedImport<&::QueryUnbiasedInterruptTime> time{
        [now = ULONGLONG{70'000}](ULONGLONG* ticks) mutable {
            *ticks = now;
            now += 25'000;
            return TRUE;
        }};
    CorvaLogger logger(nullptr, 0);
    const char* const name = "A::B";
    LogScopeTimer timer(logger, name);
    EXPECT_EQ(FieldAt<CorvaLogger*>(&timer, offsetof(Fields, logger)), &logger);
    EXPECT_EQ(FieldAt<std::uint64_t>(&timer, offsetof(Fields, start)), 70'000U);
    EXPECT_EQ(FieldAt<double>(&timer, offsetof(Fields, elapsedMilliseconds)), 0.0);
    EXPECT_EQ(FieldAt<const char*>(&timer, offsetof(Fields, functionName)), name);
    timer.End();
    EXPECT_EQ(FieldAt<double>(&timer, offsetof(Fields, elapsedMilliseconds)), 2.5);
}

}  // namespace
}  // namespace LoggingTests
