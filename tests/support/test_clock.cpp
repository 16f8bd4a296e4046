#include "tests/support/test_clock.h"

#include <gtest/gtest.h>
#include <winternl.h>

#include <array>
#include <cstdint>
#include <cwchar>
#include <string_view>

#include "tests/support/run_on_thread.h"

namespace Rig {

namespace {

/// A Thursday, far from midnight and from every change of the clocks.
constexpr SYSTEMTIME kDefaultStart{2021, 3, 4, 4, 5, 6, 7, 89};

/// How long the machine has been running when a clock is made.
constexpr std::chrono::hours kUptimeAtStart{1};

/// Unit of FILETIME and of the interrupt time.
using HundredNanoseconds = std::chrono::duration<std::uint64_t, std::ratio<1, 10'000'000>>;

std::uint64_t InHundredNanoseconds(std::chrono::milliseconds time) {
    return std::chrono::duration_cast<HundredNanoseconds>(time).count();
}

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

}  // namespace

TestClock::TestClock(Threads threads)
    : m_maker(Detail::ThisThread()), m_threads(threads), m_start(kDefaultStart) {
    ReplaceWaits();
    ReplaceTimes();
}

TestClock::~TestClock() {
    m_fakes.clear();
}

void TestClock::ReplaceWaits() {
    m_fakes.push_back(
        ReplaceIfImported<&::Sleep>([this](DWORD milliseconds) { return TakesSleep(milliseconds); },
                                    [this](DWORD milliseconds) { Sleep(milliseconds); }));
    m_fakes.push_back(
        ReplaceIfImported<&::SleepEx>([this](DWORD milliseconds, BOOL) { return TakesSleep(milliseconds); },
                                      [this](DWORD milliseconds, BOOL) {
                                          Sleep(milliseconds);
                                          return DWORD{0};
                                      }));
    m_fakes.push_back(ReplaceIfImported<&::WaitForSingleObject>(
        [this](HANDLE handle, DWORD milliseconds) { return TakesWait(handle, milliseconds); },
        [this](HANDLE handle, DWORD milliseconds) { return Wait(handle, milliseconds); }));
}

void TestClock::ReplaceTimes() {
    const auto uptime = [this] { return Elapsed() + kUptimeAtStart; };
    m_fakes.push_back(ReplaceIfImported<&::GetLocalTime>([this](SYSTEMTIME* time) { *time = LocalTime(); }));
    m_fakes.push_back(ReplaceIfImported<&::GetSystemTime>([this](SYSTEMTIME* time) { *time = LocalTime(); }));
    m_fakes.push_back(
        ReplaceIfImported<&::GetTickCount>([uptime] { return static_cast<DWORD>(uptime().count()); }));
    m_fakes.push_back(
        ReplaceIfImported<&::GetTickCount64>([uptime] { return static_cast<ULONGLONG>(uptime().count()); }));
    m_fakes.push_back(ReplaceIfImported<&::QueryUnbiasedInterruptTime>([uptime](ULONGLONG* time) -> BOOL {
        *time = InHundredNanoseconds(uptime());
        return TRUE;
    }));
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

void TestClock::SetStart(const SYSTEMTIME& localTime) {
    const Detail::RigLockHolder hold(m_lock);
    m_start = localTime;
}

void TestClock::LetOthersRun(Milliseconds realTime) {
    const Detail::RigLockHolder hold(m_lock);
    m_grace = realTime;
}

std::vector<DWORD> TestClock::Sleeps() const {
    return Records(true, false);
}

std::vector<DWORD> TestClock::Waits() const {
    return Records(false, true);
}

std::vector<DWORD> TestClock::SleepsAndWaits() const {
    return Records(true, true);
}

void TestClock::ForgetRecords() {
    const Detail::RigLockHolder hold(m_lock);
    m_records.clear();
}

bool TestClock::IsOnThisThread() const {
    return m_threads == Threads::kAll || Detail::ThisThread() == m_maker;
}

bool TestClock::TakesSleep(DWORD milliseconds) const {
    return milliseconds != 0 && milliseconds != INFINITE && IsOnThisThread();
}

bool TestClock::TakesWait(HANDLE handle, DWORD milliseconds) const {
    return TakesSleep(milliseconds) && !IsSemaphore(handle);
}

void TestClock::Sleep(DWORD milliseconds) {
    AddRecord(Kind::kSleep, milliseconds);
    Advance(Milliseconds(milliseconds));
}

DWORD TestClock::Wait(HANDLE handle, DWORD milliseconds) {
    AddRecord(Kind::kWait, milliseconds);
    const Milliseconds limit = Elapsed() + Milliseconds(milliseconds);
    bool more = true;
    while (more) {
        // Looking consumes an event that resets itself, as the wait would.
        DWORD result = Real<&::WaitForSingleObject>(handle, 0);
        if (result == WAIT_TIMEOUT) {
            result = Real<&::WaitForSingleObject>(handle, Grace());
        }
        if (result != WAIT_TIMEOUT) {
            return result;
        }
        more = Step(limit);
    }
    return Real<&::WaitForSingleObject>(handle, 0);
}

DWORD TestClock::Grace() const {
    const Detail::RigLockHolder hold(m_lock);
    return static_cast<DWORD>(m_grace.count());
}

void TestClock::AddRecord(Kind kind, DWORD milliseconds) {
    const Detail::RigLockHolder hold(m_lock);
    m_records.push_back({kind, milliseconds});
}

std::vector<DWORD> TestClock::Records(bool sleeps, bool waits) const {
    const Detail::RigLockHolder hold(m_lock);
    std::vector<DWORD> times;
    for (const Record& record : m_records) {
        if (record.kind == Kind::kSleep ? sleeps : waits) {
            times.push_back(record.milliseconds);
        }
    }
    return times;
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

SYSTEMTIME TestClock::LocalTime() const {
    const Detail::RigLockHolder hold(m_lock);
    FILETIME file{};
    Real<&::SystemTimeToFileTime>(&m_start, &file);
    ULARGE_INTEGER ticks{};
    ticks.LowPart = file.dwLowDateTime;
    ticks.HighPart = file.dwHighDateTime;
    ticks.QuadPart += InHundredNanoseconds(m_now);
    file.dwLowDateTime = ticks.LowPart;
    file.dwHighDateTime = ticks.HighPart;
    SYSTEMTIME time{};
    Real<&::FileTimeToSystemTime>(&file, &time);
    return time;
}

}  // namespace Rig
