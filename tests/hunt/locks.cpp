#include "tests/hunt/locks.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <map>
#include <mutex>
#include <set>
#include <string_view>

#ifdef __MINGW32__
#include <pthread.h>
#endif

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

enum Lock : unsigned { kCable, kNotification, kRadioEvent, kSwitch, kCheck, kFile, kMoment, kNone };

namespace {

#ifdef __MINGW32__
constexpr bool kSeesMutexes = true;
#else
constexpr bool kSeesMutexes = false;
#endif

constexpr unsigned kLog = 1U << kFile | 1U << kMoment;

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
    {"LogFile::m_mutex", 1U << kMoment},
    {"a CriticalSection", 0},
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
std::map<const void*, Lock> g_mutexes;
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
    std::uint32_t moments = 0;        ///< how often it has taken a critical section
    std::uint32_t momentsBefore = 0;  ///< this line of the log
    bool mayWrite = false;  ///< to the log's file: its lines are its own, or were taken from the queue
    Lock owes = kNone;      ///< to be taken before its next line
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

/// Before and after a lock is waited for.
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

void Took(Thread& here, Lock lock) {
    here.waitsFor = kNone;
    here.mayWrite = here.mayWrite || lock == kMoment;
    here.owes = here.owes == lock ? kNone : here.owes;
    here.held.push_back(lock);
    here.moments += lock == kMoment ? 1 : 0;
    Pause();
}

void Leave(Thread& here, Lock lock) {
    Pause();
    const auto last = std::ranges::find(here.held.rbegin(), here.held.rend(), lock);
    if (last != here.held.rend()) {
        here.held.erase(last.base() - 1);
    }
}

/// The service's locks among all mutexes; `kNone` for others.
[[maybe_unused]] Lock Name(const void* mutex, const Thread& here) {
    const RigLockHolder hold(g_lock);
    const auto known = g_mutexes.find(mutex);
    if (known != g_mutexes.end()) {
        return known->second;
    }
    const auto* const taker = std::ranges::find(kTakers, here.operations.Innermost(), &Taker::operation);
    if (taker == std::end(kTakers)) {
        return kNone;
    }
    return g_mutexes[mutex] = taker->lock;
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
    g_mutexes = {{&connectivityChangeLock, kCable}, {&WwanState::switchLock, kSwitch}};
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
    here.momentsBefore = here.moments;
}

void Watch::End(const CorvaLogListener::LogData& line, bool isQueued) {
    Thread& here = Here();
    if (isQueued && here.moments == here.momentsBefore) {
        Report("a line is queued without a lock");
    }
    // Behind the line about it a time is summed up, a connection added to the set, and the list of adapters
    // given back.
    if (line.GetLevel() == Orva::Shared::Level::kDiag) {
        here.owes = kMoment;
    } else if (line.FunctionName() == "NLMUtils::PrintNetworkConnections" &&
               line.Message().starts_with(L"Ethernet Connection - adding")) {
        here.owes = kCable;
    } else if (line.FunctionName() == "NLMEventHandler::~NLMEventHandler" &&
               line.GetLevel() == Orva::Shared::Level::kTraceIn) {
        here.owes = kCheck;
    }
    here.momentsBefore = here.moments;
}

void Watch::AtModem() {
    ExpectHeld(kSwitch, "SetSoftwareRadioState");
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
            Ask(Here(), kMoment);
            Real<&::EnterCriticalSection>(section);
            Took(Here(), kMoment);
        }),
        Rig::ReplaceIfImported<&::TryEnterCriticalSection>([](CRITICAL_SECTION* section) -> BOOL {
            if (Real<&::TryEnterCriticalSection>(section) == FALSE) {
                return FALSE;
            }
            Ask(Here(), kMoment);
            Took(Here(), kMoment);
            return TRUE;
        }),
        Rig::ReplaceIfImported<&::LeaveCriticalSection>([](CRITICAL_SECTION* section) {
            Leave(Here(), kMoment);
            Real<&::LeaveCriticalSection>(section);
            Pause();
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
        Rig::ReplaceIfImported<&::ReleaseMutex>(
            [](HANDLE mutex) {
                const RigLockHolder hold(g_lock);
                return g_fileMutexes.contains(mutex);
            },
            [](HANDLE mutex) -> BOOL {
                Leave(Here(), kFile);
                const BOOL result = Real<&::ReleaseMutex>(mutex);
                Pause();
                return result;
            }),
        Rig::ReplaceIfImported<&::WaitForSingleObject>(
            [](HANDLE mutex, DWORD milliseconds) {
                const RigLockHolder hold(g_lock);
                return milliseconds == INFINITE && g_fileMutexes.contains(mutex);
            },
            [](HANDLE mutex, DWORD milliseconds) {
                Ask(Here(), kFile);
                const DWORD result = Real<&::WaitForSingleObject>(mutex, milliseconds);
                Took(Here(), kFile);
                return result;
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
    const Lock lock = g_isWatched ? Name(mutex, Here()) : kNone;
    if (lock == kNone) {
        return __real_pthread_mutex_lock(mutex);
    }
    Ask(Here(), lock);
    const int result = __real_pthread_mutex_lock(mutex);
    Took(Here(), lock);
    return result;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    using namespace RandomEvents::Locks;
    const Lock lock = g_isWatched ? Name(mutex, Here()) : kNone;
    if (lock == kNone) {
        return __real_pthread_mutex_unlock(mutex);
    }
    Leave(Here(), lock);
    const int result = __real_pthread_mutex_unlock(mutex);
    Pause();
    return result;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)

#endif
