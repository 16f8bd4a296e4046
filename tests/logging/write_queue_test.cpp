#include "logging/write_queue.h"

#include <gmock/gmock.h>
#include <process.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "logging/entry_queue.h"
#include "logging/file_listener.h"
#include "logging/logger.h"
#include "tests/logging/failing_memory.h"
#include "tests/logging/held_mutex.h"
#include "tests/logging/log_directory.h"
#include "tests/logging/log_entries.h"
#include "tests/logging/policy_keys.h"
#include "tests/support/ledger.h"
#include "tests/support/scoped_import.h"
#include "tests/support/skip_unless_imported.h"

namespace LoggingTests {
namespace {

namespace Level = Orva::Shared::Level;
using Orva::Shared::CorvaLogger;
using Orva::Shared::CorvaLogListener;
using Orva::Shared::CorvaLogListenerFile;
using Orva::Shared::EntryQueue;
using Rig::ScopedImport;
using Rig::ScopedResult;
using testing::ElementsAre;
using testing::IsEmpty;

/// Takes everything out of a queue.
std::vector<std::wstring> Drain(EntryQueue& queue) {
    std::vector<std::wstring> messages;
    auto entry = Entry(L"");
    while (!queue.IsEmpty()) {
        queue.TakeFirst(entry);
        messages.emplace_back(entry.Message());
    }
    return messages;
}

TEST(EntryQueue, GivesEntriesBackWholeAndInOrder) {
    EntryQueue queue;
    EXPECT_TRUE(queue.IsEmpty());
    queue.Append(Entry(L"one", Orva::Shared::Level::kWarning, "A::B"));
    queue.Append(Entry(L"", Orva::Shared::Level::kTraceIn, "odd"));
    queue.Append(Entry(L"three"));
    auto entry = Entry(L"other");
    queue.TakeFirst(entry);
    EXPECT_EQ(entry.GetLogLine(), L"2019/04/05 13:07:09.042|00001A2C|Warning    |A::B|one");
    queue.TakeFirst(entry);
    EXPECT_EQ(entry.GetLogLine(), L"2019/04/05 13:07:09.042|00001A2C|TraceIn    |odd|");
    EXPECT_THAT(Drain(queue), ElementsAre(L"three"));
    EXPECT_TRUE(queue.IsEmpty());
}

TEST(EntryQueue, TakesManyEntriesAndLargeOnes) {
    EntryQueue queue;
    std::vector<std::wstring> expected;
    for (int i = 0; i < 3000; ++i) {
        expected.push_back(i % 500 == 250 ? std::wstring(100'000, L'x') : L"entry " + std::to_wstring(i));
    }
    for (int round = 0; round < 3; ++round) {
        for (const std::wstring& message : expected) {
            queue.Append(Entry(message));
        }
        EXPECT_EQ(Drain(queue), expected);
    }
}

TEST(EntryQueue, NeedsNoMemoryOnceItHasSome) {
    EntryQueue queue;
    const auto entry = Entry(std::wstring(100, L'x'));
    auto other = Entry(L"");
    const auto fillAndDrain = [&] {
        for (int i = 0; i < 500; ++i) {
            queue.Append(entry);
        }
        while (!queue.IsEmpty()) {
            queue.TakeFirst(other);
        }
    };
    fillAndDrain();
    const long long before = AllocationsSoFar();
    fillAndDrain();
    EXPECT_EQ(AllocationsSoFar(), before);
}

TEST(EntryQueue, GivesTheRoomOfManyEntriesBack) {
    EntryQueue queue;
    for (int i = 0; i < 3000; ++i) {
        queue.Append(Entry(std::wstring(100, L'x')));
    }
    EXPECT_EQ(Drain(queue).size(), 3000U);
    const auto entry = Entry(L"one");
    const long long before = AllocationsSoFar();
    queue.Append(entry);
    EXPECT_GT(AllocationsSoFar(), before);
}

TEST(EntryQueue, IsAsItWasWhenThereIsNoMemoryForAnEntry) {
    EntryQueue queue;
    queue.Append(Entry(L"one"));
    const auto large = Entry(std::wstring(10'000, L'x'));
    {
        const ScopedMemoryShortage shortage(1);
        EXPECT_THROW(queue.Append(large), std::bad_alloc);
    }
    queue.Append(Entry(L"two"));
    EXPECT_THAT(Drain(queue), ElementsAre(L"one", L"two"));
}

TEST(EntryQueue, ForgetsWhatIsCleared) {
    EntryQueue queue;
    queue.Append(Entry(L"one"));
    queue.Clear();
    EXPECT_TRUE(queue.IsEmpty());
    queue.Append(Entry(L"two"));
    EXPECT_THAT(Drain(queue), ElementsAre(L"two"));
}

class WriteQueueTest : public testing::Test {
  protected:
    /// Waits until the log has so many lines.
    [[nodiscard]] bool HasLines(std::size_t count) const {
        return Eventually([&] {
            const std::string bytes = ReadBytes(m_appData.Log());
            return static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '\n')) >= count;
        });
    }

    /// Waits for so many lines, and for the writer's end; what stands in the log then.
    [[nodiscard]] std::vector<std::string> Written(std::size_t count) const {
        EXPECT_TRUE(HasLines(count));
        { const HeldMutex writerEnded(m_appData.Log()); }
        return ReadMessages(m_appData.Log());
    }

    Policies m_policies;
    AppData m_appData;
};

TEST_F(WriteQueueTest, WritesLinesInTheirOrder) {
    std::vector<std::string> expected;
    CorvaLogListenerFile listener(true);
    for (int line = 0; line < 5000; ++line) {
        listener.Log(Entry(std::to_wstring(line)));
        expected.push_back(std::to_string(line));
    }
    EXPECT_EQ(Written(5000), expected);
}

TEST_F(WriteQueueTest, WritesTheSameBytesAsWithoutAQueue) {
    {
        CorvaLogListenerFile listener(true);
        listener.Log(Entry(L"one \x00e4\x20ac\xd83d\xde00", Orva::Shared::Level::kInformation, "A::B"));
        EXPECT_TRUE(HasLines(1));
    }
    EXPECT_EQ(
        ReadBytes(m_appData.Log()),
        "\xEF\xBB\xBF"
        "2019/04/05 13:07:09.042|00001A2C|Information|A::B|one \xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\r\n");
}

TEST_F(WriteQueueTest, CallersDoNotWaitForTheFile) {
    CorvaLogListenerFile listener(true);
    {
        const HeldMutex held(m_appData.Log());
        for (int line = 0; line < 100; ++line) {
            listener.Log(Entry(std::to_wstring(line)));
        }
        EXPECT_TRUE(ReadLines(m_appData.Log()).empty());
    }
    EXPECT_TRUE(HasLines(100));
}

TEST_F(WriteQueueTest, OpensOnceAndReleasesOnceForAllThatComesDuringADrain) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    CorvaLogListenerFile listener(true);
    const CountedCalls<&::_wfopen> open;
    const CountedCalls<&::ReleaseMutex> release;
    std::atomic<int> writes = 0;
    const ScopedImport<&::fwrite> write{
        [&](const void* data, std::size_t size, std::size_t count, FILE* file) {
            if (++writes <= 20) {
                listener.Log(Entry(L"meanwhile"));
            }
            return write.Original(data, size, count, file);
        }};
    {
        const HeldMutex held(m_appData.Log());
        for (int line = 0; line < 10; ++line) {
            listener.Log(Entry(L"x"));
        }
    }
    EXPECT_TRUE(HasLines(30));
    { const HeldMutex writerEnded(m_appData.Log()); }
    EXPECT_EQ(open.Calls(), 1);
    EXPECT_EQ(release.Calls(), 1);
}

TEST_F(WriteQueueTest, CallersDoNotWaitForAWriteThatTakesLong) {
    SKIP_UNLESS_IMPORTED(fwrite);
    std::atomic<bool> isWriting = false;
    std::atomic<bool> mayEnd = false;
    const ScopedImport<&::fwrite> slow{
        [&](const void* data, std::size_t size, std::size_t count, FILE* file) {
            isWriting = true;
            while (!mayEnd) {
                Rig::Real<&::Sleep>(DWORD{1});
            }
            return slow.Original(data, size, count, file);
        }};
    CorvaLogListenerFile listener(true);
    listener.Log(Entry(L"one"));
    EXPECT_TRUE(Eventually([&] { return isWriting.load(); }));
    std::atomic<bool> hasLogged = false;
    std::thread caller([&] {
        listener.Log(Entry(L"two"));
        hasLogged = true;
    });
    EXPECT_TRUE(Eventually([&] { return hasLogged.load(); }));
    mayEnd = true;
    caller.join();
    EXPECT_TRUE(HasLines(2));
}

TEST_F(WriteQueueTest, OneWriterServesManyEntriesAndEndsWithTheQueue) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    const ScopedImport<&::_beginthreadex> start{[&](void* security, unsigned stack,
                                                    unsigned(__stdcall * function)(void*), void* argument,
                                                    unsigned flags, unsigned* id) {
        EXPECT_EQ(stack, 0U);
        return start.Original(security, stack, function, argument, flags, id);
    }};
    CorvaLogListenerFile listener(true);
    {
        const HeldMutex held(m_appData.Log());
        for (int line = 0; line < 50; ++line) {
            listener.Log(Entry(L"x"));
        }
        EXPECT_EQ(start.Calls(), 1);
    }
    EXPECT_TRUE(HasLines(50));
    { const HeldMutex writerEnded(m_appData.Log()); }
    listener.Log(Entry(L"y"));
    EXPECT_TRUE(HasLines(51));
    EXPECT_EQ(start.Calls(), 2);
}

TEST_F(WriteQueueTest, EntriesStayQueuedWhileTheFileCannotBeOpened) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    CorvaLogListenerFile listener(true);
    std::atomic<bool> locked = true;
    const ScopedImport<&::_wfopen> open{[&](const wchar_t* path, const wchar_t* mode) {
        return locked ? nullptr : open.Original(path, mode);
    }};
    listener.Log(Entry(L"one"));
    EXPECT_TRUE(Eventually([&] { return open.Calls() == 1; }));
    { const HeldMutex writerEnded(m_appData.Log()); }
    Sleep(20);
    EXPECT_TRUE(ReadLines(m_appData.Log()).empty());
    locked = false;
    // The next one starts another writer, which finds both.
    listener.Log(Entry(L"two"));
    EXPECT_THAT(Written(2), ElementsAre("one", "two"));
}

TEST_F(WriteQueueTest, EntriesStayQueuedWhenNoThreadCanBeStarted) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    CorvaLogListenerFile listener(true);
    {
        const ScopedImport<&::_beginthreadex> fails{[](auto...) { return std::uintptr_t{0}; }};
        listener.Log(Entry(L"one"));
        listener.Log(Entry(L"two"));
        EXPECT_EQ(fails.Calls(), 2);
    }
    listener.Log(Entry(L"three"));
    EXPECT_THAT(Written(3), ElementsAre("one", "two", "three"));
}

TEST_F(WriteQueueTest, EntryIsLostWhenMemoryIsShort) {
    CorvaLogListener* const listener = std::make_unique<CorvaLogListenerFile>(true).release();
    Orva::Shared::CorvaLogger logger(&listener, 1);
    {
        const ScopedMemoryShortage shortage(1);
        logger.Write(Orva::Shared::Level::kError, "Some::Operation", L"lost");
    }
    logger.Write(Orva::Shared::Level::kError, "Some::Operation", L"one");
    EXPECT_THAT(Written(1), ElementsAre("one"));
}

TEST_F(WriteQueueTest, ManyThreadsLogAtOnce) {
    CorvaLogListenerFile listener(true);
    LogOnManyThreads(listener, 2000);
    ExpectLinesOfManyThreads(Written(4 * 2000), 2000);
}

// --- The lock ---------------------------------------------------------------------------------

/// Which thread holds which critical section, for a scope.
class ScopedSections {
  public:
    /// Whether this thread holds one.
    [[nodiscard]] bool HoldsOne() {
        const Rig::Detail::RigLockHolder hold(m_lock);
        return std::ranges::any_of(m_holders, [](const auto& holder) {
            return holder.second == Rig::Real<&::GetCurrentThreadId>();
        });
    }
    /// Whether a thread waits for one that this thread holds.
    [[nodiscard]] bool AreWaitedFor() const { return m_waiting != 0; }

  private:
    Rig::Detail::RigLock m_lock;
    std::multimap<CRITICAL_SECTION*, DWORD> m_holders;
    std::atomic<int> m_waiting = 0;
    ScopedImport<&::EnterCriticalSection> m_enter{[this](CRITICAL_SECTION* section) {
        const bool waits = IsHeldByAnother(section);
        m_waiting += waits ? 1 : 0;
        Rig::Real<&::EnterCriticalSection>(section);
        m_waiting -= waits ? 1 : 0;
        const Rig::Detail::RigLockHolder hold(m_lock);
        m_holders.emplace(section, Rig::Real<&::GetCurrentThreadId>());
    }};
    ScopedImport<&::LeaveCriticalSection> m_leave{[this](CRITICAL_SECTION* section) {
        {
            const Rig::Detail::RigLockHolder hold(m_lock);
            const auto holder = m_holders.find(section);
            if (holder != m_holders.end()) {
                m_holders.erase(holder);
            }
        }
        Rig::Real<&::LeaveCriticalSection>(section);
    }};

    [[nodiscard]] bool IsHeldByAnother(CRITICAL_SECTION* section) {
        const Rig::Detail::RigLockHolder hold(m_lock);
        const auto holder = m_holders.find(section);
        return holder != m_holders.end() && holder->second != Rig::Real<&::GetCurrentThreadId>();
    }
};

TEST_F(WriteQueueTest, WhoeverAppendsHoldsTheLockAndTheOthersWait) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    CorvaLogListenerFile listener(true);
    ScopedSections sections;
    std::thread other;
    std::atomic<bool> otherHasLogged = false;
    // Happens in the middle of the first append. The thread that it starts comes by here too.
    std::atomic<bool> hasBegun = false;
    const ScopedImport<&::_beginthreadex> start{
        [&](const auto&... /*arguments*/) { return !hasBegun.exchange(true); },
        [&](auto... arguments) {
            EXPECT_TRUE(sections.HoldsOne());
            other = std::thread([&] {
                listener.Log(Entry(L"other"));
                otherHasLogged = true;
            });
            EXPECT_TRUE(Eventually([&] { return sections.AreWaitedFor() || otherHasLogged; }));
            EXPECT_TRUE(sections.AreWaitedFor());
            EXPECT_FALSE(otherHasLogged);
            return start.Original(arguments...);
        }};
    listener.Log(Entry(L"one"));
    EXPECT_FALSE(sections.HoldsOne());
    other.join();
    EXPECT_THAT(Written(2), ElementsAre("one", "other"));
}

TEST_F(WriteQueueTest, EndHoldsTheLockButForItsWait) {
    auto listener = std::make_unique<CorvaLogListenerFile>(true);
    const HeldMutex held(m_appData.Log());
    listener->Log(Entry(L"lost"));
    ScopedSections sections;
    const ScopedImport<&::Sleep> sleep{[&](DWORD) { EXPECT_TRUE(sections.HoldsOne()); }};
    const ScopedImport<&::WaitForSingleObject> wait{[](HANDLE, DWORD limit) { return limit == 500; },
                                                    [&](HANDLE, DWORD) {
                                                        EXPECT_FALSE(sections.HoldsOne());
                                                        return DWORD{WAIT_TIMEOUT};
                                                    }};
    listener.reset();
    EXPECT_EQ(sleep.Calls(), 2);
    EXPECT_EQ(wait.Calls(), 2);
    EXPECT_FALSE(sections.HoldsOne());
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

TEST_F(WriteQueueTest, WithNothingQueuedEndsAtOnce) {
    ScopedWaits waits;
    { CorvaLogListenerFile listener(true); }
    EXPECT_THAT(waits.events, IsEmpty());
}

TEST_F(WriteQueueTest, GivesABlockedWriterTwoRoundsAndLosesTheRest) {
    struct Case {
        DWORD result;
        std::vector<std::string> events;
    };
    const std::vector<std::string> oneRound{"sleep 100", "wait 500"};
    for (const Case& one : {Case{WAIT_TIMEOUT, {"sleep 100", "wait 500", "sleep 100", "wait 500"}},
                            Case{WAIT_OBJECT_0, oneRound}, Case{WAIT_FAILED, oneRound}}) {
        auto listener = std::make_unique<CorvaLogListenerFile>(true);
        const HeldMutex held(m_appData.Log());
        listener->Log(Entry(L"lost"));
        ScopedWaits waits;
        waits.result = one.result;
        listener.reset();
        EXPECT_EQ(waits.events, one.events);
    }
    // The writers get the file now and find nothing to write.
    { const HeldMutex writersCameToo(m_appData.Log()); }
    Sleep(50);
    EXPECT_TRUE(ReadLines(m_appData.Log()).empty());
}

TEST_F(WriteQueueTest, WriterThatGaveUpAsTheWaitTimedOutEndsTheRounds) {
    SKIP_UNLESS_IMPORTED(_wfopen);
    auto listener = std::make_unique<CorvaLogListenerFile>(true);
    auto held = std::make_unique<HeldMutex>(m_appData.Log());
    const ScopedImport<&::_wfopen> fails{[](auto...) -> FILE* { return nullptr; }};
    listener->Log(Entry(L"lost"));
    ScopedWaits waits;
    waits.meanwhile = [&](HANDLE writer) {
        // It gets the file's mutex, cannot open the file and leaves the entry in the queue.
        held.reset();
        EXPECT_EQ(Rig::Real<&::WaitForSingleObject>(writer, DWORD{30'000}), WAIT_OBJECT_0);
    };
    listener.reset();
    EXPECT_THAT(waits.events, ElementsAre("sleep 100", "wait 500"));
}

TEST_F(WriteQueueTest, DoesNotWaitForAWriterThatHasWrittenEverything) {
    SKIP_UNLESS_IMPORTED(fwrite);
    std::atomic<DWORD> writer = 0;
    const ScopedImport<&::fwrite> write{
        [&](const void* data, std::size_t size, std::size_t count, FILE* file) {
            writer = GetCurrentThreadId();
            return write.Original(data, size, count, file);
        }};
    // Keeps the writer from the queue's lock, and so from its end.
    std::atomic<bool> isAtLock = false;
    std::atomic<bool> mayEnter = false;
    const ScopedImport<&::EnterCriticalSection> enter{
        [&](CRITICAL_SECTION*) { return Rig::Real<&::GetCurrentThreadId>() == writer; },
        [&](CRITICAL_SECTION* section) {
            isAtLock = true;
            while (!mayEnter) {
                Rig::Real<&::Sleep>(DWORD{1});
            }
            enter.Original(section);
        }};
    auto listener = std::make_unique<CorvaLogListenerFile>(true);
    listener->Log(Entry(L"one"));
    EXPECT_TRUE(Eventually([&] { return isAtLock.load(); }));
    {
        const ScopedWaits waits;
        listener.reset();
        EXPECT_THAT(waits.events, IsEmpty());
    }
    mayEnter = true;
    { const HeldMutex writerEnded(m_appData.Log()); }
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one"));
}

TEST_F(WriteQueueTest, WithoutAWriterDoesNotWaitForEntriesThatRemain) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    auto listener = std::make_unique<CorvaLogListenerFile>(true);
    const ScopedImport<&::_beginthreadex> fails{[](auto...) { return std::uintptr_t{0}; }};
    listener->Log(Entry(L"lost"));
    const ScopedWaits waits;
    listener.reset();
    EXPECT_THAT(waits.events, IsEmpty());
}

TEST_F(WriteQueueTest, GivesABlockedWriterOneToThreeSecondsOfRealTime) {
    auto listener = std::make_unique<CorvaLogListenerFile>(true);
    const HeldMutex held(m_appData.Log());
    listener->Log(Entry(L"lost"));
    const ULONGLONG start = GetTickCount64();
    listener.reset();
    const ULONGLONG milliseconds = GetTickCount64() - start;
    EXPECT_GE(milliseconds, 1100U);
    EXPECT_LE(milliseconds, 3000U);
}

TEST_F(WriteQueueTest, LateWriterOfAnEndedListenerDoesNoHarm) {
    for (int round = 0; round < 20; ++round) {
        auto listener = std::make_unique<CorvaLogListenerFile>(true);
        std::unique_ptr<HeldMutex> held = std::make_unique<HeldMutex>(m_appData.Log());
        listener->Log(Entry(L"lost"));
        {
            const ScopedWaits waits;
            listener.reset();
        }
        held.reset();
    }
    { const HeldMutex everyWriterEnded(m_appData.Log()); }
    Sleep(50);
    CorvaLogListenerFile(false).Log(Entry(L"one"));
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("one"));
}

TEST_F(WriteQueueTest, DrainsBeforeItEnds) {
    {
        CorvaLogListenerFile listener(true);
        for (int line = 0; line < 1000; ++line) {
            listener.Log(Entry(L"x"));
        }
    }
    { const HeldMutex writerEnded(m_appData.Log()); }
    EXPECT_EQ(ReadLines(m_appData.Log()).size(), 1000U);
}

TEST_F(WriteQueueTest, WhatOthersWriteDuringTheDrainIsWritten) {
    CorvaLogListener* const listener = std::make_unique<CorvaLogListenerFile>(true).release();
    CorvaLogger logger(&listener, 1);
    auto held = std::make_unique<HeldMutex>(m_appData.Log());
    logger.Write(Level::kError, "A::B", L"before");
    ScopedWaits waits;
    waits.result = WAIT_OBJECT_0;
    waits.meanwhile = [&](HANDLE writer) {
        std::thread([&] { logger.Write(Level::kError, "A::B", L"meanwhile"); }).join();
        held.reset();
        EXPECT_EQ(Rig::Real<&::WaitForSingleObject>(writer, DWORD{30'000}), WAIT_OBJECT_0);
    };
    logger.EndListeners();
    logger.Write(Level::kError, "A::B", L"afterwards");
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("before", "meanwhile"));
}

TEST_F(WriteQueueTest, WriterThatIsWaitedForKeepsItsHandleWhenAnotherOneStarts) {
    SKIP_UNLESS_IMPORTED(_beginthreadex);
    auto listener = std::make_unique<CorvaLogListenerFile>(true);
    auto held = std::make_unique<HeldMutex>(m_appData.Log());
    listener->Log(Entry(L"one"));
    ScopedWaits waits;
    waits.result = WAIT_OBJECT_0;
    waits.meanwhile = [&](HANDLE writer) {
        held.reset();
        EXPECT_EQ(Rig::Real<&::WaitForSingleObject>(writer, DWORD{30'000}), WAIT_OBJECT_0);
        const ScopedImport<&::CloseHandle> close{[&](HANDLE handle) {
            EXPECT_NE(handle, writer);
            return close.Original(handle);
        }};
        const CountedCalls<&::_beginthreadex> start;
        listener->Log(Entry(L"two"));
        EXPECT_EQ(start.Calls(), 1);
    };
    listener->DrainQueue();
    EXPECT_THAT(waits.events, ElementsAre("sleep 100", "wait 500"));
}

TEST_F(WriteQueueTest, EndWaitsForTheEntryInTheWritersHand) {
    SKIP_UNLESS_IMPORTED(fwrite);
    std::atomic<bool> isInHand = false;
    const ScopedImport<&::fwrite> slow{
        [&](const void* data, std::size_t size, std::size_t count, FILE* file) {
            isInHand = true;
            Rig::Real<&::Sleep>(DWORD{30});
            return slow.Original(data, size, count, file);
        }};
    {
        CorvaLogListenerFile listener(true);
        listener.Log(Entry(L"last"));
        EXPECT_TRUE(Eventually([&] { return isInHand.load(); }));
    }
    EXPECT_THAT(ReadMessages(m_appData.Log()), ElementsAre("last"));
}

TEST_F(WriteQueueTest, GivesEverythingBack) {
    const Rig::Ledger ledger;
    {
        CorvaLogListenerFile listener(true);
        listener.Log(Entry(L"one"));
        EXPECT_TRUE(HasLines(1));
    }
    EXPECT_TRUE(ledger.Balanced(std::chrono::seconds(10)));
}

}  // namespace
}  // namespace LoggingTests
