#include "platform/handles.h"

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/ledger.h"
#include "tests/support/scoped_import.h"
#include "tests/support/skip_unless_imported.h"

namespace {

using testing::ElementsAre;

/// A value that no real resource has.
template <class Value = HANDLE>
Value Made(ULONG_PTR number = 0x4711) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): just a number
    return reinterpret_cast<Value>(number);
}

std::vector<HANDLE> closed;
DWORD closeResult = ERROR_SUCCESS;
bool closeThrows = false;

DWORD CloseNumber(HANDLE number) {
    closed.push_back(number);
    SetLastError(ERROR_CRC);
    if (closeThrows) {
        throw std::runtime_error("cannot be closed");
    }
    return closeResult;
}

/// A resource that is a number, of which -1 means "none".
using UniqueNumber = Platform::UniqueResource<HANDLE, &CloseNumber, -1>;

class UniqueResourceTest : public testing::Test {
  protected:
    UniqueResourceTest() {
        closed.clear();
        closeResult = ERROR_SUCCESS;
        closeThrows = false;
    }

    const HANDLE m_one = Made(7);
    const HANDLE m_other = Made(8);
};

TEST_F(UniqueResourceTest, WhatIsHeldIsClosedAtTheEndAlsoANullThatDoesNotMeanNone) {
    {
        const UniqueNumber none;
        EXPECT_FALSE(none);
        EXPECT_EQ(none.Get(), INVALID_HANDLE_VALUE);
        const UniqueNumber number(m_one);
        EXPECT_TRUE(number);
        EXPECT_EQ(number.Get(), m_one);
        EXPECT_TRUE(UniqueNumber(nullptr));
    }
    EXPECT_THAT(closed, ElementsAre(nullptr, m_one));
}

TEST_F(UniqueResourceTest, LastErrorStandsWhateverTheClosingFunctionLeft) {
    for (const bool throws : {false, true}) {
        closeThrows = throws;
        SetLastError(ERROR_ACCESS_DENIED);
        { const UniqueNumber number(m_one); }
        EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
        UniqueNumber replaced(m_one);
        replaced = UniqueNumber(m_other);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    }
}

TEST_F(UniqueResourceTest, MovingHandsTheValueOnAndClosesWhatWasHeld) {
    UniqueNumber first(m_one);
    UniqueNumber second(std::move(first));
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): empty is what a moved-from one is
    UniqueNumber third(m_other);
    third = std::move(second);
    EXPECT_THAT(closed, ElementsAre(m_other));
    UniqueNumber& same = third;
    third = std::move(same);
    EXPECT_EQ(third.Get(), m_one);
    EXPECT_THAT(closed, ElementsAre(m_other));
}

TEST_F(UniqueResourceTest, ResetAndThePlaceForAnOutArgumentCloseWhatWasHeldAndDetachDoesNot) {
    UniqueNumber number(m_one);
    number.Reset(m_other);
    EXPECT_THAT(closed, ElementsAre(m_one));
    EXPECT_EQ(number.Get(), m_other);
    HANDLE* const place = number.Put();
    EXPECT_THAT(closed, ElementsAre(m_one, m_other));
    EXPECT_EQ(*place, INVALID_HANDLE_VALUE);
    *place = m_one;
    EXPECT_EQ(number.Detach(), m_one);
    EXPECT_FALSE(number);
    number.Reset();
    EXPECT_THAT(closed, ElementsAre(m_one, m_other));
}

TEST_F(UniqueResourceTest, TryCloseKeepsTheValueUntilItSucceedsOnce) {
    UniqueNumber number(m_one);
    closeResult = ERROR_INVALID_HANDLE;
    EXPECT_EQ(number.TryClose(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(number.Get(), m_one);
    closeThrows = true;
    EXPECT_THROW(static_cast<void>(number.TryClose()), std::runtime_error);
    EXPECT_EQ(number.Get(), m_one);
    closeThrows = false;
    closeResult = ERROR_SUCCESS;
    EXPECT_EQ(number.TryClose(), DWORD{ERROR_SUCCESS});
    EXPECT_FALSE(number);
    EXPECT_EQ(number.TryClose(), DWORD{ERROR_SUCCESS});
    EXPECT_THAT(closed, ElementsAre(m_one, m_one, m_one));
}

/// A type gives its value back by this function, which is asked to fail once before the end.
template <class Unique, auto Function, class Answer>
void ExpectClosedBy(Answer failure, DWORD error) {
    using Value = typename Unique::Value;
    std::vector<Value> given;
    const Rig::ScopedImport<Function> fails{[&](Value value, auto... /*rest*/) -> Answer {
        given.push_back(value);
        SetLastError(ERROR_CRC);
        return failure;
    }};
    {
        Unique unique(Made<Value>());
        EXPECT_TRUE(unique);
        EXPECT_EQ(unique.TryClose(), error);
        EXPECT_EQ(unique.Get(), Made<Value>());
    }
    EXPECT_THAT(given, ElementsAre(Made<Value>(), Made<Value>()));
}

TEST(HandleTypesTest, EachIsClosedByItsOwnFunctionAndTellsItsError) {
    constexpr DWORD kInvalid = ERROR_INVALID_HANDLE;
    constexpr auto kBadArgument = static_cast<DWORD>(E_INVALIDARG);
    ExpectClosedBy<Platform::UniqueHandle, &::CloseHandle>(FALSE, ERROR_CRC);
    ExpectClosedBy<Platform::UniqueFindHandle, &::FindClose>(FALSE, ERROR_CRC);
    ExpectClosedBy<Platform::UniqueServiceHandle, &::CloseServiceHandle>(FALSE, ERROR_CRC);
    ExpectClosedBy<Platform::UniqueEventSource, &::DeregisterEventSource>(FALSE, ERROR_CRC);
    ExpectClosedBy<Platform::UniqueRegistryKey, &::RegCloseKey>(LSTATUS{ERROR_INVALID_HANDLE}, kInvalid);
    ExpectClosedBy<Platform::UniqueWlanHandle, &::WlanCloseHandle>(kInvalid, kInvalid);
    ExpectClosedBy<Platform::UniqueLocalMemory, &::LocalFree>(Made<HLOCAL>(), ERROR_CRC);
    ExpectClosedBy<Platform::UniqueSafeArray, &::SafeArrayDestroy>(E_INVALIDARG, kBadArgument);
    EXPECT_FALSE(Platform::UniqueHandle(nullptr));
    EXPECT_FALSE(Platform::UniqueServiceHandle(nullptr));
    EXPECT_FALSE(Platform::UniqueFindHandle(INVALID_HANDLE_VALUE));
}

TEST(HandleTypesTest, FailureWithoutACodeIsStillAFailure) {
    const Rig::ScopedResult<&::CloseHandle> fails{FALSE, NO_ERROR};
    Platform::UniqueHandle handle(Made());
    EXPECT_EQ(handle.TryClose(), DWORD{ERROR_GEN_FAILURE});
    EXPECT_TRUE(handle);
}

TEST(HandleTypesTest, MemoryIsGivenBackOnce) {
    SKIP_UNLESS_IMPORTED(malloc);
    Rig::Ledger ledger;
    {
        const Platform::UniqueBstr text(SysAllocString(L"text"));
        const Platform::UniqueSafeArray array(SafeArrayCreateVector(VT_UNKNOWN, 0, 1));
        const auto block = Platform::AllocateFromProcessHeap<int>(64);
        EXPECT_TRUE(block);
        Platform::UniqueCoTaskText task;
        EXPECT_EQ(StringFromIID(IID_IUnknown, task.Put()), S_OK);
        const Platform::UniqueLocalMemory local(LocalAlloc(LMEM_FIXED, 16));
        for (const char* kind : {Rig::Kind::kBstr, Rig::Kind::kSafeArray, Rig::Kind::kHeapMemory,
                                 Rig::Kind::kTaskMemory, Rig::Kind::kLocalMemory}) {
            EXPECT_EQ(ledger.Outstanding(kind), 1) << kind;
        }
    }
    EXPECT_TRUE(ledger.Balanced());
}

TEST(HandleTypesTest, WlanMemoryIsGivenBackOnce) {
    std::vector<void*> freed;
    const Rig::ScopedImport<&::WlanFreeMemory> fake{[&](void* block) { freed.push_back(block); }};
    {
        Platform::UniqueWlanMemory<WLAN_RADIO_STATE> block(Made<WLAN_RADIO_STATE*>());
        EXPECT_EQ(block.TryClose(), DWORD{ERROR_SUCCESS});
    }
    EXPECT_THAT(freed, ElementsAre(Made<void*>()));
}

TEST(HandleTypesTest, BlockOfTheProcessHeapMayBeMissingOrStay) {
    SKIP_UNLESS_IMPORTED(malloc);
    {
        const Rig::ScopedResult<&::HeapAlloc> fails{nullptr};
        EXPECT_FALSE(Platform::AllocateFromProcessHeap<int>(64));
    }
    Platform::UniqueProcessHeap<int> block = Platform::AllocateFromProcessHeap<int>(64);
    {
        const Rig::ScopedResult<&::HeapFree> fails{FALSE, ERROR_CRC};
        EXPECT_EQ(block.TryClose(), DWORD{ERROR_CRC});
    }
    EXPECT_TRUE(block);
}

Platform::UniqueHandle MakeEvent() {
    return Platform::UniqueHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

TEST(SharedHandleTest, OnlyTheFirstToCloseItDoes) {
    Platform::SharedHandle shared;
    EXPECT_FALSE(shared);
    shared.Reset(MakeEvent());
    const HANDLE event = shared.Get();
    std::atomic<int> closings = 0;
    {
        // Left open, so that its value is not given to anything else meanwhile.
        const Rig::ScopedImport<&::CloseHandle> closes{[&](HANDLE handle) { return handle == event; },
                                                       [&](HANDLE) -> BOOL {
                                                           ++closings;
                                                           return TRUE;
                                                       }};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] { EXPECT_EQ(shared.TryClose(), DWORD{ERROR_SUCCESS}); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        shared.Reset();
    }
    EXPECT_FALSE(shared);
    EXPECT_EQ(closings, 1);
    CloseHandle(event);
}

TEST(SharedHandleTest, HandleThatCannotBeClosedIsKeptUnlessAnotherWasStoredMeanwhile) {
    Platform::SharedHandle shared;
    shared.Reset(MakeEvent());
    const HANDLE old = shared.Get();
    Platform::UniqueHandle another = MakeEvent();
    const HANDLE newer = another.Get();
    {
        const Rig::ScopedResult<&::CloseHandle> fails{FALSE, ERROR_ACCESS_DENIED};
        EXPECT_EQ(shared.TryClose(), DWORD{ERROR_ACCESS_DENIED});
    }
    EXPECT_EQ(shared.Get(), old);
    {
        const Rig::ScopedImport<&::CloseHandle> fails{[&](HANDLE handle) -> BOOL {
            EXPECT_EQ(handle, old);
            shared.Reset(std::move(another));
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }};
        EXPECT_EQ(shared.TryClose(), DWORD{ERROR_ACCESS_DENIED});
        EXPECT_EQ(fails.Calls(), 1);
    }
    EXPECT_EQ(shared.Get(), newer);
    EXPECT_EQ(shared.TryClose(), DWORD{ERROR_SUCCESS});
    EXPECT_FALSE(shared);
    EXPECT_NE(SetEvent(old), FALSE);
    CloseHandle(old);
}

TEST(SharedHandleTest, TakenHandleIsNobodyElsesToCloseAndTheFirstOfTwoOfferedStays) {
    Platform::SharedHandle shared;
    shared.Reset(MakeEvent());
    const HANDLE event = shared.Get();
    Platform::UniqueHandle taken = shared.Take();
    EXPECT_FALSE(shared);
    EXPECT_FALSE(shared.Take());
    EXPECT_EQ(shared.TryClose(), DWORD{ERROR_SUCCESS});
    EXPECT_NE(SetEvent(taken.Get()), FALSE);
    Platform::UniqueHandle second = MakeEvent();
    const HANDLE refused = second.Get();
    shared.TakeUnlessHeld(taken);
    shared.TakeUnlessHeld(second);
    EXPECT_FALSE(taken);
    EXPECT_EQ(shared.Get(), event);
    EXPECT_EQ(second.Get(), refused);
}

TEST(SharedHandleTest, AbandonedHandleStaysOpen) {
    HANDLE event = nullptr;
    {
        Platform::SharedHandle shared;
        shared.Reset(MakeEvent());
        event = shared.Get();
        shared.Abandon();
    }
    EXPECT_NE(SetEvent(event), FALSE);
    CloseHandle(event);
}

}  // namespace
