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
using testing::IsEmpty;

/// A resource that is a number; -1 means "none".
struct NumberTraits {
    using Value = int;
    static Value None() noexcept { return -1; }
    static DWORD Close(Value value) {
        closed.push_back(value);
        if (throws) {
            throw std::runtime_error("cannot be closed");
        }
        return result;
    }

    static inline std::vector<int> closed;
    static inline DWORD result = ERROR_SUCCESS;
    static inline bool throws = false;
};
using UniqueNumber = Platform::UniqueResource<NumberTraits>;

class UniqueResourceTest : public testing::Test {
  protected:
    UniqueResourceTest() {
        NumberTraits::closed.clear();
        NumberTraits::result = ERROR_SUCCESS;
        NumberTraits::throws = false;
    }

    [[nodiscard]] static const std::vector<int>& Closed() { return NumberTraits::closed; }
};

TEST_F(UniqueResourceTest, EmptyOneHoldsAndClosesNothing) {
    {
        const UniqueNumber number;
        EXPECT_FALSE(number);
        EXPECT_EQ(number.Get(), -1);
    }
    EXPECT_THAT(Closed(), IsEmpty());
}

TEST_F(UniqueResourceTest, WhatIsHeldIsClosedAtTheEnd) {
    {
        const UniqueNumber number(7);
        EXPECT_TRUE(number);
        EXPECT_EQ(number.Get(), 7);
    }
    EXPECT_THAT(Closed(), ElementsAre(7));
}

TEST_F(UniqueResourceTest, ZeroIsAValueLikeAnyOtherWhereItDoesNotMeanNone) {
    {
        const UniqueNumber number(0);
        EXPECT_TRUE(number);
    }
    EXPECT_THAT(Closed(), ElementsAre(0));
}

TEST_F(UniqueResourceTest, MovingHandsTheValueOn) {
    {
        UniqueNumber first(7);
        const UniqueNumber second(std::move(first));
        EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): empty is what a moved-from one is
        EXPECT_EQ(second.Get(), 7);
    }
    EXPECT_THAT(Closed(), ElementsAre(7));
}

TEST_F(UniqueResourceTest, MoveAssignmentClosesWhatWasHeld) {
    UniqueNumber first(7);
    UniqueNumber second(8);
    second = std::move(first);
    EXPECT_THAT(Closed(), ElementsAre(8));
    EXPECT_EQ(second.Get(), 7);
}

TEST_F(UniqueResourceTest, MovingOntoItselfKeepsTheValue) {
    UniqueNumber number(7);
    UniqueNumber& same = number;
    number = std::move(same);
    EXPECT_EQ(number.Get(), 7);
    EXPECT_THAT(Closed(), IsEmpty());
}

TEST_F(UniqueResourceTest, ResetClosesAndTakesOver) {
    UniqueNumber number(7);
    number.Reset(8);
    EXPECT_THAT(Closed(), ElementsAre(7));
    EXPECT_EQ(number.Get(), 8);
    number.Reset();
    EXPECT_THAT(Closed(), ElementsAre(7, 8));
    EXPECT_FALSE(number);
    number.Reset();
    EXPECT_THAT(Closed(), ElementsAre(7, 8));
}

TEST_F(UniqueResourceTest, PlaceForAnOutArgumentIsEmptied) {
    UniqueNumber number(7);
    int* const place = number.Put();
    EXPECT_THAT(Closed(), ElementsAre(7));
    EXPECT_EQ(*place, -1);
    *place = 9;
    EXPECT_EQ(number.Get(), 9);
}

TEST_F(UniqueResourceTest, DetachedValueIsNotClosed) {
    {
        UniqueNumber number(7);
        EXPECT_EQ(number.Detach(), 7);
        EXPECT_FALSE(number);
    }
    EXPECT_THAT(Closed(), IsEmpty());
}

TEST_F(UniqueResourceTest, TryCloseClosesOnce) {
    {
        UniqueNumber number(7);
        EXPECT_EQ(number.TryClose(), DWORD{ERROR_SUCCESS});
        EXPECT_FALSE(number);
        EXPECT_EQ(number.TryClose(), DWORD{ERROR_SUCCESS});
    }
    EXPECT_THAT(Closed(), ElementsAre(7));
}

TEST_F(UniqueResourceTest, FailedTryCloseReportsTheErrorAndKeepsTheValue) {
    NumberTraits::result = ERROR_INVALID_HANDLE;
    UniqueNumber number(7);
    EXPECT_EQ(number.TryClose(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(number.Get(), 7);
    NumberTraits::result = ERROR_SUCCESS;
    EXPECT_EQ(number.TryClose(), DWORD{ERROR_SUCCESS});
    EXPECT_THAT(Closed(), ElementsAre(7, 7));
}

TEST_F(UniqueResourceTest, ExceptionOfTryCloseTravelsAndKeepsTheValue) {
    NumberTraits::throws = true;
    UniqueNumber number(7);
    EXPECT_THROW(static_cast<void>(number.TryClose()), std::runtime_error);
    EXPECT_EQ(number.Get(), 7);
    NumberTraits::throws = false;
}

TEST_F(UniqueResourceTest, ExceptionAtTheEndGoesNowhere) {
    NumberTraits::throws = true;
    EXPECT_NO_THROW({ const UniqueNumber number(7); });
    EXPECT_THAT(Closed(), ElementsAre(7));
}

/// Each type of the platform, with the function that it gives its value back by.
class HandleTypesTest : public testing::Test {
  protected:
    /// A value that no real resource has.
    template <class Value>
    static Value Made() {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): just a number
        return reinterpret_cast<Value>(static_cast<ULONG_PTR>(0x4711));
    }
};

/// Replaces a closing function by a look at what it is given, and an answer.
template <auto Function, class Value, class Result>
class ClosingWatch {
  public:
    explicit ClosingWatch(Result answer)
        : m_fake([this, answer](Value value, auto... /*rest*/) -> Result {
              given.push_back(value);
              SetLastError(ERROR_CRC);
              return answer;
          }) {}

    std::vector<Value> given;

  private:
    Rig::ScopedImport<Function> m_fake;
};

/// Holds a value for a scope, after one failed and one more failed attempt to close it.
template <class Unique, class Watch>
void ExpectClosedBy(Watch& failing, typename Unique::Value value, DWORD error) {
    {
        Unique unique(value);
        EXPECT_TRUE(unique);
        EXPECT_EQ(unique.TryClose(), error);
        EXPECT_EQ(unique.Get(), value);
    }
    EXPECT_THAT(failing.given, ElementsAre(value, value));
}

TEST_F(HandleTypesTest, KernelObject) {
    ClosingWatch<&::CloseHandle, HANDLE, BOOL> watch{FALSE};
    ExpectClosedBy<Platform::UniqueHandle>(watch, Made<HANDLE>(), ERROR_CRC);
    EXPECT_FALSE(Platform::UniqueHandle(nullptr));
}

TEST_F(HandleTypesTest, DirectoryListing) {
    ClosingWatch<&::FindClose, HANDLE, BOOL> watch{FALSE};
    ExpectClosedBy<Platform::UniqueFindHandle>(watch, Made<HANDLE>(), ERROR_CRC);
    EXPECT_FALSE(Platform::UniqueFindHandle(INVALID_HANDLE_VALUE));
}

TEST_F(HandleTypesTest, ServiceHandle) {
    ClosingWatch<&::CloseServiceHandle, SC_HANDLE, BOOL> watch{FALSE};
    ExpectClosedBy<Platform::UniqueServiceHandle>(watch, Made<SC_HANDLE>(), ERROR_CRC);
    EXPECT_FALSE(Platform::UniqueServiceHandle(nullptr));
}

TEST_F(HandleTypesTest, EventSource) {
    ClosingWatch<&::DeregisterEventSource, HANDLE, BOOL> watch{FALSE};
    ExpectClosedBy<Platform::UniqueEventSource>(watch, Made<HANDLE>(), ERROR_CRC);
}

TEST_F(HandleTypesTest, RegistryKey) {
    ClosingWatch<&::RegCloseKey, HKEY, LSTATUS> watch{ERROR_INVALID_HANDLE};
    ExpectClosedBy<Platform::UniqueRegistryKey>(watch, Made<HKEY>(), ERROR_INVALID_HANDLE);
}

TEST_F(HandleTypesTest, WlanHandle) {
    ClosingWatch<&::WlanCloseHandle, HANDLE, DWORD> watch{ERROR_INVALID_HANDLE};
    ExpectClosedBy<Platform::UniqueWlanHandle>(watch, Made<HANDLE>(), ERROR_INVALID_HANDLE);
}

TEST_F(HandleTypesTest, LocalMemory) {
    ClosingWatch<&::LocalFree, HLOCAL, HLOCAL> watch{Made<HLOCAL>()};
    ExpectClosedBy<Platform::UniqueLocalMemory>(watch, Made<HLOCAL>(), ERROR_CRC);
}

TEST_F(HandleTypesTest, FailureWithoutACodeIsStillAFailure) {
    const Rig::ScopedResult<&::CloseHandle> fails{FALSE, NO_ERROR};
    Platform::UniqueHandle handle(Made<HANDLE>());
    EXPECT_EQ(handle.TryClose(), DWORD{ERROR_GEN_FAILURE});
    EXPECT_TRUE(handle);
}

TEST_F(HandleTypesTest, SafeArray) {
    ClosingWatch<&::SafeArrayDestroy, SAFEARRAY*, HRESULT> watch{E_INVALIDARG};
    ExpectClosedBy<Platform::UniqueSafeArray>(watch, Made<SAFEARRAY*>(), static_cast<DWORD>(E_INVALIDARG));
}

TEST_F(HandleTypesTest, MemoryIsGivenBackOnce) {
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

TEST_F(HandleTypesTest, WlanMemoryIsGivenBackOnce) {
    std::vector<void*> freed;
    const Rig::ScopedImport<&::WlanFreeMemory> fake{[&](void* block) { freed.push_back(block); }};
    {
        Platform::UniqueWlanMemory<WLAN_RADIO_STATE> block(Made<WLAN_RADIO_STATE*>());
        EXPECT_EQ(block.TryClose(), DWORD{ERROR_SUCCESS});
    }
    EXPECT_THAT(freed, ElementsAre(Made<void*>()));
}

TEST_F(HandleTypesTest, WithoutMemoryTheBlockIsEmpty) {
    SKIP_UNLESS_IMPORTED(malloc);
    const Rig::ScopedResult<&::HeapAlloc> fails{nullptr};
    EXPECT_FALSE(Platform::AllocateFromProcessHeap<int>(64));
}

TEST_F(HandleTypesTest, BlockOfTheProcessHeapThatCannotBeFreedIsReported) {
    SKIP_UNLESS_IMPORTED(malloc);
    Platform::UniqueProcessHeap<int> block = Platform::AllocateFromProcessHeap<int>(64);
    {
        const Rig::ScopedResult<&::HeapFree> fails{FALSE, ERROR_CRC};
        EXPECT_EQ(block.TryClose(), DWORD{ERROR_CRC});
    }
    EXPECT_TRUE(block);
}

TEST_F(HandleTypesTest, VariantIsClearedAtTheEnd) {
    Rig::Ledger ledger;
    {
        Platform::UniqueVariant variant;
        EXPECT_EQ(V_VT(&variant.Get()), VT_EMPTY);
        V_VT(variant.Address()) = VT_BSTR;
        V_BSTR(variant.Address()) = SysAllocString(L"text");
        EXPECT_EQ(ledger.Outstanding(Rig::Kind::kBstr), 1);
    }
    EXPECT_TRUE(ledger.Balanced());
}

Platform::UniqueHandle MakeEvent() {
    return Platform::UniqueHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

TEST(SharedHandleTest, OnlyTheFirstToCloseItDoes) {
    Platform::SharedHandle shared;
    EXPECT_FALSE(shared);
    shared.Reset(MakeEvent());
    const HANDLE event = shared.Get();
    std::atomic<int> closed = 0;
    {
        // Left open, so that its value is not given to anything else meanwhile.
        const Rig::ScopedImport<&::CloseHandle> closes{[&](HANDLE handle) { return handle == event; },
                                                       [&](HANDLE) -> BOOL {
                                                           ++closed;
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
    EXPECT_EQ(closed, 1);
    CloseHandle(event);
}

TEST(SharedHandleTest, HandleThatCannotBeClosedIsKept) {
    Platform::SharedHandle shared;
    shared.Reset(MakeEvent());
    const HANDLE event = shared.Get();
    {
        const Rig::ScopedImport<&::CloseHandle> fails{[](HANDLE) -> BOOL {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }};
        EXPECT_EQ(shared.TryClose(), DWORD{ERROR_ACCESS_DENIED});
    }
    EXPECT_EQ(shared.Get(), event);
    EXPECT_EQ(shared.TryClose(), DWORD{ERROR_SUCCESS});
    EXPECT_FALSE(shared);
}

TEST(SharedHandleTest, HandleThatCannotBeClosedDoesNotReplaceOneThatWasStoredMeanwhile) {
    Platform::SharedHandle shared;
    shared.Reset(MakeEvent());
    const HANDLE old = shared.Get();
    Platform::UniqueHandle another = MakeEvent();
    const HANDLE newer = another.Get();
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
    EXPECT_NE(SetEvent(old), FALSE);
    CloseHandle(old);
}

TEST(SharedHandleTest, TakenHandleIsNobodyElsesToClose) {
    Platform::SharedHandle shared;
    shared.Reset(MakeEvent());
    const HANDLE event = shared.Get();
    Platform::UniqueHandle taken = shared.Take();
    EXPECT_FALSE(shared);
    EXPECT_FALSE(shared.Take());
    EXPECT_EQ(shared.TryClose(), DWORD{ERROR_SUCCESS});
    EXPECT_NE(SetEvent(taken.Get()), FALSE);
    shared.TakeUnlessHeld(taken);
    EXPECT_FALSE(taken);
    EXPECT_EQ(shared.Get(), event);
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

TEST(SharedHandleTest, FirstOfTwoOfferedStaysAndTheOtherIsLeftToItsOwner) {
    Platform::SharedHandle shared;
    Platform::UniqueHandle first = MakeEvent();
    Platform::UniqueHandle second = MakeEvent();
    const HANDLE kept = first.Get();
    const HANDLE refused = second.Get();
    shared.TakeUnlessHeld(first);
    shared.TakeUnlessHeld(second);
    EXPECT_FALSE(first);
    EXPECT_EQ(shared.Get(), kept);
    EXPECT_EQ(second.Get(), refused);
}

}  // namespace
