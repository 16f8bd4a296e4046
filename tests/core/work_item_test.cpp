#include "core/work_item.h"

#include <windows.h>

#include <gmock/gmock.h>

#include <stdexcept>

#include "tests/core/core_world.h"

namespace CoreTests {
namespace {

using testing::SizeIs;

/// What the routines below were called with; they are plain functions.
CMainService* ranWith = nullptr;

void NoteRun(CMainService& service) {
    ranWith = &service;
}

class WorkItemTest : public CoreTest {
  protected:
    WorkItemTest() { ranWith = nullptr; }
    OpenService service;
};

TEST_F(WorkItemTest, RecordIsTheRoutineAndTheService) {
    QueueWorkItem(service, &NoteRun, WT_EXECUTEONLYONCE);
    ASSERT_THAT(world.pool.items, SizeIs(1));
    EXPECT_EQ(world.pool.items.front().flags, ULONG{WT_EXECUTEONLYONCE});
    const auto* const record = static_cast<WorkItem*>(world.pool.items.front().context);
    static_assert(sizeof(WorkItem) == 2 * sizeof(void*));
    EXPECT_EQ(record->routine, &NoteRun);
    EXPECT_EQ(record->service, &service);
    EXPECT_EQ(world.pool.RunNext(), 0U);
}

TEST_F(WorkItemTest, RoutineRunsWithTheServiceWhenThePoolGetsToIt) {
    QueueWorkItem(service, &NoteRun, WT_EXECUTEDEFAULT);
    EXPECT_EQ(ranWith, nullptr);
    EXPECT_EQ(world.pool.RunNext(), 0U);
    EXPECT_EQ(ranWith, &service);
}

TEST_F(WorkItemTest, QueueFailureThrowsTheSystemError) {
    world.pool.error = ERROR_NOT_ENOUGH_QUOTA;
    try {
        QueueWorkItem(service, &NoteRun, WT_EXECUTEDEFAULT);
        FAIL() << "nothing was thrown";
    } catch (DWORD error) {
        EXPECT_EQ(error, DWORD{ERROR_NOT_ENOUGH_QUOTA});
    }
    EXPECT_EQ(ranWith, nullptr);
}

TEST_F(WorkItemTest, WhatTheRoutineThrowsLeavesTheCallback) {
    QueueWorkItem(
        service, [](CMainService&) { throw std::runtime_error("routine"); }, WT_EXECUTEDEFAULT);
    EXPECT_THROW(world.pool.RunNext(), std::runtime_error);
}

}  // namespace
}  // namespace CoreTests
