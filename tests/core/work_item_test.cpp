#include "core/work_item.h"

#include <cstdlib>
#include <stdexcept>

#include "tests/core/core_test.h"
#include "tests/support/skip_unless_imported.h"

namespace CoreTests {
namespace {

/// What the routines below were called with; they are plain functions.
ServiceState* ranWith = nullptr;

void NoteRun(ServiceState& service) {
    ranWith = &service;
}

class WorkItemTest : public CoreTest {
  protected:
    WorkItemTest() { ranWith = nullptr; }
    ServiceState service;
};

TEST_F(WorkItemTest, RoutineRunsWithTheServiceWhenThePoolGetsToIt) {
    QueueWorkItem(service, &NoteRun, WT_EXECUTEONLYONCE);
    ASSERT_THAT(pool.items, SizeIs(1));
    EXPECT_EQ(pool.items.front().flags, ULONG{WT_EXECUTEONLYONCE});
    EXPECT_EQ(ranWith, nullptr);
    EXPECT_EQ(pool.RunNext(), 0U);
    EXPECT_EQ(ranWith, &service);
}

/// Watches one block of memory: counts how often it is given back and keeps it meanwhile, so that
/// nobody else gets it.
class WatchedBlock {
  public:
    WatchedBlock() = default;
    WatchedBlock(const WatchedBlock&) = delete;
    WatchedBlock& operator=(const WatchedBlock&) = delete;
    ~WatchedBlock() {
        if (m_given != 0) {
            m_free.Original(m_block);
        }
    }

    void Watch(void* block) { m_block = block; }
    [[nodiscard]] int TimesGivenBack() const { return m_given; }

  private:
    void* m_block = nullptr;
    int m_given = 0;
    ScopedImport<&::free> m_free{[this](void* block) { return block != nullptr && block == m_block; },
                                 [this](void*) { ++m_given; }};
};

TEST_F(WorkItemTest, RefusedItemThrowsTheSystemErrorAndFreesItsRecordOnce) {
    SKIP_UNLESS_IMPORTED(free);
    WatchedBlock record;
    const ScopedImport<&::QueueUserWorkItem> refuse{[&](LPTHREAD_START_ROUTINE, PVOID context, ULONG) {
        record.Watch(context);
        SetLastError(ERROR_NOT_ENOUGH_QUOTA);
        return FALSE;
    }};
    DWORD thrown = NO_ERROR;
    try {
        QueueWorkItem(service, &NoteRun, WT_EXECUTEDEFAULT);
    } catch (DWORD error) {
        thrown = error;
    }
    EXPECT_EQ(thrown, DWORD{ERROR_NOT_ENOUGH_QUOTA});
    EXPECT_EQ(ranWith, nullptr);
    EXPECT_EQ(refuse.Calls(), 1);
    EXPECT_EQ(record.TimesGivenBack(), 1);
}

TEST_F(WorkItemTest, RecordIsFreedOnceAndNotBeforeTheRoutineHasRun) {
    SKIP_UNLESS_IMPORTED(free);
    static const WatchedBlock* watched = nullptr;
    static int givenBackWhileRunning = -1;
    WatchedBlock record;
    watched = &record;
    QueueWorkItem(
        service, [](ServiceState&) { givenBackWhileRunning = watched->TimesGivenBack(); }, WT_EXECUTEDEFAULT);
    record.Watch(pool.items.front().context);
    EXPECT_EQ(pool.RunNext(), 0U);
    EXPECT_EQ(givenBackWhileRunning, 0);
    EXPECT_EQ(record.TimesGivenBack(), 1);
}

TEST_F(WorkItemTest, WhatTheRoutineThrowsLeavesTheCallbackAndTheRecordIsFreedOnce) {
    SKIP_UNLESS_IMPORTED(free);
    QueueWorkItem(
        service, [](ServiceState&) { throw std::runtime_error("routine"); }, WT_EXECUTEDEFAULT);
    WatchedBlock record;
    record.Watch(pool.items.front().context);
    EXPECT_THROW(pool.RunNext(), std::runtime_error);
    EXPECT_EQ(record.TimesGivenBack(), 1);
}

/// On the system's own pool, where nothing stands around the callback.
[[noreturn]] void ThrowOnThePool() {
    constexpr DWORD kTimeout = 20000;
    ServiceState service;
    QueueWorkItem(
        service, [](ServiceState&) { throw DWORD{ERROR_NOT_ENOUGH_QUOTA}; }, WT_EXECUTEINPERSISTENTTHREAD);
    Sleep(kTimeout);
    ExitProcess(0);
}

TEST(WorkItemDeathTest, ErrorValueOutOfARoutineEndsTheProcess) {
    constexpr int kAbort = 3;
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(ThrowOnThePool(), testing::ExitedWithCode(kAbort), "");
}

}  // namespace
}  // namespace CoreTests
