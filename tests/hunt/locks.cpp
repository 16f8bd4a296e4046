#include "tests/hunt/locks.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <map>
#include <mutex>
#include <ranges>
#include <set>
#include <string_view>

#ifdef __MINGW32__
#include <pthread.h>
#endif

#include "logging/logger.h"
#include "network/wired_connections.h"
#include "radio/wwan_state.h"
#include "tests/hunt/command.h"
#include "tests/hunt/operations.h"
#include "tests/support/scoped_import.h"

namespace RandomEvents::Locks {

using Orva::Shared::CorvaLogListener;
using Rig::Real;
using Rig::Detail::RigLock;
using Rig::Detail::RigLockHolder;

enum Lock : unsigned { kCable, kNotification, kRadioEvent, kSwitch, kCheck, kFile, kQueue, kTimes, kNone };

namespace {

#ifdef __MINGW32__
constexpr bool kSeesMutexes = true;
#else
constexpr bool kSeesMutexes = false;
#endif

constexpr unsigned kLog = 1U << kFile | 1U << kQueue | 1U << kTimes;

/// As docs/threads.md has them.
struct Rule {
    const char* name;
    unsigned mayTake;  ///< while it is held: bits
};
constexpr std::array<Rule, kNone> kRules = {{
    {"connectivityChangeLock", 1U << kSwitch | 1U << kCheck | kLog},
    {"notificationLock", 1U << kCheck | kLog},
    {"CMbnSinks::m_eventLock", 1U << kSwitch | 1U << kCheck | kLog},
    {"WwanState::switchLock", 1U << kCheck | kLog},
    {"ethernetCheckLock", kLog},
    {"LogFile::m_mutex", 1U << kQueue},
    {"WriteQueue::m_lock", 0},
    {"TimingStatistics::m_lock", 0},
}};

/// The mutexes that nobody else can name are known by the operation that takes them.
struct Taker {
    std::string_view operation;
    Lock lock;
};
constexpr Taker kTakers[] = {
    {"CMainService::WlanNotificationCallback", kNotification},
    {"CMbnSinks::OnSetSoftwareRadioStateComplete", kRadioEvent},
    {"NLMEventHandler::CheckEthernetConnectionStatusEx", kCheck},
    {"NLMEventHandler::~NLMEventHandler", kCheck},
};

/// Lines that are written under a lock, by how they begin; an empty one is the operation's first.
struct Place {
    std::string_view operation;
    std::wstring_view line;
    Lock lock;
};
constexpr Place kPlaces[] = {
    {"NLMEventHandler::NetworkConnectionConnectivityChanged", L"Connection ID : ", kCable},
    {"NLMUtils::IsEthernetConnection", L"", kCable},
    {"CMainService::HandleWlanNotificationAcmNetworkAvailable", L"", kNotification},
    {"CMainService::HandleWlanNotificationMsmRadioStateChange", L"", kNotification},
    {"CMbnSinks::OnSetSoftwareRadioStateComplete", L"NetworkChangedForSetRadio", kRadioEvent},
    {"ServiceUtils::SwitchWwanStatus", L"Change to softwareRadioState", kSwitch},
    {"NLMEventHandler::CheckEthernetConnectionStatus", L"", kCheck},
    {"NLMEventHandler::InitialiseAdapter", L"", kCheck},
};

RigLock g_lock;  ///< guards what follows
std::map<const void*, Lock> g_locks;
std::set<HANDLE> g_fileMutexes;
std::set<std::string> g_problems;
std::array<std::array<std::uint32_t, kNone>, kNone> g_order{};

std::atomic<bool> g_isWatched = false;
std::uint64_t g_seed = 0;
DWORD g_slot = TLS_OUT_OF_INDEXES;

}  // namespace

class Thread {
  public:
    explicit Thread(std::uint64_t number) : random(g_seed + number) {}

    Random random;
    Operations operations;
    std::vector<Lock> held;
    Lock waitsFor = kNone;
    bool mayWrite = false;  ///< to the log's file: its lines are its own, or were taken from the queue
    Lock owes = kNone;      ///< to be taken by what it does next
};

namespace {

/// Not by `thread_local`, which takes a mutex of its own.
Thread& Here() {
    const Rig::Detail::LastErrorKeeper keeper;
    auto* here = static_cast<Thread*>(TlsGetValue(g_slot));
    if (here == nullptr) {
        static std::atomic<std::uint64_t> count = 0;
        here = new Thread(++count);
        TlsSetValue(g_slot, here);
    }
    return *here;
}

bool Holds(Lock lock) {
    return std::ranges::count(Here().held, lock) != 0;
}

void Report(const std::string& problem) {
    const RigLockHolder hold(g_lock);
    if (g_problems.insert(problem).second) {
        std::printf("%s\n", problem.c_str());
    }
}

void ExpectHeld(Lock lock, std::string_view where) {
    if (!Holds(lock) && (kSeesMutexes || lock == kFile)) {
        Report(std::string(kRules.at(lock).name) + " is not held in " + std::string(where));
    }
}

/// Before a lock is waited for.
void Ask(Thread& here, Lock lock) {
    here.waitsFor = lock;
    for (const Lock held : here.held) {
        const RigLockHolder hold(g_lock);
        ++g_order.at(held).at(lock);
        if ((kRules.at(held).mayTake >> lock & 1U) == 0) {
            g_problems.insert(std::string(kRules.at(lock).name) + " is taken while " + kRules.at(held).name +
                              " is held, in " + std::string(here.operations.Innermost()));
        }
    }
    Pause();
}

/// Takes a lock by `take`; `kNone`: it is none of the service's.
template <class Function>
auto TakeAs(Lock lock, Function take) {
    if (lock == kNone) {
        return take();
    }
    Thread& here = Here();
    Ask(here, lock);
    const auto result = take();
    here.waitsFor = kNone;
    here.mayWrite = here.mayWrite || lock == kQueue;
    here.owes = here.owes == lock ? kNone : here.owes;
    here.held.push_back(lock);
    Pause();
    return result;
}

/// Gives it back by `give`.
template <class Function>
auto GiveBackAs(Lock lock, Function give) {
    if (lock == kNone) {
        return give();
    }
    Pause();
    std::vector<Lock>& held = Here().held;
    const auto last = std::ranges::find(held.rbegin(), held.rend(), lock);
    if (last != held.rend()) {
        held.erase(last.base() - 1);
    }
    const auto result = give();
    Pause();
    return result;
}

/// The service's locks among all mutexes; `kNone` for others.
[[maybe_unused]] Lock Name(const void* mutex, const Thread& here) {
    const RigLockHolder hold(g_lock);
    const auto known = g_locks.find(mutex);
    if (known != g_locks.end()) {
        return known->second;
    }
    const auto* const taker = std::ranges::find(kTakers, here.operations.Innermost(), &Taker::operation);
    if (taker == std::end(kTakers)) {
        return kNone;
    }
    return g_locks[mutex] = taker->lock;
}

/// The log's two locks among all critical sections: each is the one that was first taken where it is owed.
Lock NameSection(const void* section, const Thread& here) {
    const RigLockHolder hold(g_lock);
    const auto known = g_locks.find(section);
    if (known != g_locks.end()) {
        return known->second;
    }
    const bool isNamed = std::ranges::count(g_locks | std::views::values, here.owes) != 0;
    return here.owes < kQueue || isNamed ? kNone : g_locks[section] = here.owes;
}

}  // namespace

void Pause() {
    constexpr std::uint32_t kYields = 6;
    constexpr std::uint32_t kSleeps = 100;
    const Rig::Detail::LastErrorKeeper keeper;
    Random& random = Here().random;
    if (random.OneIn(kSleeps)) {
        Real<&::Sleep>(1);
    } else if (random.OneIn(kYields)) {
        SwitchToThread();
    }
}

bool IsTakingLock() {
    return Here().waitsFor != kNone;
}

const Thread& ThisThread() {
    return Here();
}

std::string Tell(const Thread& thread) {
    std::string text;
    for (const std::string& name : thread.operations.Names()) {
        text += "\n    in " + name;
    }
    for (const Lock held : thread.held) {
        text += std::string("\n    holds ") + kRules.at(held).name;
    }
    return text + (thread.waitsFor == kNone
                       ? ""
                       : std::string("\n    waits for ") + kRules.at(thread.waitsFor).name);
}

Watch::Watch(std::uint64_t seed) {
    g_seed = seed;
    g_slot = TlsAlloc();
    g_locks = {{&connectivityChangeLock, kCable}, {&WwanState::switchLock, kSwitch}};
    ReplaceLocks();
    g_isWatched = true;
}

Watch::~Watch() {
    g_isWatched = false;
    m_imports.clear();
}

void Watch::Begin(const CorvaLogListener::LogData& line) {
    Thread& here = Here();
    if (here.owes != kNone && (kSeesMutexes || here.owes > kCheck)) {
        Report(std::string(kRules.at(here.owes).name) + " is not taken behind the last line before " +
               std::string(line.FunctionName()) + "'s");
    }
    here.owes = kNone;
    here.mayWrite = true;
    here.operations.Follow(line);
    for (const Place& place : kPlaces) {
        const bool isMeant = place.line.empty() ? line.GetLevel() == Orva::Shared::Level::kTraceIn
                                                : line.Message().starts_with(place.line);
        if (isMeant && place.operation == line.FunctionName()) {
            ExpectHeld(place.lock, place.operation);
        }
    }
    here.owes = kQueue;
}

void Watch::End(const CorvaLogListener::LogData& line, bool isQueued) {
    Thread& here = Here();
    if (isQueued && here.owes == kQueue) {
        Report("a line is queued without a lock");
    }
    here.owes = kNone;
    // Behind the line about it a time is summed up, a connection added to the set, and the list of adapters
    // given back.
    if (line.GetLevel() == Orva::Shared::Level::kDiag) {
        here.owes = kTimes;
    } else if (line.FunctionName() == "NLMUtils::PrintNetworkConnections" &&
               line.Message().starts_with(L"Ethernet Connection - adding")) {
        here.owes = kCable;
    } else if (line.FunctionName() == "NLMEventHandler::~NLMEventHandler" &&
               line.GetLevel() == Orva::Shared::Level::kTraceIn) {
        here.owes = kCheck;
    }
}

void Watch::AtModem() {
    ExpectHeld(kSwitch, "SetSoftwareRadioState");
    if (!WwanState::NetworkChangedForSetRadio) {
        Report("an own change of the modem is not marked");
    }
}

void Watch::EndLog(bool wasQueued) {
    Thread& here = Here();
    here.owes = wasQueued ? kQueue : kNone;
    Orva::Shared::GetLogger().EndListeners();
    if (here.owes == kQueue) {
        Report("WriteQueue::m_lock is not taken at the end of the log");
    }
    here.owes = kNone;
    // The next log has its own, also where this one's writer comes to its end later.
    const RigLockHolder hold(g_lock);
    std::erase_if(g_locks, [](const auto& named) { return named.second >= kQueue; });
}

std::string Watch::Problems() {
    const RigLockHolder hold(g_lock);
    std::string text;
    for (const std::string& problem : g_problems) {
        text += (text.empty() ? "" : "\n  ") + problem;
    }
    return text;
}

std::string Watch::Order() {
    const RigLockHolder hold(g_lock);
    std::string text;
    for (std::size_t held = 0; held < kNone; ++held) {
        for (std::size_t taken = 0; taken < kNone; ++taken) {
            if (g_order.at(held).at(taken) != 0) {
                text += std::string("  ") + kRules.at(held).name + ", then " + kRules.at(taken).name + ": " +
                        std::to_string(g_order.at(held).at(taken)) + "\n";
            }
        }
    }
    return text;
}

void Watch::ReplaceLocks() {
    m_imports = {
        Rig::ReplaceIfImported<&::EnterCriticalSection>([](CRITICAL_SECTION* section) {
            TakeAs(NameSection(section, Here()), [=] {
                Real<&::EnterCriticalSection>(section);
                return TRUE;
            });
        }),
        Rig::ReplaceIfImported<&::TryEnterCriticalSection>([](CRITICAL_SECTION* section) -> BOOL {
            const BOOL isTaken = Real<&::TryEnterCriticalSection>(section);
            return TakeAs(isTaken != FALSE ? NameSection(section, Here()) : kNone, [=] { return isTaken; });
        }),
        Rig::ReplaceIfImported<&::LeaveCriticalSection>([](CRITICAL_SECTION* section) {
            GiveBackAs(NameSection(section, Here()), [=] {
                Real<&::LeaveCriticalSection>(section);
                return TRUE;
            });
        }),
        // Of all mutexes of Windows only the log's has a name.
        Rig::ReplaceIfImported<&::CreateMutexW>(
            [](SECURITY_ATTRIBUTES* security, BOOL isOwner, const wchar_t* name) {
                const HANDLE mutex = Real<&::CreateMutexW>(security, isOwner, name);
                const Rig::Detail::LastErrorKeeper keeper;
                const RigLockHolder hold(g_lock);
                if (name != nullptr) {
                    g_fileMutexes.insert(mutex);
                }
                return mutex;
            }),
        Rig::ReplaceIfImported<&::CloseHandle>([](HANDLE handle) {
            {
                // Its value may be another object's next, such as an event's.
                const RigLockHolder hold(g_lock);
                g_fileMutexes.erase(handle);
            }
            return Real<&::CloseHandle>(handle);
        }),
        Rig::ReplaceIfImported<&::ReleaseMutex>(
            [](HANDLE mutex) {
                const RigLockHolder hold(g_lock);
                return g_fileMutexes.contains(mutex);
            },
            [](HANDLE mutex) -> BOOL {
                return GiveBackAs(kFile, [=] { return Real<&::ReleaseMutex>(mutex); });
            }),
        Rig::ReplaceIfImported<&::WaitForSingleObject>(
            [](HANDLE mutex, DWORD milliseconds) {
                const RigLockHolder hold(g_lock);
                return milliseconds == INFINITE && g_fileMutexes.contains(mutex);
            },
            [](HANDLE mutex, DWORD milliseconds) {
                return TakeAs(kFile, [=] { return Real<&::WaitForSingleObject>(mutex, milliseconds); });
            }),
        Rig::ReplaceIfImported<&std::fwrite>(
            [](const void*, std::size_t, std::size_t, std::FILE* file) {
                return file != stdout && file != stderr;
            },
            [](const void* text, std::size_t size, std::size_t count, std::FILE* file) {
                ExpectHeld(kFile, "fwrite");
                if (!Here().mayWrite) {
                    Report("lines are taken from the queue without a lock");
                }
                return Real<&std::fwrite>(text, size, count, file);
            }),
        Rig::ReplaceIfImported<&std::fflush>([](std::FILE* file) { return file != stdout && file != stderr; },
                                             [](std::FILE* file) {
                                                 Here().mayWrite = false;
                                                 return Real<&std::fflush>(file);
                                             }),
    };
}

}  // namespace RandomEvents::Locks

#ifdef __MINGW32__

// The standard library's mutexes come through here: the linker's doing.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    using namespace RandomEvents::Locks;
    return TakeAs(g_isWatched ? Name(mutex, Here()) : kNone,
                  [=] { return __real_pthread_mutex_lock(mutex); });
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    using namespace RandomEvents::Locks;
    return GiveBackAs(g_isWatched ? Name(mutex, Here()) : kNone,
                      [=] { return __real_pthread_mutex_unlock(mutex); });
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)

#endif
