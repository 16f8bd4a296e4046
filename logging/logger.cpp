#include "logging/logger.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <utility>

#include "logging/format.h"
#include "logging/last_error_keeper.h"
#include "logging/local_clock.h"

namespace Orva::Shared {
namespace {

bool IsFileListener(const CorvaLogListener& listener) {
    const int type = listener.GetType();
    return type == ListenerType::kQueuedFile || type == ListenerType::kFile;
}

}  // namespace

CorvaLogger::CorvaLogger(CorvaLogListener* const* listeners, int count) {
    for (int i = 0; i < count; ++i) {
        CorvaLogListener* const listener = listeners[i];
        if (listener == nullptr) {
            continue;
        }
        if (m_listenerCount == kMostListeners) {
            delete listener;
            continue;
        }
        m_listeners[static_cast<std::size_t>(m_listenerCount++)] = listener;
        m_minLevel = std::min(m_minLevel, listener->MinLogLevel());
        m_maxLevel = std::max(m_maxLevel, listener->MaxLogLevel());
        if (IsFileListener(*listener)) {
            m_primaryFileListener = listener;
        }
    }
    m_timingEnabled = m_primaryFileListener != nullptr &&
                      m_primaryFileListener->MaxLogLevel() >= Level::kDiag &&
                      m_primaryFileListener->MinLogLevel() <= Level::kDiag;
    m_messageCharacters = std::min(m_messageCharacters, kMostMessageCharacters);
}

CorvaLogger::~CorvaLogger() {
    for (int i = 0; i < m_listenerCount; ++i) {
        CorvaLogListener*& listener = m_listeners[static_cast<std::size_t>(i)];
        try {
            delete listener;
        } catch (...) {
            // Whatever an output cannot finish, the others are still to be ended.
        }
        listener = nullptr;
    }
}

void CorvaLogger::WriteFormatted(int level, const char* functionName, const wchar_t* format, ...) {
    const LastErrorKeeper keeper;
    wchar_t message[kMessageCharacters];
    message[0] = L'\0';
    if (format != nullptr && *format != L'\0') {
        va_list arguments;
        va_start(arguments, format);
        FormatTextList(message, m_messageCharacters, format, arguments);
        va_end(arguments);
    }
    Dispatch(level, functionName, message);
}

void CorvaLogger::Dispatch(int level, const char* functionName, const wchar_t* message) {
    const CorvaLogListener::LogData entry(functionName, message, level, LocalNow(), GetCurrentThreadId());
    for (int i = 0; i < m_listenerCount; ++i) {
        CorvaLogListener* const listener = m_listeners[static_cast<std::size_t>(i)];
        // Places are emptied at process exit, while other threads may still write.
        if (listener != nullptr && level >= listener->MinLogLevel() && level <= listener->MaxLogLevel()) {
            listener->Log(entry);
        }
    }
}

namespace {

/// At process exit. The place of the logger is not left empty: threads that Windows has not ended
/// yet may still write, and find a log without outputs instead of one that is just being ended.
void EndLogger() {
    const std::unique_ptr<CorvaLogger> ended =
        std::exchange(LoggerHolder(), std::make_unique<CorvaLogger>(nullptr, 0));
}

}  // namespace

std::unique_ptr<CorvaLogger>& Detail::MakeLoggerHolder() {
    // Never destroyed itself, so that it is there for the last line of the last thread.
    auto* const holder = new std::unique_ptr<CorvaLogger>(CreateLogger());
    static_cast<void>(std::atexit(&EndLogger));
    return *holder;
}

}  // namespace Orva::Shared
