#include "logging/logger.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory_resource>
#include <new>

#include "logging/file_listener.h"
#include "logging/format.h"
#include "logging/log_data.h"
#include "platform/handles.h"

namespace Orva::Shared {
namespace {

/// Threads that look listeners up, or are inside one, of whatever logger.
std::atomic<int> threadsAtListeners{0};

/// Counts the thread for a scope. It counts before it looks a listener up, and whoever ends listeners empties
/// a place before he looks at the count: so a listener that may have been looked up is seen to be in use,
/// and neither of the two ever waits.
class AtListeners {
  public:
    AtListeners() noexcept { ++threadsAtListeners; }
    AtListeners(const AtListeners&) = delete;
    AtListeners& operator=(const AtListeners&) = delete;
    ~AtListeners() { --threadsAtListeners; }
};

/// Time as files have it: units of 100 ns since 1601.
using Ticks = std::int64_t;
constexpr Ticks kTicksPerSecond = 10'000'000;

/// How far local time is ahead, and when that was looked up. Two threads may look it up at the
/// same time and find the same.
std::atomic<Ticks> offset{0};
std::atomic<Ticks> offsetTakenAt{0};

/// The local date and time, to the millisecond. How far local time is from the system's is looked up
/// once a second only, so a line may be a second late in following a change of that. With `GetLocalTime`,
/// queued calls of one thread miss their bound in `logging_bench`.
SYSTEMTIME LocalNow() noexcept {
    FILETIME system{};
    GetSystemTimeAsFileTime(&system);
    const auto now = std::bit_cast<Ticks>(system);
    const Ticks age = now - offsetTakenAt;
    if (age < 0 || age >= kTicksPerSecond) {
        FILETIME local = system;
        FileTimeToLocalFileTime(&system, &local);
        offset = std::bit_cast<Ticks>(local) - now;
        offsetTakenAt = now;
    }
    const auto local = std::bit_cast<FILETIME>(now + offset);
    SYSTEMTIME time{};
    FileTimeToSystemTime(&local, &time);
    return time;
}

/// Whatever one output cannot finish, the others are still to be ended.
template <class Step>
void Quietly(Step step) noexcept {
    try {
        step();
    } catch (...) {
    }
}

}  // namespace

CorvaLogger::CorvaLogger(CorvaLogListener* const* listeners, int count) {
    for (int i = 0; i < count; ++i) {
        CorvaLogListener* const listener = listeners[i];
        if (listener == nullptr || m_listenerCount == kMostListeners) {
            delete listener;
            continue;
        }
        m_listeners[static_cast<std::size_t>(m_listenerCount++)] = listener;
        m_minLevel = std::min(m_minLevel, listener->MinLogLevel());
        m_maxLevel = std::max(m_maxLevel, listener->MaxLogLevel());
        const int type = listener->GetType();
        if (type == ListenerType::kQueuedFile || type == ListenerType::kFile) {
            m_primaryFileListener = listener;
        }
    }
    m_timingEnabled = m_primaryFileListener != nullptr &&
                      m_primaryFileListener->MaxLogLevel() >= Level::kDiag &&
                      m_primaryFileListener->MinLogLevel() <= Level::kDiag;
}

CorvaLogger::~CorvaLogger() {
    EndListeners();
}

void CorvaLogger::EndListeners() noexcept {
    for (int i = 0; i < m_listenerCount; ++i) {
        std::atomic<CorvaLogListener*>& place = m_listeners[static_cast<std::size_t>(i)];
        // Before the place is emptied: what others write while the writer works is still written.
        Quietly([&place] {
            if (auto* const file = dynamic_cast<CorvaLogListenerFile*>(place.load())) {
                file->DrainQueue();
            }
        });
        const CorvaLogListener* const listener = place.exchange(nullptr);
        if (threadsAtListeners == 0) {
            Quietly([listener] { delete listener; });
        }
    }
}

void CorvaLogger::WriteFormatted(int level, const char* functionName, const wchar_t* format, ...) {
    const Platform::LastErrorKeeper keeper;
    wchar_t message[kMessageCharacters];
    message[0] = L'\0';
    if (format != nullptr && *format != L'\0') {
        va_list arguments;
        va_start(arguments, format);
        FormatTextList(message, kMessageCharacters, format, arguments);
        va_end(arguments);
    }
    try {
        EntryMemory memory;
        Dispatch({functionName, message, level, LocalNow(), GetCurrentThreadId(), &memory.resource});
    } catch (const std::bad_alloc&) {
        // Short of memory the entry is lost; whoever logs has enough to do with his own failure.
    }
}

void CorvaLogger::Dispatch(const CorvaLogListener::LogData& entry) {
    const AtListeners here;
    const int level = entry.GetLevel();
    for (int i = 0; i < m_listenerCount; ++i) {
        CorvaLogListener* const listener = m_listeners[static_cast<std::size_t>(i)];
        if (listener != nullptr && level >= listener->MinLogLevel() && level <= listener->MaxLogLevel()) {
            try {
                listener->Log(entry);
            } catch (const std::bad_alloc&) {
                // An entry that one listener loses for want of memory is not lost for the next ones.
            }
        }
    }
}

std::unique_ptr<CorvaLogger>& MakeLoggerHolder() {
    // Never destroyed itself, so that it is there for the last line of the last thread.
    auto* const holder = new std::unique_ptr<CorvaLogger>(CreateLogger());
    // The logger itself stays: threads that Windows has not ended yet may still write, and find a log
    // without outputs.
    static_cast<void>(std::atexit([] { GetLogger().EndListeners(); }));
    return *holder;
}

}  // namespace Orva::Shared
