#include "tests/support/test_clock.h"

#include <winternl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tests/support/run_on_thread.h"

namespace Rig {

namespace {

/// How long the machine has been running when a clock is made.
constexpr std::chrono::hours kUptimeAtStart{1};

/// Unit of the interrupt time.
using HundredNanoseconds = std::chrono::duration<std::uint64_t, std::ratio<1, 10'000'000>>;

/// Whether the handle is a semaphore, which is what the C++ runtime's condition variables wait on.
bool IsSemaphore(HANDLE handle) {
    using Query = decltype(&::NtQueryObject);
    static const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(Real<&::GetProcAddress>(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject")));
    constexpr std::size_t kRoomForTypeInformation = 1024;
    alignas(UNICODE_STRING) std::array<std::byte, kRoomForTypeInformation> buffer{};
    const NTSTATUS status =
        query(handle, ObjectTypeInformation, buffer.data(), static_cast<ULONG>(buffer.size()), nullptr);
    if (status < 0) {
        return false;
    }
    // The type's name comes first in PUBLIC_OBJECT_TYPE_INFORMATION.
    const auto& name = *reinterpret_cast<const UNICODE_STRING*>(buffer.data());
    return std::wstring_view(name.Buffer, name.Length / sizeof(wchar_t)) == L"Semaphore";
}

bool MovesTheClock(DWORD milliseconds) {
    return milliseconds != 0 && milliseconds != INFINITE;
}

}  // namespace

TestClock::TestClock() {
    m_fakes = {
        ReplaceIfImported<&::Sleep>(&MovesTheClock, [this](DWORD milliseconds) { Sleep(milliseconds); }),
        ReplaceIfImported<&::WaitForSingleObject>(
            [](HANDLE handle, DWORD milliseconds) {
                return MovesTheClock(milliseconds) && !IsSemaphore(handle);
            },
            [this](HANDLE handle, DWORD milliseconds) { return Wait(handle, milliseconds); }),
        ReplaceIfImported<&::QueryUnbiasedInterruptTime>([this](ULONGLONG* time) -> BOOL {
            *time = HundredNanoseconds(Elapsed() + kUptimeAtStart).count();
            return TRUE;
        }),
    };
}

TestClock::~TestClock() {
    m_fakes.clear();
}

TestClock::Milliseconds TestClock::Elapsed() const {
    const Detail::RigLockHolder hold(m_lock);
    return m_now;
}

void TestClock::At(Milliseconds time, std::function<void()> what) {
    const Detail::RigLockHolder hold(m_lock);
    m_schedule.emplace(time, std::move(what));
}

void TestClock::AtOnOwnThread(Milliseconds time, std::function<void()> what) {
    At(time, [what = std::move(what)] { RunOnThread(what, Apartment::kMultithreaded); });
}

void TestClock::Advance(Milliseconds time) {
    const Milliseconds limit = Elapsed() + time;
    while (Step(limit)) {
    }
}

void TestClock::ForgetRecords() {
    const Detail::RigLockHolder hold(m_lock);
    m_records.clear();
}

void TestClock::Sleep(DWORD milliseconds) {
    const Milliseconds limit = Begin({true, milliseconds});
    while (Step(limit)) {
    }
}

DWORD TestClock::Wait(HANDLE handle, DWORD milliseconds) {
    const Milliseconds limit = Begin({false, milliseconds});
    for (bool more = true; more; more = Step(limit)) {
        // Looking consumes an event that resets itself, as the wait would.
        const DWORD result = Real<&::WaitForSingleObject>(handle, 0);
        if (result != WAIT_TIMEOUT) {
            return result;
        }
    }
    return Real<&::WaitForSingleObject>(handle, 0);
}

TestClock::Milliseconds TestClock::Begin(Record record) {
    const Detail::RigLockHolder hold(m_lock);
    m_records.push_back(record);
    return m_now + Milliseconds(record.milliseconds);
}

/// Goes to the next scheduled moment up to `limit` and runs what is due, or goes to `limit`.
/// Returns whether there may be more to do before the limit has passed.
bool TestClock::Step(Milliseconds limit) {
    std::function<void()> due;
    {
        const Detail::RigLockHolder hold(m_lock);
        const auto next = m_schedule.begin();
        if (next == m_schedule.end() || next->first > limit) {
            m_now = std::max(m_now, limit);
            return false;
        }
        m_now = std::max(m_now, next->first);
        due = std::move(next->second);
        m_schedule.erase(next);
    }
    // Without the lock: it may sleep, schedule or call the code under test.
    due();
    return true;
}

std::vector<DWORD> TestClock::Records(bool sleeps, bool waits) const {
    const Detail::RigLockHolder hold(m_lock);
    std::vector<DWORD> times;
    for (const Record& record : m_records) {
        if (record.isSleep ? sleeps : waits) {
            times.push_back(record.milliseconds);
        }
    }
    return times;
}

}  // namespace Rig
