#include "logging/write_queue.h"

#include <gmock/gmock.h>
#include <process.h>
#include <psapi.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "logging/file_listener.h"
#include "logging/logger.h"
#include "tests/logging/failing_memory.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/log_test.h"
#include "tests/support/skip_unless_imported.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::CorvaLogListenerFile;

class WriteQueueTest : public LogTest {
  protected:
    void Log(const std::wstring& message) { m_listener->Log(Entry(message)); }
    void EndListener() { m_listener.reset(); }

    /// Keeps the writer from the file until `Release`.
    void HoldFile() { m_held.emplace(m_appData.Log()); }
    void ReleaseFile() { m_held.reset(); }

    /// Waits for so many lines, and for the writer's end; what stands in the log then.
    [[nodiscard]] std::vector<std::string> Written(std::size_t count) const {
        EXPECT_TRUE(HasLines(count));
        WaitForWriter();
        return Messages();
    }

    std::unique_ptr<CorvaLogListenerFile> m_listener = std::make_unique<CorvaLogListenerFile>(true);

  private:
    std::optional<HeldMutex> m_held;
};

/// Makes each write to the file wait until it may go on, for a scope.
class HeldWrites {
  public:
    ~HeldWrites() { Release(); }
    void Release() { m_mayEnd = true; }
    [[nodiscard]] bool HaveBegun() const {
        return Eventually([this] { return m_write.Calls() != 0; });
    }

  private:
    std::atomic<bool> m_mayEnd = false;
    ScopedImport<&::fwrite> m_write{
        [this](const void* data, std::size_t size, std::size_t count, FILE* file) {
            while (!m_mayEnd) {
                Rig::Real<&::Sleep>(DWORD{1});
            }
            return m_write.Original(data, size, count, file);
        }};
};

TEST_F(WriteQueueTest, WritesLinesInTheirOrder) {
    std::vector<std::string> expected;
    for (int line = 0; line < 5000; ++line) {
        // Some are longer than the writer has memory at hand for.
        const std::wstring message = std::to_wstring(line) + std::wstring(line % 500 == 7 ? 5000 : 0, L'x');
        Log(message);
        expected.emplace_back(message.begin(), message.end());
    }
    EXPECT_EQ(Written(5000), expected);
}

TEST_F(WriteQueueTest, OneWriterOpensAndReleasesTheFileOnceForAllThatComesMeanwhile) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    const ScopedWatch<&::_wfopen> open;
    const ScopedWatch<&::ReleaseMutex> release;
    const ScopedWatch<&::_beginthreadex> start;
    std::atomic<int> writes = 0;
    const ScopedImport<&::fwrite> write{
        [&](const void* data, std::size_t size, std::size_t count, FILE* file) {
            if (++writes <= 20) {
                Log(L"meanwhile");
            }
            return write.Original(data, size, count, file);
        }};
    HoldFile();
    for (int line = 0; line < 10; ++line) {
        Log(L"x");
    }
    EXPECT_TRUE(ReadLines(m_appData.Log()).empty());
    ReleaseFile();
    EXPECT_EQ(Written(30).size(), 30U);
    EXPECT_EQ(open.Calls(), 1);
    EXPECT_EQ(release.Calls(), 1);
    EXPECT_EQ(start.Calls(), 1);
    Log(L"y");
    EXPECT_TRUE(HasLines(31));
    EXPECT_EQ(start.Calls(), 2);
    EXPECT_THAT(start.Arguments(), Each(FieldsAre(_, 0U, _, _, _, _))) << "a stack of the usual size";
}

TEST_F(WriteQueueTest, CallersDoNotWaitForAWriteThatTakesLong) {
    SKIP_UNLESS_IMPORTED(fwrite);
    HeldWrites writes;
    Log(L"one");
    EXPECT_TRUE(writes.HaveBegun());
    std::atomic<bool> hasLogged = false;
    std::thread caller([&] {
        Log(L"two");
        hasLogged = true;
    });
    EXPECT_TRUE(Eventually([&] { return hasLogged.load(); }));
    writes.Release();
    caller.join();
    EXPECT_THAT(Written(2), ElementsAre("one", "two"));
}

TEST_F(WriteQueueTest, MemoryOfAMomentsEntriesIsKeptAndNoMore) {
    const auto megabytes = [] {
        PROCESS_MEMORY_COUNTERS counters{};
        EXPECT_TRUE(GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)));
        return counters.PagefileUsage / (1024 * 1024);
    };
    const SIZE_T before = megabytes();
    for (int moment = 0; moment < 2; ++moment) {
        HoldFile();
        for (int line = 0; line < 60'000; ++line) {
            Log(L"x");
        }
        EXPECT_GT(megabytes(), before + 10);
        ReleaseFile();
        WaitForWriter();
        EXPECT_TRUE(Eventually([&] { return megabytes() < before + 6; }));
    }
}

// --- Entries that have to wait ----------------------------------------------------------------

TEST_F(WriteQueueTest, EntriesStayQueuedWhileTheFileCannotBeOpened) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    {
        const ScopedImport<&::_wfopen> fails{[](auto...) -> FILE* { return nullptr; }};
        Log(L"one");
        EXPECT_TRUE(Eventually([&] { return fails.Calls() == 1; }));
        WaitForWriter();
        Sleep(20);
    }
    EXPECT_TRUE(ReadLines(m_appData.Log()).empty());
    // The next one starts another writer, which finds both.
    Log(L"two");
    EXPECT_THAT(Written(2), ElementsAre("one", "two"));
}

TEST_F(WriteQueueTest, EntriesStayQueuedWhenNoThreadCanBeStarted) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    {
        const ScopedResult<&::_beginthreadex> fails{0};
        Log(L"one");
        Log(L"two");
        EXPECT_EQ(fails.Calls(), 2);
    }
    Log(L"three");
    EXPECT_THAT(Written(3), ElementsAre("one", "two", "three"));
}

TEST_F(WriteQueueTest, EntriesStayQueuedWhenTheWriterIsShortOfMemory) {
    const std::wstring large(5000, L'x');
    HoldFile();
    Log(L"one");
    Log(large);
    {
        const ScopedMemoryShortage shortage(6000);
        ReleaseFile();
        EXPECT_THAT(Written(1), ElementsAre("one"));
    }
    Log(L"two");
    EXPECT_THAT(Written(3), ElementsAre("one", std::string(5000, 'x'), "two"));
}

TEST_F(WriteQueueTest, OrdinaryLinesAreWrittenWithoutMemory) {
    HoldFile();
    Log(L"one");
    Log(std::wstring(Orva::Shared::kMessageCharacters - 1, L'x'));
    {
        const ScopedMemoryShortage shortage(600);
        ReleaseFile();
        EndListener();
    }
    EXPECT_THAT(Written(2), ElementsAre("one", std::string(Orva::Shared::kMessageCharacters - 1, 'x')));
}

TEST_F(WriteQueueTest, EntryThatFindsNoRoomLeavesThoseBeforeIt) {
    HoldFile();
    Log(L"one");
    {
        const ScopedMemoryShortage shortage(6000);
        EXPECT_THROW(Log(std::wstring(50'000, L'x')), std::bad_alloc);
    }
    Log(L"two");
    ReleaseFile();
    EXPECT_THAT(Written(2), ElementsAre("one", "two"));
}

TEST_F(WriteQueueTest, EntryIsLostWhenItsCallerIsShortOfMemory) {
    CorvaLogListener* const listener = m_listener.release();
    CorvaLogger logger(&listener, 1);
    {
        const ScopedMemoryShortage shortage(1);
        logger.Write(Level::kError, "Some::Operation", L"lost");
    }
    logger.Write(Level::kError, "Some::Operation", L"one");
    EXPECT_THAT(Written(1), ElementsAre("one"));
}

// --- The lock ---------------------------------------------------------------------------------

/// How many critical sections this thread is in, for a scope.
class SectionsHeld {
  public:
    [[nodiscard]] int Count() const { return m_count; }

  private:
    int m_count = 0;
    const DWORD m_thread = GetCurrentThreadId();
    const std::function<bool(CRITICAL_SECTION*)> m_isThisThread = [this](CRITICAL_SECTION*) {
        return Rig::Real<&::GetCurrentThreadId>() == m_thread;
    };
    ScopedImport<&::TryEnterCriticalSection> m_enter{m_isThisThread, [this](CRITICAL_SECTION* section) {
                                                         const BOOL entered = m_enter.Original(section);
                                                         m_count += entered != FALSE ? 1 : 0;
                                                         return entered;
                                                     }};
    ScopedImport<&::LeaveCriticalSection> m_leave{m_isThisThread, [this](CRITICAL_SECTION* section) {
                                                      --m_count;
                                                      m_leave.Original(section);
                                                  }};
};

TEST_F(WriteQueueTest, WhoeverAppendsHoldsTheLock) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    const SectionsHeld sections;
    const ScopedImport<&::_beginthreadex> start{[&](auto... arguments) {
        EXPECT_EQ(sections.Count(), 1);
        return start.Original(arguments...);
    }};
    Log(L"one");
    EXPECT_EQ(start.Calls(), 1);
    EXPECT_EQ(sections.Count(), 0);
}

TEST_F(WriteQueueTest, WhoeverFindsTheLockTakenForLongWaitsForIt) {
    const DWORD thread = GetCurrentThreadId();
    CRITICAL_SECTION* taken = nullptr;
    const ScopedImport<&::TryEnterCriticalSection> fails{
        [thread](CRITICAL_SECTION*) { return Rig::Real<&::GetCurrentThreadId>() == thread; },
        [&taken](CRITICAL_SECTION* section) {
            taken = section;
            return FALSE;
        }};
    int waits = 0;
    const ScopedImport<&::EnterCriticalSection> enter{
        [&, thread](CRITICAL_SECTION* section) {
            return Rig::Real<&::GetCurrentThreadId>() == thread && section == taken;
        },
        [&](CRITICAL_SECTION* section) {
            ++waits;
            enter.Original(section);
        }};
    Log(L"one");
    EXPECT_EQ(waits, 1);
    EXPECT_THAT(Written(1), ElementsAre("one"));
}

TEST_F(WriteQueueTest, EndHoldsTheLockButForItsWait) {
    HoldFile();
    Log(L"lost");
    const SectionsHeld sections;
    const ScopedImport<&::Sleep> sleep{[&](DWORD) { EXPECT_EQ(sections.Count(), 1); }};
    const ScopedImport<&::WaitForSingleObject> wait{[](HANDLE, DWORD limit) { return limit == 500; },
                                                    [&](HANDLE, DWORD) {
                                                        EXPECT_EQ(sections.Count(), 0);
                                                        return DWORD{WAIT_TIMEOUT};
                                                    }};
    EndListener();
    EXPECT_EQ(sleep.Calls(), 2);
    EXPECT_EQ(wait.Calls(), 2);
    EXPECT_EQ(sections.Count(), 0);
}

// --- The end ----------------------------------------------------------------------------------

/// The sleeps of this thread and its waits with a limit, which take no time, for a scope.
class ScopedWaits {
  public:
    std::vector<std::string> events;
    DWORD result = WAIT_TIMEOUT;
    /// Happens during each wait.
    std::function<void(HANDLE)> meanwhile;

  private:
    ScopedImport<&::Sleep> m_sleep{
        [this](DWORD milliseconds) { events.push_back("sleep " + std::to_string(milliseconds)); }};
    ScopedImport<&::WaitForSingleObject> m_wait{
        [](HANDLE, DWORD limit) { return limit != INFINITE && limit != 0; },
        [this](HANDLE object, DWORD limit) {
            events.push_back("wait " + std::to_string(limit));
            if (meanwhile) {
                meanwhile(object);
            }
            return result;
        }};
};

void ExpectEnd(HANDLE writer) {
    EXPECT_EQ(Rig::Real<&::WaitForSingleObject>(writer, DWORD{30'000}), WAIT_OBJECT_0);
}

TEST_F(WriteQueueTest, DrainsBeforeItEnds) {
    for (int line = 0; line < 1000; ++line) {
        Log(L"x");
    }
    EndListener();
    WaitForWriter();
    EXPECT_EQ(ReadLines(m_appData.Log()).size(), 1000U);
}

TEST_F(WriteQueueTest, EndsAtOnceWhenThereIsNothingToWaitFor) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    const ScopedWaits waits;
    EndListener();
    CorvaLogListenerFile withoutWriter(true);
    const ScopedResult<&::_beginthreadex> fails{0};
    withoutWriter.Log(Entry(L"lost"));
    withoutWriter.DrainQueue();
    EXPECT_THAT(waits.events, IsEmpty());
}

TEST_F(WriteQueueTest, DoesNotWaitForAWriterThatHasWrittenEverything) {
    SKIP_UNLESS_IMPORTED(fflush);
    // Keeps the writer from the queue's lock, and so from its end.
    std::atomic<DWORD> writer = 0;
    std::atomic<bool> isAtLock = false;
    std::atomic<bool> mayEnter = false;
    const ScopedImport<&::fflush> flush{[&](FILE* file) {
        writer = GetCurrentThreadId();
        return flush.Original(file);
    }};
    const ScopedImport<&::TryEnterCriticalSection> enter{
        [&](CRITICAL_SECTION*) { return Rig::Real<&::GetCurrentThreadId>() == writer; },
        [&](CRITICAL_SECTION* section) {
            isAtLock = true;
            while (!mayEnter) {
                Rig::Real<&::Sleep>(DWORD{1});
            }
            return enter.Original(section);
        }};
    Log(L"one");
    EXPECT_TRUE(Eventually([&] { return isAtLock.load(); }));
    const ScopedWaits waits;
    EndListener();
    EXPECT_THAT(waits.events, IsEmpty());
    mayEnter = true;
    WaitForWriter();
    EXPECT_THAT(Messages(), ElementsAre("one"));
}

TEST_F(WriteQueueTest, EndWaitsForTheEntryInTheWritersHand) {
    SKIP_UNLESS_IMPORTED(fwrite);
    HeldWrites writes;
    Log(L"last");
    EXPECT_TRUE(writes.HaveBegun());
    ScopedWaits waits;
    waits.result = WAIT_OBJECT_0;
    waits.meanwhile = [&](HANDLE writer) {
        writes.Release();
        ExpectEnd(writer);
    };
    EndListener();
    EXPECT_THAT(waits.events, ElementsAre("sleep 100", "wait 500"));
    EXPECT_THAT(Messages(), ElementsAre("last"));
}

TEST_F(WriteQueueTest, WriterThatOutlastsTheEndFinishesItsEntryAndLosesTheRest) {
    SKIP_UNLESS_IMPORTED(fwrite);
    HoldFile();
    Log(L"one");
    Log(L"lost");
    HeldWrites writes;
    ReleaseFile();
    EXPECT_TRUE(writes.HaveBegun());
    const ScopedWaits waits;
    EndListener();
    writes.Release();
    WaitForWriter();
    EXPECT_THAT(Messages(), ElementsAre("one"));
}

TEST_F(WriteQueueTest, GivesABlockedWriterTwoRoundsAndLosesTheRest) {
    using Case = std::pair<DWORD, std::vector<std::string>>;
    for (const auto& [result, events] :
         {Case{WAIT_TIMEOUT, {"sleep 100", "wait 500", "sleep 100", "wait 500"}},
          Case{WAIT_OBJECT_0, {"sleep 100", "wait 500"}}, Case{WAIT_FAILED, {"sleep 100", "wait 500"}}}) {
        m_listener = std::make_unique<CorvaLogListenerFile>(true);
        HoldFile();
        Log(L"lost");
        {
            ScopedWaits waits;
            waits.result = result;
            EndListener();
            EXPECT_EQ(waits.events, events);
        }
        // The writer gets the file now, and finds nothing to write.
        ReleaseFile();
    }
    WaitForWriter();
    Sleep(50);
    CorvaLogListenerFile(false).Log(Entry(L"one"));
    EXPECT_THAT(Messages(), ElementsAre("one"));
}

TEST_F(WriteQueueTest, WriterThatGaveUpAsTheWaitTimedOutEndsTheRounds) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    HoldFile();
    const ScopedImport<&::_wfopen> fails{[](auto...) -> FILE* { return nullptr; }};
    Log(L"lost");
    ScopedWaits waits;
    waits.meanwhile = [&](HANDLE writer) {
        // It gets the file's mutex, cannot open the file and leaves the entry in the queue.
        ReleaseFile();
        ExpectEnd(writer);
    };
    EndListener();
    EXPECT_THAT(waits.events, ElementsAre("sleep 100", "wait 500"));
}

TEST_F(WriteQueueTest, WhatOthersWriteDuringTheDrainIsWritten) {
    CorvaLogListener* const listener = m_listener.release();
    CorvaLogger logger(&listener, 1);
    HoldFile();
    logger.Write(Level::kError, "A::B", L"before");
    ScopedWaits waits;
    waits.result = WAIT_OBJECT_0;
    waits.meanwhile = [&](HANDLE writer) {
        std::thread([&] { logger.Write(Level::kError, "A::B", L"meanwhile"); }).join();
        ReleaseFile();
        ExpectEnd(writer);
    };
    logger.EndListeners();
    logger.Write(Level::kError, "A::B", L"afterwards");
    EXPECT_THAT(Messages(), ElementsAre("before", "meanwhile"));
}

TEST_F(WriteQueueTest, EntryAfterTheEndIsNotTaken) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    m_listener->DrainQueue();
    const ScopedWatch<&::_beginthreadex> start;
    Log(L"lost");
    EXPECT_EQ(start.Calls(), 0);
}

TEST_F(WriteQueueTest, WriterThatIsWaitedForKeepsItsHandleWhenAnotherOneStarts) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    HoldFile();
    Log(L"one");
    ScopedWaits waits;
    waits.result = WAIT_OBJECT_0;
    waits.meanwhile = [&](HANDLE writer) {
        ReleaseFile();
        ExpectEnd(writer);
        const ScopedImport<&::CloseHandle> close{[&](HANDLE handle) {
            EXPECT_NE(handle, writer);
            return close.Original(handle);
        }};
        const ScopedWatch<&::_beginthreadex> start;
        Log(L"two");
        EXPECT_EQ(start.Calls(), 1);
    };
    m_listener->DrainQueue();
    EXPECT_THAT(waits.events, ElementsAre("sleep 100", "wait 500"));
}

}  // namespace
}  // namespace LoggingTests
